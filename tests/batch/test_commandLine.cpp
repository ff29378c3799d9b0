// The dngprocessor command: flags into the options record, usage errors, the executable's exit
// codes and messages, the demo clip and the progress line.
#include <fstream>
#include <sstream>

#include "batchTestSupport.h"
#include "cinedng/cd_FrameRenderer.h"
#include "cinedng/cd_commandLine.h"

using namespace batchtest;
using Action = cd_commandLine::Action;

namespace {
const std::string kCommand = std::string(CINEDNG_BINARY_DIR) + "/dngprocessor ";
}

TEST(CommandLine, FlagsFillTheOptionsRecord) {
    const std::string dir = scratchFolder("in");
    std::ofstream(dir + "look.dng") << "x";
    const auto r = cd_commandLine::parse({dir, "-o", "/tmp/x", "-l", dir + "look.dng", "-t", "4", "-s", "2", "-d", "30",
                                          "-b", "5", "-n", "shot_%04d", "-w", "1920", "-f", "dpx", "-v"});
    ASSERT_EQ(r.action, Action::run) << r.error;
    std::ostringstream printed;
    printed << r.options;
    EXPECT_EQ(printed.str(), "CommandLineOptions< VerboseMode:true, PreferredWidth:1920, SkipFrames:2, MaxDuration:30, "
                             "Threads:4, OutputFormat:dpx, OutputFilenameTemplate:\"shot_%04d\", InputFolder:\"" + dir +
                             "\", OutputFolder:\"/tmp/x\", LookFilename:\"" + dir + "look.dng\", Benchmark Runs:\"5\" >");
    // Long forms, "=" values and attached short values; the output folder defaults to ".".
    const auto l = cd_commandLine::parse({"--input=" + dir, "--threads=2", "-s3", "--render"});
    ASSERT_EQ(l.action, Action::run) << l.error;
    EXPECT_EQ(l.options.InputFolder, dir);
    EXPECT_EQ(l.options.OutputFolder, "./");
    EXPECT_EQ(l.options.Threads, 2);
    EXPECT_EQ(l.options.SkipFrames, 3);
    EXPECT_TRUE(l.render);
}

TEST(CommandLine, BadUsageGivesOneLineReasons) {
    const std::string dir = scratchFolder("in");
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{dir, "--frobnicate"}, "unknown option '--frobnicate'"},
        {{dir, "-t"}, "option --threads needs a value"},
        {{dir, "-t", "many"}, "option --threads needs a whole number from 1 to 1024, got 'many'"},
        {{"-v"}, "no input folder given"},
        {{dir + "nowhere"}, "input folder '" + dir + "nowhere' cannot be opened"},
        {{"--demo", dir}, "--demo writes its own clip: give no input folder"},
    };
    for (const auto& [args, reason] : cases) {
        const auto r = cd_commandLine::parse(args);
        EXPECT_EQ(r.action, Action::usageError) << reason;
        EXPECT_EQ(r.error, reason);
    }
}

TEST(CommandExecutable, ExitCodesAndMessages) {
    const std::string clip = scratchFolder("clip"), out = scratchFolder("out"), empty = scratchFolder("empty");
    const Names names = writeClip(clip, 6);
    // Bad usage: one line of reason, the usage, code 2 and nothing written.
    for (const std::string& args : {"--render -o " + out + " " + clip + " --threads nine", std::string("--render")}) {
        const Exec e = shell(kCommand + args);
        EXPECT_EQ(e.code, 2) << args;
        EXPECT_EQ(e.out.rfind("dngprocessor: ", 0), 0u) << e.out;
        EXPECT_NE(e.out.find("\n\nusage: dngprocessor "), npos) << e.out;
    }
    EXPECT_TRUE(exrFiles(out).empty());
    const Exec none = shell(kCommand + empty);
    EXPECT_EQ(none.code, 1);
    EXPECT_EQ(none.out, "No dng files in input folder\n");
    // Frame 2 garbage, frame 3 cut short: both reported, the others written into the new folder,
    // code 1; no progress line when standard error is not a terminal.
    std::ofstream(clip + names[2], std::ios::binary | std::ios::trunc) << std::string(5000, '\x5a');
    fs::resize_file(clip + names[3], fs::file_size(clip + names[3]) / 2);
    const Exec e = shell(kCommand + clip + " -o " + out + "new/ --render -t 2");
    EXPECT_EQ(e.code, 1) << e.out;
    EXPECT_NE(e.out.find("dngprocessor: frame " + names[2] + " failed: cd_"), npos) << e.out;
    EXPECT_NE(e.out.find("dngprocessor: frame " + names[3] + " failed: cd_locateRows - DNG row offset error"), npos);
    EXPECT_NE(e.out.find("\n4 of 6 frames written as EXR files to " + out + "new/"), npos) << e.out;
    EXPECT_EQ(exrFiles(out + "new/"), (Names{"frame000000.exr", "frame000001.exr", "frame000004.exr", "frame000005.exr"}));
    EXPECT_EQ(e.out.find('\r'), npos);
    // --demo writes its chart clip into a temporary folder (removed here) and renders its 12 frames.
    const Exec demo = shell(kCommand + "--demo -o " + out + "demo/");
    EXPECT_EQ(demo.code, 0) << demo.out;
    EXPECT_EQ(exrFiles(out + "demo/").size(), 12u);
    const size_t at = demo.out.find(" in /tmp/cinedng-demo-");
    if (at != npos) fs::remove_all(fs::path(demo.out.substr(at + 4, demo.out.find('\n') - at - 4)).parent_path());
}

TEST(ClipProgress, Line) {
    EXPECT_EQ(cd_FrameRenderer::progressLine(12, 40, 2.0), "  12/40 frames     6.0 fps  0:05 left");
    EXPECT_EQ(cd_FrameRenderer::progressLine(0, 40, 0.5), "   0/40 frames     0.0 fps  --:-- left");
    EXPECT_EQ(cd_FrameRenderer::progressLine(1, 7201, 1.0), "   1/7201 frames     1.0 fps  2:00:00 left");
}
