// Opening clips and delivering frames: paths against in-memory buffers, real frames against LibRaw,
// synthetic multi-frame clips against their stored samples, the black level override, the logged
// failures, the RGBA expansion, and the read_clip example run as a host would run it.
#include <gtest/gtest.h>
#include <libraw/libraw.h>

#include <functional>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "cinedng/KSCinemaDNGContext.h"
#include "cinedng/KSException.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_imageLoader.h"
#include "host_test_util.h"

using namespace cinedng;
using namespace hosttest;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

namespace {

const std::string kCaught = " ### an exception occured: \n\t";
const std::string kWriteLog = "### KSCinemaDNGFileSequence::writeRawImageDataForIndex:intoBuffer:" + kCaught;

// Photosites of frame i that differ from the stored samples (a full frame, row-major): the active
// area must hold (stored - black) / (white - black) at its own stride from the start of the buffer,
// with the clip's black and white levels; the rest of the buffer must stay zero.
size_t mismatches(KSCinemaDNGFileSequence& seq, int i, const std::vector<uint32_t>& stored) {
    const std::vector<float> f = floatsOf(seq.rawImageDataForIndex(i));
    const cd_DNGTags& t = *seq.context()->dngTags();
    const double black = t.blackLevel[0], range = t.whiteLevel[0] - black;
    EXPECT_EQ(f.size(), stored.size());  // the full stored frame
    size_t bad = 0, k = 0;
    for (int r = 0; r < t.inputRows; ++r) {
        const uint32_t* in = stored.data() + size_t(r + t.activeTop) * t.imageWidth + t.activeLeft;
        for (int c = 0; c < t.inputCols; ++c, ++k) bad += std::fabs(f[k] - (in[c] - black) / range) > 1e-6;
    }
    for (; k < f.size(); ++k) bad += f[k] != 0.0f;
    return bad;
}

// Opens the clip from its paths and from the same frames in memory: every frame must give the same
// floats both ways and match its stored samples.
void expectClip(const std::vector<std::string>& paths, const std::function<std::vector<uint32_t>(int)>& stored) {
    auto fromPaths = KSCinemaDNGFileSequence::initWithFilenames(paths);
    auto fromMemory = KSCinemaDNGFileSequence::initWithImageData(readAll(paths));
    ASSERT_TRUE(fromPaths && fromMemory);
    for (int i = 0; i < int(paths.size()); ++i) {
        EXPECT_TRUE(floatsOf(fromPaths->rawImageDataForIndex(i)) == floatsOf(fromMemory->rawImageDataForIndex(i))) << i;
        EXPECT_EQ(mismatches(*fromPaths, i, stored(i)), 0u) << i;
    }
}

// The standard error output of f().
template <typename F>
std::string logOf(F f) {
    CaptureStderr();
    f();
    return GetCapturedStderr();
}

}  // namespace

TEST(KSCinemaDNGFileSequence, RealFramesFromPathsAndMemoryAgreeWithLibRaw) {
    for (const auto& name : kUsableSamples) {
        SCOPED_TRACE(name);
        LibRaw raw;
        ASSERT_EQ(raw.open_file(samplePath(name).c_str()), LIBRAW_SUCCESS);
        ASSERT_EQ(raw.unpack(), LIBRAW_SUCCESS);
        const auto* p = raw.imgdata.rawdata.raw_image;
        const size_t n = size_t(raw.imgdata.sizes.raw_width) * raw.imgdata.sizes.raw_height;
        expectClip({samplePath(name)}, [&](int) { return std::vector<uint32_t>(p, p + n); });
    }
}

// Three-frame clips in both byte orders, several bit depths, strips, a sub-IFD and an active area.
TEST(KSCinemaDNGFileSequence, SyntheticClipsFromPathsAndMemoryGiveTheStoredSamples) {
    struct Case { fb::ByteOrder order; int bits; uint32_t rowsPerStrip; bool subIFD, activeArea; };
    const Case cases[] = {{fb::ByteOrder::II, 12, 0, false, false}, {fb::ByteOrder::MM, 16, 5, true, true},
                          {fb::ByteOrder::II, 14, 16, false, true}, {fb::ByteOrder::MM, 10, 0, false, false}};
    int n = 0;
    for (const Case& cc : cases) {
        SCOPED_TRACE(n);
        fb::RawFrameDesc s = colourFrame();
        s.byteOrder = cc.order;
        s.bits = cc.bits;
        s.rowsPerStrip = cc.rowsPerStrip;
        s.useSubIFD = cc.subIFD;
        s.blackLevel = {64};
        s.whiteLevel = {(1u << cc.bits) - 1u};
        if (cc.activeArea) s.activeArea = {2, 6, s.height - 1, s.width - 2};
        expectClip(writeClip(tempFolder(std::to_string(n++)), s, 3), [&](int i) { return clipRaster(s, i); });
    }
}

TEST(KSCinemaDNGFileSequence, CallerBufferBlackLevelAndFrameFailures) {
    fb::RawFrameDesc s = colourFrame();
    s.blackLevel = {30};
    s.whiteLevel = {4095};
    const auto paths = writeClip(tempFolder(), s, 2);
    auto seq = KSCinemaDNGFileSequence::initWithFilenames(paths);
    ASSERT_TRUE(seq);
    // Every frame is looked up in the first frame's folder under its own name.
    const KSCinemaDNGContext& ctx = *seq->context();
    EXPECT_EQ(ctx.loader()->folder() + ctx.loader()->fileNames().back(), paths[1]);
    EXPECT_TRUE(ctx.conParams()->loader == ctx.loader() && ctx.conParams()->linearizer == ctx.linearizer());
    EXPECT_EQ(ctx.conParams()->duration, 2);
    EXPECT_EQ(ctx.conParams()->threads, 1);  // 8 lowered to 2 / 10 + 1

    std::vector<float> buf(s.width * s.height, -7.0f), untouched = buf;
    seq->writeRawImageDataForIndex(1, buf.data());
    EXPECT_TRUE(buf == floatsOf(seq->rawImageDataForIndex(1)));

    EXPECT_FLOAT_EQ(seq->blackLevel(), 30.0f / 4095.0f);
    auto before = seq->metadata();
    EXPECT_EQ(seq->metadata(), before);  // unchanged: the same object
    seq->setBlackLevel(0.0625f);         // 4095 * 0.0625 = 255.9375
    EXPECT_EQ(seq->context()->dngTags()->blackLevel[0], 255.0f);
    EXPECT_NE(seq->metadata(), before);
    EXPECT_EQ(seq->metadata()->objectForKey("blackLevel")->floatVector(), std::vector<float>{255.0f});
    EXPECT_EQ(before->objectForKey("blackLevel")->floatVector(), std::vector<float>{30.0f});  // kept intact
    EXPECT_EQ(mismatches(*seq, 0, clipRaster(s, 0)), 0u);  // with the new level
    // A level that leaves no output range is refused by the converter: logged and swallowed.
    EXPECT_EQ(logOf([&] { seq->setBlackLevel(1.0f); }),
              "### KSCinemaDNGContext::setBlackLevel:" + kCaught + "cd_getLinearRaw - output range must be > 0\n");

    for (int bad : {-1, 2})
        EXPECT_EQ(logOf([&] { seq->writeRawImageDataForIndex(bad, untouched.data()); }),
                  kWriteLog + "cd_imageLoader - imageNumber is not in a legal range\n");
    EXPECT_EQ(logOf([&] { seq->writeRawImageDataForIndex(0, untouched.data(), 10); }),  // known to be too small
              kWriteLog + "KSCinemaDNGFileSequence - the buffer is smaller than the frame\n");
    EXPECT_EQ(untouched[0], -7.0f);
    std::filesystem::remove(paths[1]);  // gone after opening: the loader's status
    EXPECT_EQ(logOf([&] { seq->writeRawImageDataForIndex(1, untouched.data()); }), "ERROR: 1005\n");
}

TEST(KSCinemaDNGFileSequence, OpenFailuresReturnNothingAndLogTheLines) {
    try {  // a context needs frames
        KSCinemaDNGContext::init();
        ADD_FAILURE() << "init returned";
    } catch (const KSException& e) {
        EXPECT_EQ(e.name(), "KSCinemaDNGContextBadInit");
        EXPECT_STREQ(e.what(), "Init the context with filenames!");
    }
    const std::string folder = tempFolder(), badTags = folder + "/badtags.dng";
    // Tags that cannot be read (NewSubFileType with two values): a status, not an exception.
    int rawIfd = 0;
    fb::TiffBuilder b = fb::makeRawFrameBuilder(colourFrame(), {}, &rawIfd);
    b.removeTag(rawIfd, 254);
    b.addLongs(rawIfd, 254, {0, 0});
    b.writeFile(badTags);
    const std::string tagsLine = "\n### KestroveCinemaDNGDecoder - An error occured while reading the DNG tags.\n";
    const std::string byPath = "### KSCinemaDNGContext::initWithFilenames:" + kCaught;
    const std::string byData = "### KSCinemaDNGContext::initWithImageData:" + kCaught;

    // Paths or buffers, and a line the log must hold (the tag reader may print its own lines first).
    const std::tuple<std::vector<std::string>, bool, std::string> cases[] = {
        {{folder + "/missing.dng"}, false,
         byPath + "cd_imageLoader - the file size of the clip's largest file is in an illegal range <= 0\n"},
        {{badTags}, false, tagsLine},
        {{badTags}, true, tagsLine},
        {{samplePath("oiio_valid-32x32.dng")}, false, byPath + "cd_DecodeDNGTags - colorPlanes must be 3\n"},
        {{samplePath("oiio_valid-32x32.dng")}, true, byData + "cd_DecodeDNGTags - colorPlanes must be 3\n"},
        {{}, false, byPath + "KSCinemaDNGContext - no frame paths given\n"},
        {{}, true, byData + "KSCinemaDNGContext - no frame buffers given\n"}};
    for (const auto& [paths, inMemory, line] : cases) {
        const std::string log = logOf([&] {
            EXPECT_EQ(inMemory ? KSCinemaDNGFileSequence::initWithImageData(readAll(paths))
                               : KSCinemaDNGFileSequence::initWithFilenames(paths), nullptr) << line;
        });
        EXPECT_NE(log.find(line), std::string::npos) << log;
    }
}

TEST(KSCinemaDNGFileSequence, RgbBufferPutsEachSampleInItsFixedChannel) {
    const float r4[4] = {1.5f, 2.5f, 3.5f, 4.5f};
    const float e4[16] = {0, 1.5f, 0, 1, 2.5f, 0, 0, 1, 0, 0, 3.5f, 1, 0, 4.5f, 0, 1};
    const float r9[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};  // odd sizes: the layout repeats every two
    const float e9[36] = {0, 1, 0, 1, 2, 0, 0, 1, 0, 3, 0, 1, 0, 0, 4, 1, 0, 5, 0, 1, 0, 0, 6, 1,
                          0, 7, 0, 1, 8, 0, 0, 1, 0, 9, 0, 1};
    for (auto [raw, side, expected] : {std::tuple{r4, 2, e4}, std::tuple{r9, 3, e9}}) {
        float* rgba = KSCinemaDNGFileSequence::rgbBufferFromRawBuffer(raw, KSSize{double(side), double(side)});
        ASSERT_TRUE(rgba);
        EXPECT_EQ(std::memcmp(rgba, expected, sizeof(float) * 4 * side * side), 0) << side;
        KSFreeBuffer(rgba);
    }
}

TEST(ReadClipExample, PrintsFrameMetadataAndProcessingInfo) {
    const std::string example = std::string(CINEDNG_BINARY_DIR) + "/example_read_clip";
    if (!std::filesystem::exists(example)) GTEST_SKIP() << "example_read_clip not built";
    const std::string frame = samplePath("tinydng_colorchart.dng");
    const std::string out = run("'" + example + "' '" + frame + "' 2>/dev/null");
    for (const char* part : {"frames: 1\nraw image size: 1888 x 1182\n",
                             "frame 0: 1734 x 1156 active floats",  // active area 26 152 1182 1886
                             "first values: 0 ",  // the first active sample, 2056, is the black level
                             "    model = Canon EOS Kiss X4;\n", "    whiteLevel = (\n        15000\n    );\n",
                             "    defaultCropSize = {1734, 1156};\n", "processing info: <KSImageProcessingInfo: 0x"})
        EXPECT_NE(out.find(part), std::string::npos) << "missing: " << part;
    // The same clip opened from memory prints the same frame figures and metadata.
    const std::string mem = run("'" + example + "' -m '" + frame + "' 2>/dev/null");
    EXPECT_EQ(out.substr(0, out.find("processing info")), mem.substr(0, mem.find("processing info")));
}
