#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <filesystem>
#include <memory>

#include "raw_test_util.h"

using namespace cinedng;
using rawtest::failureOf;
using Desc = cinedng::framebuilder::RawFrameDesc;
namespace fb = cinedng::framebuilder;
namespace fs = std::filesystem;

namespace {

// A clip of built frames in a folder of its own (frame i: raster salt i, ImageNumber i, a size of
// its own), with the pipeline reading it from files.
struct Clip {
    fs::path folder;
    std::vector<std::string> names;
    std::unique_ptr<rawtest::Pipeline> p;

    Clip(const std::string& name, int frames, int threads, Desc s, int benchmarkRuns = 0)
        : folder(fs::path(CINEDNG_BINARY_DIR) / "raw_test_clips" / name) {
        fs::remove_all(folder);
        fs::create_directories(folder);
        for (int i = 0; i < frames; ++i) {
            s.imageNumber = static_cast<uint32_t>(i);
            s.make = std::string(1 + 100 * i, 'm');
            names.push_back("frame_" + std::to_string(100 + i) + ".dng");
            fb::writeRawFrame(file(i), s, fb::makeTestRaster(s.width, s.height, s.bits, i));
        }
        p = std::make_unique<rawtest::Pipeline>(rawtest::readFile(file(0)), frames, threads, benchmarkRuns);
        p->loader.configure(folder.string() + "/", names);
    }
    std::string file(int i) const { return (folder / names[i]).string(); }
};

}  // namespace

TEST(ClipConverterConfigure, LowersTheThreadCountInTheCallersRecordAndRefusesBadSizes) {
    cd_getLinearRaw lin;
    cd_ClipConverter conv;
    MetaConvertClip meta{nullptr, nullptr, &lin};
    auto run = [&](int duration, int threads, int inRows, int inCols, int outCols) {
        cd_DNGTags t;
        t.bitsPerSample = 12, t.inputRows = t.outputRows = inRows, t.inputCols = inCols, t.outputCols = outCols;
        t.blackLevelRepeatDim = {1, 1}, t.blackLevel = {0}, t.whiteLevel = {4095};
        meta.duration = duration, meta.threads = threads;
        return failureOf([&] { conv.configure(meta, t, false); });
    };
    EXPECT_EQ(run(25, 8, 8, 8, 8), "(no failure)");
    EXPECT_EQ(meta.threads, 3);  // 25 / 10 + 1, written back into the caller's record
    run(5, 8, 8, 8, 8);
    EXPECT_EQ(meta.threads, 1);
    EXPECT_EQ(run(0, 8, 8, 8, 8), "cd_ClipConverter - clip duration may not be < 0");
    EXPECT_EQ(run(10, -1, 8, 8, 8), "cd_ClipConverter - number of threads invalid");
    EXPECT_EQ(run(10, 1, 10000, 5000, 8), "cd_ClipConverter - number of raw pixels invalid");
    EXPECT_EQ(run(10, 1, 8, 40000, 34000), "cd_ClipConverter - number of RGB pixels invalid");
    EXPECT_EQ(run(10, 1, 10000, 4999, 33333), "(no failure)");
}

TEST(ClipConverter, HandlesBenchmarkRunsAndMissingFrames) {
    for (int runs : {0, 1, 3}) {  // 0 and 1 both linearise each frame once
        Clip clip("runs" + std::to_string(runs), 2, 1, Desc{.width = 20, .height = 6}, runs);
        ASSERT_EQ(clip.p->converter.convertImage(1), 0);
        EXPECT_EQ(clip.p->linearizer.stats().bytesProcessed, uint64_t(std::max(runs, 1)) * 20 * 6 * 4) << runs;
        fs::remove(clip.file(0));
        EXPECT_EQ(clip.p->converter.convertImage(0), 1005);  // the loader's status, not a failure
    }
    Clip clip("handles", 1, 1, Desc{.width = 16, .height = 4});
    cd_ClipConverter& conv = clip.p->converter;
    ASSERT_EQ(conv.convertImage(0), 0);  // leaves the frame located in the converter's row table
    void* h = conv.allocateConversionHandle();
    EXPECT_EQ(conv.convertImageObjectAsync(h, 7, conv.scanLineAccess()), 0);
    int status = -5;
    EXPECT_TRUE(conv.isConversionComplete(h, &status) && status == 0 && conv.finishConversion(h) == 0);
    EXPECT_EQ(failureOf([&] { conv.finishConversion(nullptr); }), "cd_ClipConverter - conversion handle may not be null");
    EXPECT_EQ(failureOf([&] { conv.isConversionComplete(nullptr, &status); }), "cd_ClipConverter - the conversion handle may not be null");
    conv.setRawImagePixels(nullptr);
    EXPECT_EQ(failureOf([&] { conv.convertImageObjectAsync(h, 0, conv.scanLineAccess()); }),
              "cd_ClipConverter - the raw image pixel pointer may not be null");
    conv.releaseConversionHandle(h);
}

// A frame with a linearisation table, a 2 x 2 black pattern and per-row and per-column deltas.
TEST(ClipConverter, TableBlackPatternAndDeltasAsWorkedOutByHand) {
    const Desc s{.width = 6, .height = 4, .bits = 10, .blackLevelRepeatDim = {2, 2}, .blackLevel = {4, 8, 12, 16},
                 .whiteLevel = {1000}, .linearizationTable = {0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 1000},
                 .blackLevelDeltaH = {0.5, 0, -1, 0, 0, 3}, .blackLevelDeltaV = {0, 2, 0, 0.25}};
    std::vector<uint32_t> raster;
    for (uint32_t i = 0; i < 24; ++i) raster.push_back(i % 13);
    const auto frame = fb::buildRawFrame(s, raster);
    rawtest::Pipeline p(frame, 1, 1);
    ASSERT_EQ(p.convertHostFrame(frame), 0);
    // Range 1000 - (4 - 1 + 0) = 997. With four black levels there is no single base black: the
    // row's black is its delta, and the pattern entry and column delta come off each site.
    // Row 1: samples 6..11 map to 24..40, 1000; black 2 + pattern (12, 16) + column delta.
    const float row1[6] = {24 - 2 - 12 - 0.5f, 28 - 2 - 16, 32 - 2 - 12 + 1, 36 - 2 - 16, 40 - 2 - 12, 1000 - 2 - 16 - 3};
    for (int c = 0; c < 6; ++c) EXPECT_FLOAT_EQ(p.image[6 + c], row1[c] / 997.0f) << c;
    EXPECT_FLOAT_EQ(p.image[0], -4.5f / 997.0f);    // row 0: sample 0 -> 0 - 4 - 0.5: below black, not clipped
    EXPECT_FLOAT_EQ(p.image[12], 995.5f / 997.0f);  // row 2: sample 12 is past the table -> 1000 - 4 - 0.5
    EXPECT_FLOAT_EQ(p.image[18], 7.25f / 997.0f);   // row 3: sample 5 -> 20 - 0.25 - 12 - 0.5
}

// 25 frames with Threads 8: three worker processes, worker w converting frames w, w + 3, w + 6, ...
TEST(ClipConverterClip, WorkerProcessesInterleaveTheFrames) {
    Clip clip("interleave", 25, 8, Desc{.width = 16, .height = 4});
    ASSERT_EQ(clip.p->meta.threads, 3);
    cd_ClipConverter& conv = clip.p->converter;
    testing::internal::CaptureStdout();
    conv.verbose = true;
    EXPECT_EQ(conv.convertClip(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "All threads exited successfully\n");
    uint64_t expected = 0;  // the parent is worker 0: its loader has read exactly frames 0, 3, ..., 24
    for (int i = 0; i < 25; i += 3) expected += fs::file_size(clip.file(i));
    EXPECT_EQ(clip.p->loader.stats().bytesProcessed, expected);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // every worker has been waited for
    EXPECT_EQ(errno, ECHILD);

    // Whichever frame is missing, the worker that reports it is frame mod 3, and only that one.
    conv.verbose = false;
    for (int k = 0; k < 25; ++k) {
        fs::rename(clip.file(k), clip.folder / "away");
        testing::internal::CaptureStderr();
        const int status = conv.convertClip();
        const std::string err = testing::internal::GetCapturedStderr();
        fs::rename(clip.folder / "away", clip.file(k));
        EXPECT_EQ(err, "myThreadID = " + std::to_string(k % 3) + " Error =  1005\n") << "frame " << k;
        EXPECT_EQ(status, k % 3 == 0 ? 1005 : 0) << "frame " << k;
    }
}
