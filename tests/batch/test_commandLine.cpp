// The dngprocessor command: flags into the options record, usage errors, and the executable's exit
// codes and messages.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>

#include "batchTestSupport.h"
#include "cinedng/cd_FrameRenderer.h"
#include "cinedng/cd_clipProgress.h"
#include "cinedng/cd_commandLine.h"

using namespace cinedng;
using namespace batchtest;
using Action = cd_commandLine::Action;

namespace {

cd_commandLine::Request parse(std::vector<std::string> args) { return cd_commandLine::parse(args); }

struct Exec {
    int code = -1;
    std::string out;
};

// Runs the built dngprocessor with the arguments (standard error joined to standard output).
Exec runCommand(const std::string& args) {
    Exec e;
    const std::string exe = std::string(CINEDNG_BINARY_DIR) + "/dngprocessor";
    FILE* p = ::popen((exe + " " + args + " 2>&1").c_str(), "r");
    if (p == nullptr) return e;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) e.out.append(buf, n);
    const int st = ::pclose(p);
    e.code = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return e;
}

bool haveCommand() { return fs::exists(std::string(CINEDNG_BINARY_DIR) + "/dngprocessor"); }

}  // namespace

TEST(CommandLine, FlagsFillTheOptionsRecord) {
    const std::string dir = scratchFolder();
    std::ofstream(dir + "look.dng") << "x";
    auto r = parse({dir, "-o", "/tmp/x", "-l", dir + "look.dng", "-t", "4", "-s", "2", "-d", "30", "-b", "0", "-n",
                    "shot_%04d", "-w", "1920", "-f", "dpx", "-v"});
    ASSERT_EQ(r.action, Action::run) << r.error;
    const cd_CommandLineOptions& o = r.options;
    EXPECT_EQ(o.InputFolder, dir);
    EXPECT_EQ(o.OutputFolder, "/tmp/x");
    EXPECT_EQ(o.LookFilename, dir + "look.dng");
    EXPECT_EQ(o.Threads, 4);
    EXPECT_EQ(o.SkipFrames, 2);
    EXPECT_EQ(o.MaxDuration, 30);
    EXPECT_EQ(o.BenchmarkRuns, 0);
    EXPECT_EQ(o.OutputFilenameTemplate, "shot_%04d");
    EXPECT_EQ(o.PreferredWidth, 1920);
    EXPECT_EQ(o.OutputFormat, "dpx");
    EXPECT_TRUE(o.VerboseMode);
    EXPECT_FALSE(r.render);

    // Long forms, "=" values and attached short values.
    auto l = parse({"--input=" + dir, "--output", "out", "--threads=2", "-s3", "--max-duration", "7", "--render"});
    ASSERT_EQ(l.action, Action::run) << l.error;
    EXPECT_EQ(l.options.InputFolder, dir);
    EXPECT_EQ(l.options.OutputFolder, "out");
    EXPECT_EQ(l.options.Threads, 2);
    EXPECT_EQ(l.options.SkipFrames, 3);
    EXPECT_EQ(l.options.MaxDuration, 7);
    EXPECT_TRUE(l.render);

    // Without flags the record keeps its defaults; the output goes to the current folder.
    auto d = parse({dir});
    ASSERT_EQ(d.action, Action::run);
    EXPECT_EQ(d.options.Threads, 8);
    EXPECT_EQ(d.options.MaxDuration, 999999);
    EXPECT_EQ(d.options.OutputFilenameTemplate, "frame%06d");
    EXPECT_EQ(d.options.OutputFolder, "./");
    EXPECT_FALSE(d.outputGiven);
}

TEST(CommandLine, HelpVersionAndDemo) {
    EXPECT_EQ(parse({"-h"}).action, Action::help);
    EXPECT_EQ(parse({"--help", "--bogus"}).action, Action::usageError);
    EXPECT_EQ(parse({"--version"}).action, Action::version);
    auto demo = parse({"--demo", "-t", "2"});
    ASSERT_EQ(demo.action, Action::run) << demo.error;
    EXPECT_TRUE(demo.demo);
    EXPECT_TRUE(demo.render);
}

TEST(CommandLine, BadUsageGivesOneLineReasons) {
    const std::string dir = scratchFolder();
    struct Case {
        std::vector<std::string> args;
        std::string reason;
    };
    const Case cases[] = {
        {{dir, "--frobnicate"}, "unknown option '--frobnicate'"},
        {{dir, "-t"}, "option --threads needs a value"},
        {{dir, "-t", "many"}, "option --threads needs a whole number from 1 to 1024, got 'many'"},
        {{dir, "--threads=0"}, "option --threads needs a whole number from 1 to 1024, got '0'"},
        {{dir, "-s", "-1"}, "option --skip needs a whole number of 0 or more, got '-1'"},
        {{dir, "-d", "0"}, "option --max-duration needs a whole number of 1 or more, got '0'"},
        {{dir, "-b", "2x"}, "option --benchmark needs a whole number from 0 to 1000000, got '2x'"},
        {{dir, "-w", "0"}, "option --width needs -1 or a whole number of 1 or more, got '0'"},
        {{}, "no input folder given"},
        {{"-v"}, "no input folder given"},
        {{dir + "does-not-exist"}, "input folder '" + dir + "does-not-exist' cannot be opened"},
        {{dir, dir}, "more than one input folder given ('" + dir + "')"},
        {{"--demo", dir}, "--demo writes its own clip: give no input folder"},
        {{dir, "-l", dir + "none.dng"}, "look file '" + dir + "none.dng' cannot be opened"},
        {{dir, "--render", "-b", "3"},
         "--benchmark measures the conversion without rendering: do not combine it with --render"},
    };
    for (const Case& c : cases) {
        const auto r = parse(c.args);
        EXPECT_EQ(r.action, Action::usageError) << c.reason;
        EXPECT_EQ(r.error, c.reason);
        EXPECT_EQ(r.error.find('\n'), std::string::npos);
    }
}

TEST(CommandLine, ProgressLine) {
    EXPECT_EQ(cd_FrameRenderer::progressLine(12, 40, 2.0), "  12/40 frames     6.0 fps  0:05 left");
    EXPECT_EQ(cd_FrameRenderer::progressLine(0, 40, 0.5), "   0/40 frames     0.0 fps  --:-- left");
    EXPECT_EQ(cd_FrameRenderer::progressLine(1, 7201, 1.0), "   1/7201 frames     1.0 fps  2:00:00 left");
}

TEST(CommandExecutable, BadUsageExitsWithTwoAndWritesNothing) {
    if (!haveCommand()) GTEST_SKIP() << "dngprocessor is not built";
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    demo::writeDemoClip(clip, smallClip(2, 32, 24));
    for (const std::string& args : {"'" + clip + "' -o '" + out + "' --render --threads nine",
                                   "'" + clip + "' -o '" + out + "' --render --what", std::string("--render")}) {
        const Exec e = runCommand(args);
        EXPECT_EQ(e.code, 2) << args;
        EXPECT_EQ(e.out.rfind("dngprocessor: ", 0), 0u) << e.out;
        EXPECT_NE(e.out.find("\n\nusage: dngprocessor "), std::string::npos) << e.out;
        EXPECT_TRUE(exrFiles(out).empty());
    }
    const Exec help = runCommand("--help");
    EXPECT_EQ(help.code, 0);
    EXPECT_EQ(help.out.rfind("usage: dngprocessor ", 0), 0u);
}

TEST(CommandExecutable, RenderReportsFailedFramesAndExitsNonZero) {
    if (!haveCommand()) GTEST_SKIP() << "dngprocessor is not built";
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    const auto names = demo::writeDemoClip(clip, smallClip(6, 32, 24));
    fs::resize_file(clip + names[3], 200);
    const Exec e = runCommand("'" + clip + "' -o '" + out + "new/' --render -t 2");
    EXPECT_EQ(e.code, 1) << e.out;
    EXPECT_NE(e.out.find("dngprocessor: frame " + names[3] + " failed: "), std::string::npos) << e.out;
    EXPECT_NE(e.out.find("\nSTATISTICS \n"), std::string::npos);
    EXPECT_NE(e.out.find("5 of 6 frames written as EXR files to " + out + "new/"), std::string::npos) << e.out;
    // The output folder was created; no progress line when standard error is not a terminal.
    EXPECT_EQ(exrFiles(out + "new/").size(), 5u);
    EXPECT_EQ(e.out.find("fps  "), std::string::npos);
    EXPECT_EQ(e.out.find('\r'), std::string::npos);

    const Exec ok = runCommand("'" + clip + "' -o '" + out + "plain/' -d 3");
    EXPECT_EQ(ok.code, 0) << ok.out;
}

TEST(CommandExecutable, EmptyFolderExitsWithOne) {
    if (!haveCommand()) GTEST_SKIP() << "dngprocessor is not built";
    const std::string clip = scratchFolder("clip");
    const Exec e = runCommand("'" + clip + "'");
    EXPECT_EQ(e.code, 1);
    EXPECT_EQ(e.out, "No dng files in input folder\n");
}

TEST(CommandExecutable, DemoRendersItsClip) {
    if (!haveCommand()) GTEST_SKIP() << "dngprocessor is not built";
    const std::string out = scratchFolder("out");
    const Exec e = runCommand("--demo -o '" + out + "'");
    ASSERT_EQ(e.code, 0) << e.out;
    EXPECT_NE(e.out.find("Demo clip: 12 frames"), std::string::npos) << e.out;
    // The clip went to a fresh folder under /tmp: remove it again.
    const size_t in = e.out.find(" in /tmp/cinedng-demo-");
    ASSERT_NE(in, std::string::npos) << e.out;
    const std::string clipDir = e.out.substr(in + 4, e.out.find('\n', in) - in - 4);
    EXPECT_EQ(demo::demoFrameName(demo::DemoClipLayout{}, 0), "demo_000000.dng");
    EXPECT_TRUE(fs::exists(clipDir + "/demo_000000.dng")) << clipDir;
    fs::remove_all(fs::path(clipDir).parent_path());
    const auto files = exrFiles(out);
    ASSERT_EQ(files.size(), 12u);
    const ExrImage img = readExr(out + files[5]);
    EXPECT_EQ(img.imageNumber, 5);
    EXPECT_EQ(img.timeCode.frame(), 5);
    EXPECT_EQ(img.width, 304);
    EXPECT_EQ(img.height, 184);
}

TEST(ClipProgress, CountsFramesReadByThisProcessAndItsWorkers) {
    // Four "frames" of 256 kB: two read here, two by a forked worker; the last line says 4/4.
    const std::string dir = scratchFolder();
    const size_t frameBytes = 256 * 1024;
    for (int i = 0; i < 4; ++i) std::ofstream(dir + "f" + std::to_string(i), std::ios::binary) << std::string(frameBytes, 'x');
    auto readFile = [&](int i) {
        std::ifstream f(dir + "f" + std::to_string(i), std::ios::binary);
        std::string s(frameBytes, '\0');
        f.read(s.data(), static_cast<std::streamsize>(s.size()));
    };
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    {
        cd_clipProgress progress(4, frameBytes, fds[1], 5);
        readFile(0);
        readFile(1);
        const pid_t pid = ::fork();
        if (pid == 0) {
            readFile(2);
            readFile(3);
            ::usleep(200000);  // stay visible to the watcher for a good many rounds
            ::_exit(0);
        }
        ASSERT_GT(pid, 0);
        ::waitpid(pid, nullptr, 0);
        ::usleep(30000);
        progress.stop();
        EXPECT_EQ(progress.framesDone(), 4);
    }
    ::close(fds[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    ::close(fds[0]);
    EXPECT_NE(out.find("\r\033[K   4/4 frames"), std::string::npos) << out;
    EXPECT_EQ(out.substr(out.size() - 4), "\r\033[K");
}
