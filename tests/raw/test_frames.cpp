// Row location, and whole frames (built ones and the real samples) through the per-frame path.
#include <gtest/gtest.h>
#include <libraw/libraw.h>

#include <memory>

#include "raw_test_util.h"

using namespace cinedng;
using rawtest::failureOf;
using Desc = cinedng::framebuilder::RawFrameDesc;
namespace fb = cinedng::framebuilder;

namespace {

using P = rawtest::Pipeline;

// The frame with the LONG values of `tag` replaced.
std::vector<uint8_t> withLongs(const Desc& s, uint16_t tag, std::vector<uint32_t> values) {
    int raw = 0;
    auto b = fb::makeRawFrameBuilder(s, {}, &raw);
    b.removeTag(raw, tag);
    b.addLongs(raw, tag, values);
    return b.build();
}

std::string samplePath(const std::string& name) { return std::string(CINEDNG_SAMPLES_DIR) + "/" + name; }

}  // namespace

TEST(LocateRows, RowSizeStripAndOffsetChecks) {
    // RowsPerStrip above the image height counts as the frame states it: a strip of 10 rows of 12
    // bytes that claims 20 rows gives rows 120 / 20 = 6 bytes apart.
    const auto over = withLongs(Desc{.width = 8, .height = 10}, 278, {20});
    P p(over, 1, 1);
    ASSERT_EQ(p.locate(over), "(no failure)");
    EXPECT_EQ(p.converter.scanLineAccess().getRow(9) - over.data(), p.tags.stripOffsets[0] + 9 * 6);
    EXPECT_EQ(p.locator.stats().bytesProcessed, 10u * 8);
    const std::string strips = "cd_locateRows - DNG strip setup invalid", offset = "cd_locateRows - DNG row offset error";
    auto locate = [](const std::vector<uint8_t>& f) { return P(f, 1, 1).locate(f); };
    // Two strips without a RowsPerStrip tag; 3 rows x 2 strips for 7 rows.
    EXPECT_EQ(locate(fb::buildRawFrame(Desc{.width = 16, .height = 6, .rowsPerStrip = 3, .writeRowsPerStrip = false})), strips);
    EXPECT_EQ(locate(withLongs(Desc{.width = 16, .height = 7, .rowsPerStrip = 4}, 278, {3})), strips);
    const Desc s{.width = 8, .height = 4, .bits = 8};
    EXPECT_EQ(locate(withLongs(s, 273, {4})), offset);
    // The strip moved to the end of the file: the last row may end one byte past the buffer, not two.
    // That byte is read as 0.
    const uint32_t size = static_cast<uint32_t>(fb::buildRawFrame(s).size());
    EXPECT_EQ(locate(withLongs(s, 273, {size - 32 + 2})), offset);
    const auto lenient = withLongs(s, 273, {size - 32 + 1});
    P atEnd(lenient, 1, 1);
    ASSERT_EQ(atEnd.convertHostFrame(lenient), 0);
    EXPECT_EQ(atEnd.image.back(), 0.0f);
    EXPECT_EQ(atEnd.image[atEnd.image.size() - 2], static_cast<float>(lenient.back() * double(1.0f / 255)));
}

TEST(LocateRows, FramesOfAnotherCoreLayoutAreRefusedAndMetadataFollowsEachFrame) {
    const std::array<uint8_t, 8> first = {0x12, 0x34, 0x56, 0x01, 0, 0, 0, 0};
    const auto frame = fb::buildRawFrame(Desc{.timeCodes = {0x12, 0x34, 0x56, 0x01, 0, 0, 0, 0, 0x99, 0x99, 0x99, 0x09, 0, 0, 0, 0},
                                              .imageNumber = 41, .dateTimeOriginal = "2024:05:06 07:08:09"});
    P p(frame, 1, 1);
    ASSERT_EQ(p.locate(frame), "(no failure)");
    EXPECT_EQ(p.frameMeta.imageNumber, 41u);
    EXPECT_EQ(p.frameMeta.dateTimeOriginal, "2024:05:06 07:08:09");
    EXPECT_EQ(p.frameMeta.timeCode, first);
    const std::vector<std::pair<Desc, const char*>> cases = {
        {Desc{.bits = 14}, "cd_locateRows - bitsPerSample <= 0"},
        {Desc{.height = 34}, "cd_locateRows - image height invalid"},
        {Desc{.width = 62}, "cd_locateRows - image width invalid"},
        {Desc{.compression = 7}, "cd_locateRows - illegal compression"},
        {Desc{.photometric = 34892}, "cd_locateRows - illegal photometric"},
        {Desc{.byteOrder = fb::ByteOrder::MM}, "cd_locateRows - illegal byteOrder"},
        {Desc{}, "(no failure)"},  // last: no time code, date or image number
    };
    for (const auto& [s, text] : cases) EXPECT_EQ(p.locate(fb::buildRawFrame(s)), text);
    EXPECT_EQ(p.frameMeta.imageNumber, 0u);
    EXPECT_EQ(p.frameMeta.dateTimeOriginal, "");
    EXPECT_EQ(p.frameMeta.timeCode, first);  // kept from the frame that had one
}

// Every width 8..16, both byte orders, one strip in IFD 0 or strips of 5 (the last one short) in a
// sub-IFD, an active area from an odd column: located and linearised, the frame gives back exactly
// the values that were packed.
TEST(Frames, SyntheticFramesOfEveryWidthDecodeToTheirValues) {
    for (int bits = 8; bits <= 16; ++bits) {
        for (auto order : {fb::ByteOrder::II, fb::ByteOrder::MM}) {
            for (uint32_t rowsPerStrip : {0u, 5u}) {
                const Desc s{.width = 29, .height = 13, .bits = bits, .byteOrder = order, .rowsPerStrip = rowsPerStrip,
                             .useSubIFD = rowsPerStrip != 0, .whiteLevel = {(1u << bits) - 1}, .activeArea = {2, 3, 12, 28}};
                const auto raster = fb::makeTestRaster(29, 13, bits, bits * 7 + rowsPerStrip);
                const auto frame = fb::buildRawFrame(s, raster);
                rawtest::Pipeline p(frame, 1, 1);  // 10 x 25 photosites from row 2, column 3
                ASSERT_EQ(p.convertHostFrame(frame), 0);
                const double factor = static_cast<double>(1.0f / static_cast<float>((1u << bits) - 1));
                for (int i = 0; i < 250; ++i)
                    ASSERT_EQ(p.image[i], static_cast<float>(raster[(i / 25 + 2) * 29 + i % 25 + 3] * factor))
                        << "bits " << bits << " MM " << (order == fb::ByteOrder::MM) << " rps " << rowsPerStrip << " at " << i;
            }
        }
    }
}

// Real frames with one black level and no table or deltas: every photosite of the active area equals
// (raw - black) / (white - black), raw being LibRaw's unpacked value of the same file.
class SampleAgainstLibRaw : public ::testing::TestWithParam<const char*> {};

TEST_P(SampleAgainstLibRaw, LinearisedValuesMatchLibRawsRawValues) {
    const std::string path = samplePath(GetParam());
    const auto frame = rawtest::readFile(path);
    rawtest::Pipeline p(frame, 1, 1);
    ASSERT_EQ(p.convertHostFrame(frame), 0);
    const cd_DNGTags& t = p.tags;
    ASSERT_TRUE(t.blackLevel.size() == 1 && t.linearizationTable.empty());
    auto lr = std::make_unique<LibRaw>();
    ASSERT_TRUE(lr->open_file(path.c_str()) == LIBRAW_SUCCESS && lr->unpack() == LIBRAW_SUCCESS);
    const uint16_t* raw = lr->imgdata.rawdata.raw_image;
    ASSERT_TRUE(raw && lr->imgdata.sizes.raw_width == t.imageWidth && lr->imgdata.sizes.raw_height == t.imageHeight);
    const size_t pitch = lr->imgdata.sizes.raw_pitch / 2;
    const double black = t.blackLevel[0], white = t.whiteLevel[0];
    for (int r = 0; r < t.inputRows; ++r)
        for (int c = 0; c < t.inputCols; ++c)
            ASSERT_NEAR(p.image[size_t(r) * t.inputCols + c], (raw[size_t(r + t.activeTop) * pitch + c + t.activeLeft] - black) / (white - black), 1e-6)
                << "row " << r << " col " << c;
}

INSTANTIATE_TEST_SUITE_P(Samples, SampleAgainstLibRaw,
                         ::testing::Values("tinydng_colorchart.dng", "fauxbolex_frame_000170.dng", "fauxbolex_frame_000185.dng",
                                           "fauxbolex_frame_001045.dng", "oiio_valid-32x32.dng", "oiio_bad-exif-type.dng"));

// A compressed frame is laid out as if packed; its rows are read within the frame (the sanitizer build
// checks that).
TEST(Frames, CompressedSampleStaysInsideItsBuffer) {
    const auto compressed = rawtest::readFile(samplePath("fauxbolex_frame_000112.dng"));
    failureOf([&] { rawtest::Pipeline(compressed, 1, 1).convertHostFrame(compressed); });
}
