#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "cinedng/KSData.h"
#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_locateRows.h"
#include "framebuilder/DngFrameBuilder.h"
#include "raw_test_util.h"

using namespace cinedng;
namespace fb = cinedng::framebuilder;
namespace fs = std::filesystem;

namespace {

std::string failureOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const cd_exception& e) {
        return e.what();
    }
    return "(no failure)";
}

// A tag record with just the values the converter reads.
cd_DNGTags geometry(int inRows, int inCols, int outRows, int outCols) {
    cd_DNGTags t;
    t.bitsPerSample = 12;
    t.byteOrder = 0x4949;
    t.inputRows = inRows;
    t.inputCols = inCols;
    t.outputRows = outRows;
    t.outputCols = outCols;
    t.blackLevelRepeatDim = {1, 1};
    t.blackLevel = {0};
    t.whiteLevel = {4095};
    return t;
}

// A clip of small built frames in a folder of its own, with the stages wired up for file input.
struct Clip {
    fs::path folder;
    std::vector<std::string> names;
    cd_DNGTags tags;
    cd_imageLoader loader;
    cd_locateRows locator;
    cd_getLinearRaw linearizer;
    cd_ClipConverter converter;
    MetaConvertClip meta;
    std::vector<float> image;

    Clip(const std::string& name, int frames, int threads, fb::RawFrameSpec desc = {}) {
        folder = fs::path(CINEDNG_BINARY_DIR) / "raw_test_clips" / name;
        fs::remove_all(folder);
        fs::create_directories(folder);
        for (int i = 0; i < frames; ++i) {
            desc.imageNumber = static_cast<uint32_t>(i);
            desc.make = std::string(1 + 100 * i, 'm');  // every frame a different size
            char buf[32];
            std::snprintf(buf, sizeof buf, "frame_%03d.dng", i);
            names.push_back(buf);
            fb::writeRawFrame((folder / buf).string(), desc, fb::makeTestRaster(desc.width, desc.height, desc.bits, i));
        }
        tags = rawtest::tagsOf(rawtest::readFile((folder / names[0]).string()));
        loader.configure(folder.string() + "/", names);
        locator.configure(tags);
        meta.loader = &loader;
        meta.rowLocator = &locator;
        meta.linearizer = &linearizer;
        meta.duration = frames;
        meta.threads = threads;
        converter.configure(meta, tags, false);
        image.assign(static_cast<size_t>(tags.inputRows) * tags.inputCols, 0.0f);
        converter.setRawImagePixels(image.data());
    }
    uint64_t sizeOf(int i) const { return fs::file_size(folder / names[i]); }
};

}  // namespace

TEST(ClipConverterConfigure, LowersTheThreadCountInTheCallersRecordAndRefusesBadSizes) {
    cd_getLinearRaw lin;
    cd_ClipConverter conv;
    MetaConvertClip meta;
    meta.linearizer = &lin;
    auto run = [&](cd_DNGTags t, int duration, int threads) {
        meta.duration = duration;
        meta.threads = threads;
        return failureOf([&] { conv.configure(meta, t, false); });
    };
    const auto ok = geometry(8, 8, 8, 8);
    EXPECT_EQ(run(ok, 25, 8), "(no failure)");
    EXPECT_EQ(meta.threads, 3);  // 25 / 10 + 1, written back
    EXPECT_EQ(conv.threads, 3);
    run(ok, 5, 8);
    EXPECT_EQ(meta.threads, 1);
    run(ok, 100, 4);
    EXPECT_EQ(meta.threads, 4);

    EXPECT_EQ(run(ok, 0, 8), "cd_ClipConverter - clip duration may not be < 0");
    EXPECT_EQ(run(geometry(0, 8, 8, 8), 10, 1), "cd_ClipConverter - input rows invalid");
    EXPECT_EQ(run(geometry(8, 0, 8, 8), 10, 1), "cd_ClipConverter - input cols invalid");
    EXPECT_EQ(run(geometry(8, 8, 0, 8), 10, 1), "cd_ClipConverter - output rows invalid");
    EXPECT_EQ(run(geometry(8, 8, 8, 0), 10, 1), "cd_ClipConverter - output cols invalid");
    EXPECT_EQ(run(ok, 10, -1), "cd_ClipConverter - number of threads invalid");
    EXPECT_EQ(run(geometry(10000, 5000, 8, 8), 10, 1), "cd_ClipConverter - number of raw pixels invalid");
    EXPECT_EQ(run(geometry(10000, 4999, 8, 8), 10, 1), "(no failure)");
    EXPECT_EQ(run(geometry(8, 40000, 8, 34000), 10, 1), "cd_ClipConverter - number of RGB pixels invalid");
    EXPECT_EQ(run(geometry(8, 40000, 8, 33333), 10, 1), "(no failure)");
    auto noBlack = ok;
    noBlack.blackLevel.clear();  // the lineariser's own refusal comes through
    EXPECT_EQ(run(noBlack, 10, 1), "cd_getLinearRaw - no black levels present");
}

TEST(ClipConverterHandles, CompleteBeforeReturningAndRefuseNullHandles) {
    Clip clip("handles", 1, 1);
    cd_ClipConverter& conv = clip.converter;
    ASSERT_EQ(clip.loader.getImageObject(0), 0);
    DynamicMetadata meta;
    cd_ScanLineAccess access;
    clip.locator.locateRows(reinterpret_cast<const char*>(clip.loader.buffer()), clip.loader.imageSize(), access, meta);

    void* h = conv.allocateConversionHandle();
    EXPECT_EQ(conv.convertImageObjectAsync(h, 7, access), 0);
    int status = -5;
    EXPECT_TRUE(conv.isConversionComplete(h, &status));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(conv.isConversionComplete(h, nullptr));
    EXPECT_EQ(static_cast<cd_conversionHandle*>(h)->frame, 7);
    EXPECT_EQ(conv.finishConversion(h), 0);

    EXPECT_EQ(failureOf([&] { conv.convertImageObjectAsync(nullptr, 0, access); }),
              "cd_ClipConverter - conversion handle may not be null");
    EXPECT_EQ(failureOf([&] { conv.isConversionComplete(nullptr, &status); }),
              "cd_ClipConverter - the conversion handle may not be null");
    EXPECT_EQ(failureOf([&] { conv.finishConversion(nullptr); }),
              "cd_ClipConverter - conversion handle may not be null");
    conv.setRawImagePixels(nullptr);
    EXPECT_EQ(failureOf([&] { conv.convertImageObjectAsync(h, 0, access); }),
              "cd_ClipConverter - the raw image pixel pointer may not be null");
    conv.releaseConversionHandle(h);
}

TEST(ClipConverter, BenchmarkRunsRepeatTheLinearisation) {
    for (int runs : {0, 1, 3}) {
        fb::RawFrameSpec desc;
        desc.width = 20;
        desc.height = 6;
        Clip clip("runs" + std::to_string(runs), 1, 1, desc);
        clip.meta.benchmarkRuns = runs;
        clip.converter.configure(clip.meta, clip.tags, false);
        const uint64_t before = clip.linearizer.stats().bytesProcessed;
        ASSERT_EQ(clip.converter.convertImage(0), 0);
        EXPECT_EQ(clip.linearizer.stats().bytesProcessed - before, uint64_t(std::max(runs, 1)) * 20 * 6 * 4) << runs;
    }
}

TEST(ClipConverter, ConvertsFramesFromFilesAndFromHostBuffers) {
    fb::RawFrameSpec desc;
    desc.width = 18;
    desc.height = 7;
    desc.bits = 14;
    desc.dateTimeOriginal = "2020:01:02 03:04:05";
    Clip clip("sources", 3, 1, desc);
    ASSERT_EQ(clip.converter.convertImage(2), 0);
    const auto raster = fb::makeTestRaster(18, 7, 14, 2);
    const double factor = static_cast<double>(1.0f / 16383.0f);
    for (size_t i = 0; i < raster.size(); ++i) ASSERT_EQ(clip.image[i], static_cast<float>(raster[i] * factor)) << i;
    EXPECT_EQ(clip.converter.dynamicMetadata().imageNumber, 2u);
    EXPECT_EQ(clip.converter.dynamicMetadata().dateTimeOriginal, "2020:01:02 03:04:05");

    std::vector<std::shared_ptr<KSData>> buffers;
    for (int i = 0; i < 3; ++i) {
        const auto bytes = rawtest::readFile((clip.folder / clip.names[i]).string());
        buffers.push_back(KSData::dataWithBytes(bytes.data(), bytes.size()));
    }
    clip.loader.setImageBuffersForSequence(buffers);
    std::fill(clip.image.begin(), clip.image.end(), 0.0f);
    ASSERT_EQ(clip.converter.convertImageFromImageDataWithIndex(2), 0);
    for (size_t i = 0; i < raster.size(); ++i) ASSERT_EQ(clip.image[i], static_cast<float>(raster[i] * factor)) << i;

    // A frame file that has gone missing is the loader's status, not a failure.
    fs::remove(clip.folder / clip.names[1]);
    EXPECT_EQ(clip.converter.convertImage(1), 1005);
}

// A built frame with a linearisation table, a 2 x 2 black pattern and per-row and per-column
// deltas: the values worked out from the rules.
TEST(ClipConverter, TableBlackPatternAndDeltasFromAFrame) {
    fb::RawFrameSpec desc;
    desc.width = 6;
    desc.height = 4;
    desc.bits = 10;
    desc.linearizationTable = {0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 1000};  // 12 entries
    desc.blackLevelRepeatDim = {2, 2};
    desc.blackLevel = {4, 8, 12, 16};
    desc.whiteLevel = {1000};
    int raw = 0;
    std::vector<uint32_t> raster(24);
    for (int i = 0; i < 24; ++i) raster[i] = static_cast<uint32_t>(i % 13);  // 12 -> last entry
    auto b = fb::makeRawFrameBuilder(desc, raster, &raw);
    b.addRationals(raw, 50715, {{1, 2}, {0, 1}, {0xFFFFFFFFu, 1}, {0, 1}, {0, 1}, {3, 1}}, fb::SRATIONAL);
    b.addRationals(raw, 50716, {{0, 1}, {2, 1}, {0, 1}, {1, 4}}, fb::SRATIONAL);
    const auto frame = b.build();
    const auto tags = rawtest::tagsOf(frame);
    ASSERT_EQ(tags.blackLevelH.size(), 6u);
    ASSERT_EQ(tags.blackLevelV.size(), 4u);

    cd_imageLoader loader;
    cd_locateRows locator;
    cd_getLinearRaw lin;
    cd_ClipConverter conv;
    loader.setImageBuffersForSequence({KSData::dataWithBytes(frame.data(), frame.size())});
    locator.configure(const_cast<cd_DNGTags&>(tags));
    MetaConvertClip meta;
    meta.loader = &loader;
    meta.rowLocator = &locator;
    meta.linearizer = &lin;
    meta.duration = 1;
    meta.threads = 1;
    conv.configure(meta, const_cast<cd_DNGTags&>(tags), false);
    std::vector<float> image(24);
    conv.setRawImagePixels(image.data());
    ASSERT_EQ(conv.convertImageFromImageDataWithIndex(0), 0);

    // Range: 1000 - (4 + -1 + 0) = 997. Row black is the per-row delta (the list has 4 values, so
    // there is no single base black).
    const float dh[6] = {0.5f, 0, -1, 0, 0, 3};
    const float dv[4] = {0, 2, 0, 0.25f};
    const float pat[4] = {4, 8, 12, 16};
    const double factor = static_cast<double>(1.0f / 997.0f);
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 6; ++c) {
            const uint32_t s = raster[r * 6 + c];
            const double t = s < 12 ? desc.linearizationTable[s] : 1000;
            double v = t - (static_cast<double>(dv[r]) + 0.0);
            v -= pat[(r % 2) * 2 + (c % 2)];
            v -= dh[c];
            EXPECT_EQ(image[r * 6 + c], static_cast<float>(v * factor)) << r << "," << c;
        }
    }
    // One hand-worked value: row 1, col 5: sample 11 -> 1000; 1000 - 2 - 16 - 3 = 979.
    EXPECT_FLOAT_EQ(image[1 * 6 + 5], 979.0f / 997.0f);
}

// 25 frames with Threads 8: three worker processes, worker w converting frames w, w + 3, w + 6, ...
TEST(ClipConverterClip, WorkerProcessesInterleaveTheFrames) {
    fb::RawFrameSpec desc;
    desc.width = 16;
    desc.height = 4;
    Clip clip("interleave", 25, 8, desc);
    ASSERT_EQ(clip.meta.threads, 3);

    // The parent is worker 0: its loader reads exactly frames 0, 3, ..., 24.
    testing::internal::CaptureStdout();
    clip.converter.verbose = true;
    EXPECT_EQ(clip.converter.convertClip(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "All threads exited successfully\n");
    uint64_t expected = 0;
    for (int i = 0; i < 25; i += 3) expected += clip.sizeOf(i);
    EXPECT_EQ(clip.loader.stats().bytesProcessed, expected);
    // Every worker has been waited for.
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);

    // Whichever frame is missing, the worker that reports it is frame mod 3, and only that one.
    clip.converter.verbose = false;
    for (int k = 0; k < 25; ++k) {
        const fs::path f = clip.folder / clip.names[k];
        const fs::path away = clip.folder / "away.tmp";
        fs::rename(f, away);
        testing::internal::CaptureStderr();
        const int status = clip.converter.convertClip();
        const std::string err = testing::internal::GetCapturedStderr();
        fs::rename(away, f);
        EXPECT_EQ(err, "myThreadID = " + std::to_string(k % 3) + " Error =  1005\n") << "frame " << k;
        EXPECT_EQ(status, k % 3 == 0 ? 1005 : 0) << "frame " << k;
    }
}
