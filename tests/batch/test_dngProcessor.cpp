// The batch driver: frame selection, the look source, the statistics report (labels byte for byte),
// the benchmark frame count, worker processes and the failure paths.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "batchTestSupport.h"
#include "cinedng/cd_DNGProcessor.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_zeroedFloats.h"

using namespace cinedng;
using namespace batchtest;

namespace {

const std::string kNumber = R"([-+]?(\d+(\.\d*)?|\.\d+)([eE][-+]?\d+)?|inf|nan)";

// Checks that `line` is `label` followed by a number (and optionally a fixed tail).
void expectLabelled(const std::string& line, const std::string& label, const std::string& tail = "") {
    ASSERT_GE(line.size(), label.size()) << "line '" << line << "'";
    EXPECT_EQ(line.substr(0, label.size()), label) << "line '" << line << "'";
    EXPECT_TRUE(std::regex_match(line.substr(label.size()), std::regex("(" + kNumber + ")" + tail)))
        << "value of '" << label << "' in '" << line << "'";
}

double valueAfter(const std::string& line, const std::string& label) {
    return std::stod(line.substr(label.size()));
}

// The lines of the report, from the blank line before "STATISTICS " to the end of standard output.
std::vector<std::string> reportLines(const std::string& out) {
    const size_t at = out.find("\nSTATISTICS \n");
    if (at == std::string::npos) return {};
    return splitLines(out.substr(at + 1));
}

}  // namespace

TEST(BatchSelection, WalksInStepsAndCutsToMaxDuration) {
    std::vector<std::string> ten;
    for (int i = 0; i < 10; ++i) ten.push_back(std::string("f").append(std::to_string(i)));
    EXPECT_EQ(cd_DNGProcessor::selectFrames(ten, 1, 3), (std::vector<std::string>{"f0", "f2", "f4"}));
    EXPECT_EQ(cd_DNGProcessor::selectFrames(ten, 0, 999999), ten);
    EXPECT_EQ(cd_DNGProcessor::selectFrames(ten, 3, 999999), (std::vector<std::string>{"f0", "f4", "f8"}));
    EXPECT_EQ(cd_DNGProcessor::selectFrames(ten, 20, 5), (std::vector<std::string>{"f0"}));
    EXPECT_EQ(cd_DNGProcessor::selectFrames(ten, 0, 2), (std::vector<std::string>{"f0", "f1"}));
    EXPECT_TRUE(cd_DNGProcessor::selectFrames({}, 0, 10).empty());
}

TEST(BatchSelection, ListsDngNamesInByteOrder) {
    const std::string dir = scratchFolder();
    for (const char* n : {"b.dng", "B.DNG", "a_10.dng", "a_9.dng", "notes.txt", "x.dng.bak"}) std::ofstream(dir + n) << "x";
    // Upper case sorts before lower case, '1' before '9': plain byte order.
    EXPECT_EQ(cd_DNGProcessor::listFrames(dir), (std::vector<std::string>{"B.DNG", "a_10.dng", "a_9.dng", "b.dng"}));
}

TEST(BatchRun, SkipAndMaxDurationConvertFrames0_2_4) {
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    demo::writeDemoClip(clip, smallClip(10));
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.SkipFrames = 1;
    o.MaxDuration = 3;
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o, renderExtras()); });
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
    EXPECT_EQ(p->selectedFrames(), (std::vector<std::string>{"demo_000000.dng", "demo_000002.dng", "demo_000004.dng"}));
    // The files are named from each frame's ImageNumber, which is its index in the clip.
    EXPECT_EQ(exrFiles(out), (std::vector<std::string>{"frame000000.exr", "frame000002.exr", "frame000004.exr"}));
    EXPECT_EQ(readExr(out + "frame000004.exr").imageNumber, 4);
    EXPECT_EQ(p->frameCount(), 3);
    // The plain run converts the same selection: three frames reported.
    cd_CommandLineOptions plain = optionsFor(clip, out);
    plain.SkipFrames = 1;
    plain.MaxDuration = 3;
    std::unique_ptr<cd_DNGProcessor> q;
    const RunOutput r2 = captured([&] { q = std::make_unique<cd_DNGProcessor>(plain); });
    EXPECT_EQ(q->selectedFrames(), p->selectedFrames());
    const auto lines = reportLines(r2.out);
    ASSERT_GE(lines.size(), 3u) << r2.out;
    EXPECT_EQ(lines[2], "Clip Duration (frames)  3");
}

TEST(BatchRun, ReportLinesAndLabels) {
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    demo::writeDemoClip(clip, smallClip(12, 64, 48));
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.Threads = 3;  // lowered to 12 / 10 + 1 = 2 workers; the report shows the requested 3
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o); });
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
    EXPECT_EQ(p->workers(), 2);
    EXPECT_EQ(o.Threads, 3);

    const auto all = splitLines(r.out);
    ASSERT_EQ(all.size(), 9u) << r.out;
    EXPECT_TRUE(std::regex_match(all[0], std::regex("   Duration = +(" + kNumber + ") ms for preparing conversion")))
        << all[0];
    EXPECT_TRUE(std::regex_match(all[1], std::regex("   Duration = +(" + kNumber + ") ms for completing conversion")))
        << all[1];
    EXPECT_EQ(all[2], "");
    EXPECT_EQ(all[3], "STATISTICS ");
    expectLabelled(all[4], "Frame rate (fps)        ");
    EXPECT_EQ(all[5], "Clip Duration (frames)  12");
    expectLabelled(all[6], "Clip Duration (seconds) ");
    EXPECT_EQ(all[7], "Image size W x H        48 x 40");  // the demo crop: 8 columns, 4 rows in from each edge
    EXPECT_EQ(all[8], "Threads used            3");
    // Frame rate = F / T.
    const double T = valueAfter(all[6], "Clip Duration (seconds) ");
    EXPECT_NEAR(valueAfter(all[4], "Frame rate (fps)        "), 12 / T, 12 / T * 1e-4);
    EXPECT_EQ(p->frameCount(), 12);
    EXPECT_TRUE(r.err.empty()) << r.err;
}

TEST(BatchRun, VerboseBlocks) {
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    const std::vector<std::string> names = demo::writeDemoClip(clip, smallClip(10, 64, 48));
    const double fileMB = static_cast<double>(fs::file_size(clip + names[0])) / 1e6;
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.VerboseMode = true;
    o.Threads = 1;
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o); });
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
    const auto lines = reportLines(r.out);
    ASSERT_EQ(lines.size(), 46u) << r.out;

    struct Expect {
        const char* label;
        bool number;
    };
    const Expect expected[] = {
        {"STATISTICS ", false},
        {"Frame rate (fps)        ", true},
        {"Clip Duration (frames)  ", true},
        {"Clip Duration (seconds) ", true},
        {"Image size W x H        48 x 40", false},
        {"Threads used            1", false},
        {"", false},
        {"For main thread: ", false},
        {"Bytes Read (MB)                  ", true},
        {"Bytes Written (MB)               ", true},
        {"I/O rate (MBps)\t\t\t\t  ", true},
        {"Frame duration (ms)\t\t\t  ", true},
        {"File operations (times per file) ", false},
        {" Input file size (MB)\t\t\t  ", true},
        {" Get input file size (ms)        ", true},
        {" Open input file (ms)            ", true},
        {" Read input file (ms)            ", true},
        {" Close input file (ms)           ", true},
        {" Input file total (ms)           ", true},
        {" Output bytes processed (MB)     ", true},
        {" Prepare for new file (ms)       ", true},
        {" Create output file (ms)         ", true},
        {" Process output file (ms)        ", true},
        {" Close output file (ms)          ", true},
        {" Output file total (ms)          ", true},
        {"Byte loading ", false},
        {" Bytes read in (MB)              ", true},
        {" Configure reader (ms)           ", true},
        {" Open reader (ms)                ", true},
        {" Process reader (ms)             ", true},
        {" Close reader (ms)               ", true},
        {" Reader total (ms)               ", true},
        {"Linearization ", false},
        {" Bytes Linearized (MB)           ", true},
        {" Configure Linearizer (ms)       ", true},
        {" Open Linearizer (ms)            ", true},
        {" Process Linearizer (ms)         ", true},
        {" Close Linearizer (ms)\t          ", true},
        {" Linearizer total (ms)           ", true},
        {"Debayering ", false},
        {" Bytes Debayered (MB)            ", true},
        {" Configure Debayer (ms)          ", true},
        {" Open Debayer (ms)               ", true},
        {" Process Debayer (ms)            ", true},
        {" Close Debayer (ms)              ", true},
    };
    ASSERT_EQ(std::size(expected) + 1, lines.size());
    for (size_t i = 0; i < std::size(expected); ++i) {
        if (expected[i].number)
            expectLabelled(lines[i], expected[i].label);
        else
            EXPECT_EQ(lines[i], expected[i].label);
    }
    expectLabelled(lines[45], " Debayer total (ms)              ");

    // One worker read every frame: 10 files; per file the bytes of one frame file.
    EXPECT_NEAR(valueAfter(lines[8], "Bytes Read (MB)                  "), 10 * fileMB, 1e-4);
    EXPECT_NEAR(valueAfter(lines[13], " Input file size (MB)\t\t\t  "), fileMB, 1e-6);
    // Row pointers: 8 bytes per stored row (48 rows); linearised: 4 bytes per active photosite.
    EXPECT_NEAR(valueAfter(lines[26], " Bytes read in (MB)              "), 48 * 8 / 1e6, 1e-9);
    EXPECT_NEAR(valueAfter(lines[33], " Bytes Linearized (MB)           "), 64 * 48 * 4 / 1e6, 1e-9);
    // Nothing is debayered or written by the plain run.
    EXPECT_EQ(lines[9], "Bytes Written (MB)               0");
    EXPECT_EQ(lines[40], " Bytes Debayered (MB)            0");
    EXPECT_EQ(lines[19], " Output bytes processed (MB)     0");
    // A stage total is the sum of its four times.
    double sum = 0;
    for (int i = 14; i <= 17; ++i) sum += valueAfter(lines[i], expected[i].label);
    EXPECT_NEAR(valueAfter(lines[18], " Input file total (ms)           "), sum, 1e-3 + sum * 1e-4);
    EXPECT_NE(r.out.find("All threads exited successfully"), std::string::npos);
}

TEST(BatchRun, BenchmarkFrameCountIsRunsTimesWorkers) {
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    demo::writeDemoClip(clip, smallClip(25, 32, 24));
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.Threads = 8;        // 25 frames: lowered to 3 workers
    o.BenchmarkRuns = 4;  // F = 4 x 3
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o); });
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
    EXPECT_EQ(p->workers(), 3);
    EXPECT_EQ(p->frameCount(), 12);
    const auto lines = reportLines(r.out);
    ASSERT_EQ(lines.size(), 6u) << r.out;
    EXPECT_EQ(lines[2], "Clip Duration (frames)  12 (1 Frame x 4 Benchmark Passes)");
    EXPECT_EQ(lines[5], "Threads used            8");
}

TEST(BatchRun, BenchmarkPerFileDivisorIsRuns) {
    // Verbose benchmark run with one worker: N = floor(F / 1 + 0.5) = runs; the parent loaded every
    // one of the 6 frames once, so the bytes per file are 6 frames' worth / 3.
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    const auto names = demo::writeDemoClip(clip, smallClip(6, 32, 24));
    const double fileMB = static_cast<double>(fs::file_size(clip + names[0])) / 1e6;
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.Threads = 1;
    o.BenchmarkRuns = 3;
    o.VerboseMode = true;
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o); });
    const auto lines = reportLines(r.out);
    ASSERT_EQ(lines.size(), 46u) << r.out;
    EXPECT_EQ(lines[2], "Clip Duration (frames)  3 (1 Frame x 3 Benchmark Passes)");
    EXPECT_NEAR(valueAfter(lines[13], " Input file size (MB)\t\t\t  "), 6 * fileMB / 3, 1e-6);
}

TEST(BatchRun, EmptyFolderStopsWithMessage) {
    const std::string clip = scratchFolder("clip");
    std::ofstream(clip + "readme.txt") << "no frames here";
    cd_CommandLineOptions o = optionsFor(clip, scratchFolder("out"));
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o); });
    EXPECT_EQ(p->status(), cd_DNGProcessor::noInputFiles);
    EXPECT_EQ(r.err, "No dng files in input folder\n");
    EXPECT_EQ(r.out, "");
}

TEST(BatchRun, MissingLookSourceRaisesTheLoaderText) {
    // A look file that does not exist has no size: the loader refuses it before any status.
    const std::string clip = scratchFolder("clip");
    demo::writeDemoClip(clip, smallClip(2, 32, 24));
    cd_CommandLineOptions o = optionsFor(clip, scratchFolder("out"));
    o.LookFilename = clip + "missing.dng";
    std::string failure;
    const RunOutput r = captured([&] {
        try {
            cd_DNGProcessor p(o);
        } catch (const cd_exception& e) {
            failure = e.what();
        }
    });
    EXPECT_EQ(failure, "cd_imageLoader - the file size of the clip's largest file is in an illegal range <= 0");
    EXPECT_EQ(r.out.find("STATISTICS"), std::string::npos);
}

TEST(BatchRun, LookSourceDefaultsToFirstSelectedFrame) {
    // Frame 0 of the folder is 64 wide, the others 48: with an empty LookFilename the geometry
    // comes from the first selected frame.
    const std::string clip = scratchFolder("clip");
    demo::DemoClipLayout a = smallClip(1, 64, 32);
    demo::writeDemoClip(clip, a);
    demo::DemoClipLayout b = smallClip(3, 48, 32);
    b.namePrefix = "z_";
    demo::writeDemoClip(clip, b);
    cd_CommandLineOptions o = optionsFor(clip, scratchFolder("out"));
    o.MaxDuration = 1;
    std::unique_ptr<cd_DNGProcessor> p;
    captured([&] { p = std::make_unique<cd_DNGProcessor>(o); });
    EXPECT_EQ(p->lookTags().imageWidth, 64u);
    // A named look source wins.
    cd_CommandLineOptions named = o;
    named.LookFilename = clip + "z_000001.dng";
    std::unique_ptr<cd_DNGProcessor> q;
    captured([&] { q = std::make_unique<cd_DNGProcessor>(named); });
    EXPECT_EQ(q->lookTags().imageWidth, 48u);
}

TEST(BatchWorkers, FortyFramesEightThreadsRunFiveWorkersEachFrameOnce) {
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    demo::writeDemoClip(clip, smallClip(40, 32, 24));
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.Threads = 8;
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o, renderExtras()); });
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
    EXPECT_EQ(p->workers(), 5);
    ASSERT_EQ(p->workerPids().size(), 5u);
    EXPECT_EQ(std::set<int>(p->workerPids().begin(), p->workerPids().end()).size(), 5u);
    ASSERT_EQ(p->frameReports().size(), 40u);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(p->frameReports()[i], 1) << "frame " << i;
        EXPECT_EQ(p->frameWorkers()[i], i % 5) << "frame " << i;
    }
    EXPECT_EQ(exrFiles(out).size(), 40u);
    EXPECT_EQ(p->framesWritten(), 40);
}

TEST(BatchWorkers, PlainRunInterleavesFramesOverWorkers) {
    // 40 frames, 8 threads requested: 5 workers; the main process converts frames 0, 5, ..., 35,
    // i.e. 8 frames, and its loader statistics show exactly those bytes.
    const std::string clip = scratchFolder("clip");
    const auto names = demo::writeDemoClip(clip, smallClip(40, 32, 24));
    const double fileMB = static_cast<double>(fs::file_size(clip + names[0])) / 1e6;
    cd_CommandLineOptions o = optionsFor(clip, scratchFolder("out"));
    o.Threads = 8;
    o.VerboseMode = true;
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o); });
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
    EXPECT_EQ(p->workers(), 5);
    const auto lines = reportLines(r.out);
    ASSERT_EQ(lines.size(), 46u) << r.out;
    EXPECT_NEAR(valueAfter(lines[8], "Bytes Read (MB)                  "), 8 * fileMB, 1e-4);
    EXPECT_EQ(lines[2], "Clip Duration (frames)  40");
}

TEST(BatchWorkers, CorruptFrameIsReportedAndTheRestWritten) {
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    const auto names = demo::writeDemoClip(clip, smallClip(12, 32, 24));
    {
        // Frame 5 becomes garbage of the same size.
        const auto size = fs::file_size(clip + names[5]);
        std::ofstream f(clip + names[5], std::ios::binary | std::ios::trunc);
        f << std::string(size, '\x5a');
    }
    {
        // Frame 8 is cut short: its strip runs past the end of the file.
        fs::resize_file(clip + names[8], fs::file_size(clip + names[8]) / 2);
    }
    {
        // Frame 10 has another bit depth than the clip.
        demo::DemoClipLayout odd = smallClip(1, 32, 24);
        odd.bits = 14;
        framebuilder::writeRawFrame(clip + names[10], demo::demoFrameFields(odd, 10), demo::demoRaster(odd, 10));
    }
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.Threads = 2;
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o, renderExtras()); });
    EXPECT_EQ(p->status(), cd_DNGProcessor::framesFailed);
    ASSERT_EQ(p->failures().size(), 3u) << r.err;
    EXPECT_EQ(p->failures()[0].frame, 5);
    EXPECT_EQ(p->failures()[0].name, names[5]);
    EXPECT_FALSE(p->failures()[0].reason.empty());
    EXPECT_EQ(p->failures()[1].name, names[8]);
    EXPECT_NE(p->failures()[1].reason.find("cd_locateRows - DNG row offset error"), std::string::npos)
        << p->failures()[1].reason;
    EXPECT_EQ(p->failures()[2].name, names[10]);
    EXPECT_EQ(p->failures()[2].reason, "cd_locateRows - bitsPerSample <= 0");
    const auto files = exrFiles(out);
    EXPECT_EQ(files.size(), 9u);
    EXPECT_EQ(std::count(files.begin(), files.end(), "frame000005.exr"), 0);
    EXPECT_EQ(std::count(files.begin(), files.end(), "frame000008.exr"), 0);
    EXPECT_EQ(p->framesWritten(), 9);
    EXPECT_EQ(p->frameCount(), 9);
}

#ifndef CINEDNG_ASSERT_THROWS
TEST(BatchWorkers, WorkerThatDiesLeavesItsFramesFailed) {
    // The output folder path is 245 characters long: names of up to five digits fit, but frame 3,
    // numbered 4000000000, makes the writer's file name too long, and its assertion ends worker 1.
    const std::string clip = scratchFolder("clip");
    std::string out = scratchFolder("out");
    out += std::string(245 - out.size() - 1, 'o') + "/";
    ASSERT_EQ(out.size(), 245u);
    fs::create_directories(out);
    const demo::DemoClipLayout layout = smallClip(12, 32, 24);
    const auto names = demo::writeDemoClip(clip, layout);
    framebuilder::RawFrameSpec f = demo::demoFrameFields(layout, 3);
    f.imageNumber = 4000000000u;
    framebuilder::writeRawFrame(clip + names[3], f, demo::demoRaster(layout, 3));
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.Threads = 2;
    o.OutputFilenameTemplate = "f%u";
    std::unique_ptr<cd_DNGProcessor> p;
    const RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o, renderExtras()); });
    EXPECT_EQ(p->status(), cd_DNGProcessor::framesFailed);
    EXPECT_NE(r.err.find("filename.size() < 256"), std::string::npos) << r.err;
    std::vector<int> failed;
    for (const cd_FrameFailure& ff : p->failures()) {
        failed.push_back(ff.frame);
        EXPECT_EQ(ff.reason, "cd_FrameRenderer - worker 1 ended by signal 6");
    }
    EXPECT_EQ(failed, (std::vector<int>{3, 5, 7, 9, 11}));
    EXPECT_EQ(exrFiles(out), (std::vector<std::string>{"f0.exr", "f1.exr", "f10.exr", "f2.exr", "f4.exr", "f6.exr",
                                                        "f8.exr"}));
}
#endif

TEST(BatchDeathTest, LookSourceWithoutPositiveCameraMatrixStops) {
    // A colour matrix of minus the identity gives a camera-to-XYZ matrix whose sum is -3.
    const std::string clip = scratchFolder("clip");
    demo::DemoClipLayout layout = smallClip(1, 32, 24);
    framebuilder::RawFrameSpec f = demo::demoFrameFields(layout, 0);
    f.colorMatrix1 = {-1, 0, 0, 0, -1, 0, 0, 0, -1};
    f.colorMatrix2.clear();
    f.calibrationIlluminant2.reset();
    framebuilder::writeRawFrame(clip + "negative.dng", f, demo::demoRaster(layout, 0));
    cd_CommandLineOptions o = optionsFor(clip, scratchFolder("out"));
#ifdef CINEDNG_ASSERT_THROWS
    EXPECT_THROW(cd_DNGProcessor p(o), cd_exception);
#else
    EXPECT_DEATH(cd_DNGProcessor p(o), "look.CameraToXYZMtx.sum\\(\\) > 0");
#endif
}

TEST(BatchWorkers, RepeatedImageNumbersAreNamed) {
    // Files are named by ImageNumber: a later frame with the number of an earlier one replaces its
    // file, and the run says which frames did.
    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    demo::writeDemoClip(clip, smallClip(2, 32, 24));
    demo::DemoClipLayout again = smallClip(1, 32, 24);
    again.namePrefix = "z_";
    demo::writeDemoClip(clip, again);  // ImageNumber 0 again
    cd_CommandLineOptions o = optionsFor(clip, out);
    std::unique_ptr<cd_DNGProcessor> p;
    captured([&] { p = std::make_unique<cd_DNGProcessor>(o, renderExtras()); });
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok);
    EXPECT_EQ(p->overwritingFrames(), std::vector<std::string>{"z_000000.dng"});
    EXPECT_EQ(exrFiles(out), (std::vector<std::string>{"frame000000.exr", "frame000001.exr"}));
}

TEST(BatchBuffers, ZeroedFloatsAreZeroWritableAndMoveOnly) {
    for (size_t n : {size_t(10), size_t(3) << 20}) {  // a small zeroed allocation and a mapped one
        cinedng::cd_zeroedFloats a(n);
        ASSERT_NE(a.get(), nullptr);
        EXPECT_EQ(a.size(), n);
        EXPECT_EQ(a.get()[0], 0.0f);
        EXPECT_EQ(a.get()[n / 2], 0.0f);
        EXPECT_EQ(a.get()[n - 1], 0.0f);
        a.get()[n - 1] = 1.5f;
        float* p = a.get();
        cinedng::cd_zeroedFloats b(std::move(a));
        EXPECT_EQ(a.get(), nullptr);
        EXPECT_EQ(b.get(), p);
        EXPECT_EQ(b.get()[n - 1], 1.5f);
        b = cinedng::cd_zeroedFloats(4);
        EXPECT_EQ(b.size(), 4u);
    }
}
