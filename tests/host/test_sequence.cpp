// Opening clips and delivering frames: paths against in-memory buffers, real frames against LibRaw,
// synthetic multi-frame clips against their stored samples, the black level override, the logged
// failures and the RGBA expansion.
#include <gtest/gtest.h>
#include <libraw/libraw.h>

#include <cmath>
#include <cstring>
#include <filesystem>

#include "cinedng/KSCinemaDNGContext.h"
#include "cinedng/KSCinemaDNGFileSequence.h"
#include "cinedng/KSException.h"
#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_imageLoader.h"
#include "host_test_util.h"

using namespace cinedng;
using namespace hosttest;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

namespace {

const std::string kSeqLog = "### KSCinemaDNGFileSequence::";
const std::string kCtxLog = "### KSCinemaDNGContext::";

std::vector<float> floatsOf(const std::shared_ptr<KSData>& d) {
    std::vector<float> v(d->length() / sizeof(float));
    std::memcpy(v.data(), d->bytes(), v.size() * sizeof(float));
    return v;
}

// The float the lineariser produces for a stored sample with a single black level.
float expectedFloat(double sample, double black, double white) {
    const double factor = static_cast<double>(1.0f / static_cast<float>(white - black));
    return static_cast<float>((sample - black) * factor);
}

}  // namespace

TEST(KSCinemaDNGFileSequence, RealFramesGiveTheSameFloatsFromPathsAndFromMemory) {
    for (const auto& name : usableSamples()) {
        SCOPED_TRACE(name);
        const std::string path = samplePath(name);
        auto fromPath = KSCinemaDNGFileSequence::initWithFilenames({path});
        auto fromMemory = KSCinemaDNGFileSequence::initWithImageData(readAll({path}));
        ASSERT_TRUE(fromPath);
        ASSERT_TRUE(fromMemory);
        ASSERT_TRUE(fromPath->filenames());
        EXPECT_FALSE(fromPath->imageData());
        EXPECT_FALSE(fromMemory->filenames());
        ASSERT_TRUE(fromMemory->imageData());

        auto a = fromPath->rawImageDataForIndex(0);
        auto b = fromMemory->rawImageDataForIndex(0);
        ASSERT_TRUE(a && b);
        const KSSize size = fromPath->rawImageSize();
        EXPECT_EQ(a->length(), static_cast<size_t>(size.width * size.height) * 4);
        ASSERT_EQ(a->length(), b->length());
        EXPECT_EQ(std::memcmp(a->bytes(), b->bytes(), a->length()), 0);
    }
}

// Every active photosite against LibRaw's reading of the stored samples.
TEST(KSCinemaDNGFileSequence, RealFramesMatchLibRawSamples) {
    for (const auto& name : usableSamples()) {
        SCOPED_TRACE(name);
        const std::string path = samplePath(name);
        auto seq = KSCinemaDNGFileSequence::initWithFilenames({path});
        ASSERT_TRUE(seq);
        auto data = seq->rawImageDataForIndex(0);
        ASSERT_TRUE(data);
        const std::vector<float> f = floatsOf(data);
        const cd_DNGTags& t = *seq->context()->dngTags();

        LibRaw raw;
        ASSERT_EQ(raw.open_file(path.c_str()), LIBRAW_SUCCESS);
        ASSERT_EQ(raw.unpack(), LIBRAW_SUCCESS);
        ASSERT_TRUE(raw.imgdata.rawdata.raw_image);
        const unsigned rawWidth = raw.imgdata.sizes.raw_width;
        ASSERT_EQ(rawWidth, t.imageWidth);
        ASSERT_EQ(raw.imgdata.sizes.raw_height, t.imageHeight);

        const double black = t.blackLevel[0], white = t.whiteLevel[0];
        size_t mismatches = 0;
        for (int r = 0; r < t.inputRows; ++r) {
            for (int c = 0; c < t.inputCols; ++c) {
                const double s =
                    raw.imgdata.rawdata.raw_image[static_cast<size_t>(r + t.activeTop) * rawWidth + c + t.activeLeft];
                const float got = f[static_cast<size_t>(r) * t.inputCols + c];
                if (std::fabs(got - expectedFloat(s, black, white)) > 1e-6f) ++mismatches;
            }
        }
        EXPECT_EQ(mismatches, 0u);
        // Beyond the converter's rows the frame buffer stays zero.
        const size_t written = static_cast<size_t>(t.inputRows) * t.inputCols;
        bool tailZero = true;
        for (size_t i = written; i < f.size(); ++i) tailZero = tailZero && f[i] == 0.0f;
        EXPECT_TRUE(tailZero);
    }
}

struct ClipCase {
    const char* label;
    fb::ByteOrder order;
    int bits;
    uint32_t rowsPerStrip;
    bool subIFD;
    bool activeArea;
};

class SyntheticClip : public ::testing::TestWithParam<ClipCase> {};

TEST_P(SyntheticClip, EveryFrameFromPathsEqualsMemoryAndTheStoredSamples) {
    const ClipCase& cc = GetParam();
    fb::RawFrameSpec s = colourFrameSpec();
    s.byteOrder = cc.order;
    s.bits = cc.bits;
    s.rowsPerStrip = cc.rowsPerStrip;
    s.useSubIFD = cc.subIFD;
    const uint32_t white = (1u << cc.bits) - 1u;
    s.blackLevel = {64};
    s.whiteLevel = {white};
    uint32_t top = 0, left = 0, rows = s.height, cols = s.width;
    if (cc.activeArea) {
        top = 2;
        left = 6;
        s.activeArea = {top, left, s.height - 1, s.width - 2};
        rows = s.height - 1 - top;
        cols = s.width - 2 - left;
    }
    const int frames = 3;
    const auto paths = writeClip(tempFolder(), s, frames);
    auto fromPaths = KSCinemaDNGFileSequence::initWithFilenames(paths);
    auto fromMemory = KSCinemaDNGFileSequence::initWithImageData(readAll(paths));
    ASSERT_TRUE(fromPaths);
    ASSERT_TRUE(fromMemory);
    EXPECT_EQ(fromPaths->rawImageSize().width, s.width);
    EXPECT_EQ(fromPaths->rawImageSize().height, s.height);
    EXPECT_EQ(fromPaths->context()->conParams()->duration, frames);

    for (int i = 0; i < frames; ++i) {
        SCOPED_TRACE(i);
        auto a = fromPaths->rawImageDataForIndex(i);
        auto b = fromMemory->rawImageDataForIndex(i);
        ASSERT_TRUE(a && b);
        ASSERT_EQ(a->length(), b->length());
        EXPECT_EQ(std::memcmp(a->bytes(), b->bytes(), a->length()), 0);

        const std::vector<float> f = floatsOf(a);
        const std::vector<uint32_t> raster = clipRaster(s, i);
        size_t mismatches = 0;
        for (uint32_t r = 0; r < rows; ++r)
            for (uint32_t c = 0; c < cols; ++c)
                if (std::fabs(f[r * cols + c] - expectedFloat(raster[(r + top) * s.width + c + left], 64, white)) >
                    1e-6f)
                    ++mismatches;
        EXPECT_EQ(mismatches, 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, SyntheticClip,
                         ::testing::Values(ClipCase{"II12OneStrip", fb::ByteOrder::II, 12, 0, false, false},
                                           ClipCase{"MM16StripsSubIFD", fb::ByteOrder::MM, 16, 5, true, true},
                                           ClipCase{"II14Strips", fb::ByteOrder::II, 14, 16, false, true},
                                           ClipCase{"MM10OneStrip", fb::ByteOrder::MM, 10, 0, false, false}),
                         [](const auto& info) { return std::string(info.param.label); });

TEST(KSCinemaDNGFileSequence, WriteIntoCallerBufferAndRefuseBadFrames) {
    fb::RawFrameSpec s = colourFrameSpec();
    const auto paths = writeClip(tempFolder(), s, 2);
    auto seq = KSCinemaDNGFileSequence::initWithFilenames(paths);
    ASSERT_TRUE(seq);
    std::vector<float> buf(s.width * s.height, -7.0f);
    seq->writeRawImageDataForIndex(1, buf.data());
    const auto expected = floatsOf(seq->rawImageDataForIndex(1));
    EXPECT_EQ(std::memcmp(buf.data(), expected.data(), buf.size() * 4), 0);

    // Frame numbers outside the clip: logged with the loader's text, the buffer left as it was.
    std::vector<float> untouched(s.width * s.height, -7.0f);
    for (int bad : {-1, 2}) {
        CaptureStderr();
        seq->writeRawImageDataForIndex(bad, untouched.data());
        EXPECT_EQ(GetCapturedStderr(), kSeqLog + "writeRawImageDataForIndex:intoBuffer: ### an exception occured: \n\t"
                                                 "cd_imageLoader - imageNumber is not in a legal range\n");
    }
    EXPECT_EQ(untouched[0], -7.0f);

    // A frame file that disappeared after opening: the loader's status is logged.
    std::filesystem::remove(paths[1]);
    CaptureStderr();
    seq->writeRawImageDataForIndex(1, untouched.data());
    EXPECT_EQ(GetCapturedStderr(), "ERROR: 1005\n");

    // No buffer, and a buffer known to be too small.
    CaptureStderr();
    seq->writeRawImageDataForIndex(0, nullptr);
    EXPECT_NE(GetCapturedStderr().find("### an exception occured: \n\tcd_ClipConverter - "), std::string::npos);
    CaptureStderr();
    seq->writeRawImageDataForIndex(0, untouched.data(), 10);
    EXPECT_EQ(GetCapturedStderr(), kSeqLog + "writeRawImageDataForIndex:intoBuffer: ### an exception occured: \n\t"
                                             "KSCinemaDNGFileSequence - the buffer is smaller than the frame\n");
    EXPECT_EQ(untouched[0], -7.0f);
}

TEST(KSCinemaDNGFileSequence, SetBlackLevelTruncatesAndAppliesToTheNextFrame) {
    fb::RawFrameSpec s = colourFrameSpec();
    s.bits = 12;
    s.blackLevel = {30};
    s.whiteLevel = {4095};
    const auto paths = writeClip(tempFolder(), s, 1);
    auto seq = KSCinemaDNGFileSequence::initWithFilenames(paths);
    ASSERT_TRUE(seq);
    EXPECT_FLOAT_EQ(seq->blackLevel(), 30.0f / 4095.0f);
    auto before = seq->metadata();
    EXPECT_EQ(seq->metadata(), before);  // unchanged: the same object

    seq->setBlackLevel(0.0625f);  // 4095 * 0.0625 = 255.9375
    EXPECT_EQ(seq->context()->dngTags()->blackLevel[0], 255.0f);
    EXPECT_FLOAT_EQ(seq->blackLevel(), 255.0f / 4095.0f);

    auto after = seq->metadata();
    EXPECT_NE(after, before);
    EXPECT_EQ(after->objectForKey("blackLevel")->floatVector(), std::vector<float>{255.0f});
    EXPECT_EQ(before->objectForKey("blackLevel")->floatVector(), std::vector<float>{30.0f});
    EXPECT_EQ(seq->metadata(), after);

    const std::vector<float> f = floatsOf(seq->rawImageDataForIndex(0));
    const std::vector<uint32_t> raster = clipRaster(s, 0);
    for (size_t i : {size_t(0), size_t(1), size_t(100), raster.size() - 1})
        EXPECT_NEAR(f[i], expectedFloat(raster[i], 255, 4095), 1e-6) << i;

    // A level that leaves no output range is refused by the converter: logged and swallowed.
    CaptureStderr();
    seq->setBlackLevel(1.0f);
    EXPECT_EQ(GetCapturedStderr(), kCtxLog + "setBlackLevel: ### an exception occured: \n\t"
                                             "cd_getLinearRaw - output range must be > 0\n");
}

TEST(KSCinemaDNGFileSequence, FailuresReturnNothingAndLogTheLines) {
    const std::string folder = tempFolder();
    // A missing file: the loader cannot size the clip.
    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::initWithFilenames({folder + "/missing.dng"}), nullptr);
    EXPECT_EQ(GetCapturedStderr(), kCtxLog + "initWithFilenames: ### an exception occured: \n\t"
                                             "cd_imageLoader - the file size of the clip's largest file is in an "
                                             "illegal range <= 0\n");

    // Tags that cannot be read: NewSubFileType with two values is a status, not an exception.
    fb::RawFrameSpec s = colourFrameSpec();
    int rawIfd = 0;
    fb::TiffBuilder b = fb::makeRawFrameBuilder(s, {}, &rawIfd);
    b.removeTag(rawIfd, 254);
    b.addLongs(rawIfd, 254, {0, 0});
    const std::string badTags = folder + "/badtags.dng";
    b.writeFile(badTags);
    const std::string tagsLine = "\n### KestroveCinemaDNGDecoder - An error occured while reading the DNG tags.\n";
    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::initWithFilenames({badTags}), nullptr);
    std::string log = GetCapturedStderr();
    EXPECT_GE(log.size(), tagsLine.size());
    EXPECT_EQ(log.substr(log.size() - tagsLine.size()), tagsLine);
    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::initWithImageData(readAll({badTags})), nullptr);
    log = GetCapturedStderr();
    EXPECT_EQ(log.substr(log.size() - tagsLine.size()), tagsLine);

    // Colour decoding that raises: the real 32x32 frame has no colour matrix.
    const std::string noColour = samplePath("oiio_valid-32x32.dng");
    const std::string colourLine = "### an exception occured: \n\tcd_DecodeDNGTags - colorPlanes must be 3\n";
    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::initWithFilenames({noColour}), nullptr);
    EXPECT_EQ(GetCapturedStderr(), kCtxLog + "initWithFilenames: " + colourLine);
    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::initWithImageData(readAll({noColour})), nullptr);
    EXPECT_EQ(GetCapturedStderr(), kCtxLog + "initWithImageData: " + colourLine);

    // Nothing to open.
    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::initWithFilenames({}), nullptr);
    EXPECT_EQ(GetCapturedStderr(), kCtxLog + "initWithFilenames: ### an exception occured: \n\t"
                                             "KSCinemaDNGContext - no frame paths given\n");
    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::initWithImageData({}), nullptr);
    EXPECT_EQ(GetCapturedStderr(), kCtxLog + "initWithImageData: ### an exception occured: \n\t"
                                             "KSCinemaDNGContext - no frame buffers given\n");
    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::initWithImageData({nullptr}), nullptr);
    EXPECT_NE(GetCapturedStderr().find("KSCinemaDNGContext - a frame buffer may not be nil"), std::string::npos);

    // Truncated and oversized real frames fail cleanly too.
    for (const char* name : {"oiio_truncated.dng", "oiio_bomb-32000x32000.dng", "filetype_Leica-M10.dng"}) {
        CaptureStderr();
        EXPECT_EQ(KSCinemaDNGFileSequence::initWithImageData(readAll({samplePath(name)})), nullptr) << name;
        EXPECT_NE(GetCapturedStderr().find("### KSCinemaDNGContext::initWithImageData: ###"), std::string::npos);
    }
}

TEST(KSCinemaDNGContext, PlainInitIsRefused) {
    try {
        KSCinemaDNGContext::init();
        FAIL() << "init returned";
    } catch (const KSException& e) {
        EXPECT_EQ(e.name(), "KSCinemaDNGContextBadInit");
        EXPECT_EQ(e.reason(), "Init the context with filenames!");
    }
}

TEST(KSCinemaDNGContext, OwnsConfiguredStages) {
    fb::RawFrameSpec s = colourFrameSpec();
    const std::string folder = tempFolder();
    const auto paths = writeClip(folder, s, 25);
    auto ctx = KSCinemaDNGContext::initWithFilenames(paths);
    ASSERT_TRUE(ctx);
    ASSERT_TRUE(ctx->converter() && ctx->loader() && ctx->locateRows() && ctx->linearizer() && ctx->dngTags());
    // The loader looks for every frame in the first frame's folder under its own name.
    EXPECT_EQ(ctx->loader()->folder(), folder + "/");
    ASSERT_EQ(ctx->loader()->fileNames().size(), 25u);
    EXPECT_EQ(ctx->loader()->fileNames()[24], "clip_024.dng");
    EXPECT_EQ(ctx->conParams()->loader, ctx->loader());
    EXPECT_EQ(ctx->conParams()->linearizer, ctx->linearizer());
    EXPECT_EQ(ctx->conParams()->duration, 25);
    EXPECT_EQ(ctx->conParams()->threads, 3);  // 8 lowered to 25 / 10 + 1
    EXPECT_EQ(ctx->converter()->inputCols, static_cast<int>(s.width));
}

TEST(KSCinemaDNGFileSequence, RgbBufferPutsEachSampleInItsFixedChannel) {
    const float raw[4] = {1.5f, 2.5f, 3.5f, 4.5f};
    float* rgba = KSCinemaDNGFileSequence::rgbBufferFromRawBuffer(raw, KSSize{2, 2});
    ASSERT_TRUE(rgba);
    const float expected[16] = {0, 1.5f, 0, 1, 2.5f, 0, 0, 1, 0, 0, 3.5f, 1, 0, 4.5f, 0, 1};
    EXPECT_EQ(std::memcmp(rgba, expected, sizeof expected), 0);
    KSFreeBuffer(rgba);

    // 3 x 3: the layout repeats every two rows and columns.
    const float r9[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    rgba = KSCinemaDNGFileSequence::rgbBufferFromRawBuffer(r9, KSSize{3, 3});
    ASSERT_TRUE(rgba);
    const float e9[36] = {0, 1, 0, 1, 2, 0, 0, 1, 0, 3, 0, 1,  //
                          0, 0, 4, 1, 0, 5, 0, 1, 0, 0, 6, 1,  //
                          0, 7, 0, 1, 8, 0, 0, 1, 0, 9, 0, 1};
    EXPECT_EQ(std::memcmp(rgba, e9, sizeof e9), 0);
    KSFreeBuffer(rgba);

    CaptureStderr();
    EXPECT_EQ(KSCinemaDNGFileSequence::rgbBufferFromRawBuffer(nullptr, KSSize{2, 2}), nullptr);
    EXPECT_EQ(KSCinemaDNGFileSequence::rgbBufferFromRawBuffer(raw, KSSize{0, 2}), nullptr);
    const std::string log = GetCapturedStderr();
    EXPECT_NE(log.find("### KSCinemaDNGFileSequence::rgbBufferFromRawBuffer:ofSize: ### an exception occured: \n\t"
                       "KSCinemaDNGFileSequence - the raw buffer may not be nil\n"),
              std::string::npos);
    EXPECT_NE(log.find("KSCinemaDNGFileSequence - the buffer size is invalid\n"), std::string::npos);
}
