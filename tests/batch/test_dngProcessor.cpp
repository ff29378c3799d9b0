// The batch driver: frame listing and selection, the look source, the statistics report (labels
// byte for byte), the benchmark frame count, worker processes and frames that fail.
#include <cmath>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "batchTestSupport.h"
#include "cinedng/cd_exception.h"

using namespace batchtest;

namespace {

// The text with the stop-watch figures (laps, times, rates) replaced by "#"; counts, sizes and
// bytes stay as printed.
std::string masked(const std::string& text) {
    static const std::regex lap("Duration = +\\S+"), timed("(\\((ms|fps|seconds|MBps)\\)\\s+)\\S+$");
    std::istringstream in(text);
    std::string result;
    for (std::string line; std::getline(in, line);)
        result += std::regex_replace(std::regex_replace(line, lap, "Duration = #"), timed, "$1#") + "\n";
    return result;
}

// The number after `label` at the start of a line of `text`.
double valueOf(const std::string& text, const std::string& label) {
    const size_t at = text.find("\n" + label);
    return at == npos ? NAN : std::strtod(text.c_str() + at + 1 + label.size(), nullptr);
}

// Megabytes as the report prints them.
std::string mb(double bytes) {
    std::ostringstream os;
    os << bytes / 1e6;
    return os.str();
}

}  // namespace

TEST(BatchSelection, SortedListingWalkedInStepsAndCut) {
    const std::string dir = scratchFolder("list");
    for (const char* n : {"b.dng", "B.DNG", "a_10.dng", "a_9.dng", "notes.txt", "x.dng.bak"}) std::ofstream(dir + n) << "x";
    EXPECT_EQ(cd_DNGProcessor::listFrames(dir), (Names{"B.DNG", "a_10.dng", "a_9.dng", "b.dng"}));  // byte order
    Names ten;
    for (int i = 0; i < 10; ++i) ten.push_back(std::to_string(i));
    EXPECT_EQ(cd_DNGProcessor::selectFrames(ten, 1, 3), (Names{"0", "2", "4"}));
    EXPECT_EQ(cd_DNGProcessor::selectFrames(ten, 3, 999999), (Names{"0", "4", "8"}));
    EXPECT_EQ(cd_DNGProcessor::selectFrames(ten, 20, 5), Names{"0"});
    // No input folder at all is refused by the listing rather than taken for the root folder.
    cd_CommandLineOptions none;
    EXPECT_THROW(cd_DNGProcessor p(none), cd_exception);
}

TEST(BatchRun, SkipOneMaxThreeConvertsFrames0_2_4) {
    const std::string clip = scratchFolder("clip"), out = scratchFolder("out");
    writeClip(clip, 10);
    cd_CommandLineOptions o = optionsFor(clip, out);
    o.SkipFrames = 1;
    o.MaxDuration = 3;
    const DriverRun plain = runDriver(o);
    EXPECT_EQ(plain.p->selectedFrames(), (Names{"demo_000000.dng", "demo_000002.dng", "demo_000004.dng"}));
    EXPECT_NE(plain.out.find("\nClip Duration (frames)  3\n"), npos) << plain.out;
    // Rendered, each file is named by its frame's ImageNumber, which is the frame's index.
    const DriverRun rendered = runDriver(o, true);
    ASSERT_EQ(rendered.p->status(), cd_DNGProcessor::ok) << rendered.err;
    EXPECT_EQ(exrFiles(out), (Names{"frame000000.exr", "frame000002.exr", "frame000004.exr"}));
    EXPECT_EQ(readExr(out + "frame000004.exr").imageNumber, 4);
}

TEST(BatchRun, ReportLinesAndLabels) {
    // 15 frames, 3 threads requested: 15 / 10 + 1 = 2 workers. The main process converts frames
    // 0, 2, ..., 14 and the per-file divisor is N = floor(15 / 2 + 0.5) = 8.
    const std::string clip = scratchFolder("clip");
    const Names names = writeClip(clip, 15, 64, 48);
    const double fileBytes = static_cast<double>(fs::file_size(clip + names[0]));
    cd_CommandLineOptions o = optionsFor(clip, scratchFolder("out"));
    o.Threads = 3;
    const DriverRun brief = runDriver(o);
    ASSERT_EQ(brief.p->status(), cd_DNGProcessor::ok) << brief.err;
    EXPECT_EQ(brief.p->workers(), 2);
    EXPECT_EQ(brief.err, "");
    const std::string head = "\nSTATISTICS \nFrame rate (fps)        #\nClip Duration (frames)  15\n"
                             "Clip Duration (seconds) #\nImage size W x H        48 x 40\n"  // the default crop
                             "Threads used            3\n";                              // as requested
    auto lap = [](const char* what) { return std::string("   Duration = # ms for ") + what + " conversion\n"; };
    EXPECT_EQ(masked(brief.out), lap("preparing") + lap("completing") + head);
    const double T = valueOf(brief.out, "Clip Duration (seconds) ");
    EXPECT_NEAR(valueOf(brief.out, "Frame rate (fps)        "), 15 / T, 15 / T * 1e-4);

    // Verbose. Per file: one frame file, 8 bytes of row pointer per stored row, 4 bytes per active
    // photosite; the main process read eight frame files. Nothing is debayered or written.
    o.VerboseMode = true;
    const DriverRun r = runDriver(o);
    EXPECT_EQ(masked(r.out),
              lap("preparing") + "All threads exited successfully\n" + lap("completing") + head +
                  "\nFor main thread: \nBytes Read (MB)                  " + mb(8 * fileBytes) +
                  "\nBytes Written (MB)               0\nI/O rate (MBps)\t\t\t\t  #\nFrame duration (ms)\t\t\t  #\n"
                  "File operations (times per file) \n Input file size (MB)\t\t\t  " + mb(fileBytes) +
                  "\n Get input file size (ms)        #\n Open input file (ms)            #\n"
                  " Read input file (ms)            #\n Close input file (ms)           #\n"
                  " Input file total (ms)           #\n Output bytes processed (MB)     0\n"
                  " Prepare for new file (ms)       #\n Create output file (ms)         #\n"
                  " Process output file (ms)        #\n Close output file (ms)          #\n"
                  " Output file total (ms)          #\nByte loading \n Bytes read in (MB)              " + mb(48 * 8) +
                  "\n Configure reader (ms)           #\n Open reader (ms)                #\n"
                  " Process reader (ms)             #\n Close reader (ms)               #\n"
                  " Reader total (ms)               #\nLinearization \n Bytes Linearized (MB)           " +
                  mb(64 * 48 * 4) + "\n Configure Linearizer (ms)       #\n Open Linearizer (ms)            #\n"
                  " Process Linearizer (ms)         #\n Close Linearizer (ms)\t          #\n"
                  " Linearizer total (ms)           #\nDebayering \n Bytes Debayered (MB)            0\n"
                  " Configure Debayer (ms)          #\n Open Debayer (ms)               #\n"
                  " Process Debayer (ms)            #\n Close Debayer (ms)              #\n"
                  " Debayer total (ms)              #\n");
    const double sum = valueOf(r.out, " Get input file size (ms)        ") + valueOf(r.out, " Open input file (ms)            ") +
                       valueOf(r.out, " Read input file (ms)            ") + valueOf(r.out, " Close input file (ms)           ");
    EXPECT_NEAR(valueOf(r.out, " Input file total (ms)           "), sum, 1e-3 + sum * 1e-4);  // the sum of the four
}

TEST(BatchRun, BenchmarkCountsRunsTimesWorkers) {
    // 25 frames, 8 threads: 3 workers; F = 4 runs x 3 = 12 and N = floor(12 / 3 + 0.5) = 4. The main
    // process loads its frames 0, 3, ..., 24 once each and linearises each of them 4 times.
    const std::string clip = scratchFolder("clip");
    const Names names = writeClip(clip, 25);
    const double fileMB = static_cast<double>(fs::file_size(clip + names[0])) / 1e6;
    cd_CommandLineOptions o = optionsFor(clip, scratchFolder("out"));
    o.BenchmarkRuns = 4;
    o.VerboseMode = true;
    const DriverRun r = runDriver(o);
    ASSERT_EQ(r.p->status(), cd_DNGProcessor::ok) << r.err;
    EXPECT_EQ(r.p->workers(), 3);
    EXPECT_NE(r.out.find("\nClip Duration (frames)  12 (1 Frame x 4 Benchmark Passes)\n"), npos) << r.out;
    EXPECT_NEAR(valueOf(r.out, " Input file size (MB)\t\t\t  "), 9 * fileMB / 4, 1e-6);
    EXPECT_NEAR(valueOf(r.out, " Bytes Linearized (MB)           "), 9 * 4 * 32 * 24 * 4 / 4 / 1e6, 1e-9);
}

TEST(BatchRun, LookSourceIsTheFirstFrameUnlessNamed) {
    const std::string clip = scratchFolder("clip");
    writeClip(clip, 1, 64, 32);         // demo_000000.dng, 64 wide
    writeClip(clip, 2, 48, 32, "z_");   // z_000000.dng, z_000001.dng, 48 wide
    cd_CommandLineOptions o = optionsFor(clip, scratchFolder("out"));
    o.MaxDuration = 1;
    EXPECT_EQ(runDriver(o).p->lookTags().imageWidth, 64u);
    o.LookFilename = clip + "z_000001.dng";
    EXPECT_EQ(runDriver(o).p->lookTags().imageWidth, 48u);
}

TEST(BatchWorkers, FortyFramesEightThreadsRunFiveWorkersEachFrameOnce) {
    const std::string clip = scratchFolder("clip"), out = scratchFolder("out");
    writeClip(clip, 40);
    const DriverRun r = runDriver(optionsFor(clip, out), true);  // Threads 8 by default
    ASSERT_EQ(r.p->status(), cd_DNGProcessor::ok) << r.err;
    EXPECT_EQ(r.p->workers(), 5);
    EXPECT_EQ(std::set<int>(r.p->workerPids().begin(), r.p->workerPids().end()).size(), 5u);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(r.p->frameReports().at(i), 1) << "frame " << i;
        EXPECT_EQ(r.p->frameWorkers().at(i), i % 5) << "frame " << i;
    }
    EXPECT_EQ(exrFiles(out).size(), 40u);
}

TEST(BatchDeathTest, LookSourceWithoutPositiveCameraMatrixStops) {
    // ColorMatrix1 = minus the identity: the camera-to-XYZ matrix sums to -3.
    const std::string clip = scratchFolder("clip");
    const demo::DemoClipLayout layout{32, 24, 1};
    framebuilder::RawFrameDesc f = demo::demoFrameFields(layout, 0);
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
