#include <gtest/gtest.h>
#include <libraw/libraw.h>

#include <memory>
#include <string>

#include "cinedng/KSData.h"
#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_locateRows.h"
#include "raw_test_util.h"

using namespace cinedng;

namespace {

std::string samplePath(const std::string& name) { return std::string(CINEDNG_SAMPLES_DIR) + "/" + name; }

// The whole host path on one frame held in memory: tags, row location, linearisation into an image
// of the active area.
struct Decoded {
    cd_DNGTags tags;
    std::vector<float> image;
};

Decoded decodeFrame(const std::vector<uint8_t>& frame) {
    Decoded d;
    d.tags = rawtest::tagsOf(frame);
    cd_imageLoader loader;
    cd_locateRows locator;
    cd_getLinearRaw linearizer;
    cd_ClipConverter converter;
    loader.setImageBuffersForSequence({KSData::dataWithBytes(frame.data(), frame.size())});
    locator.configure(d.tags);
    MetaConvertClip meta;
    meta.loader = &loader;
    meta.rowLocator = &locator;
    meta.linearizer = &linearizer;
    meta.duration = 1;
    meta.threads = 1;
    converter.configure(meta, d.tags, false);
    d.image.assign(static_cast<size_t>(d.tags.inputRows) * d.tags.inputCols, -1000.0f);
    converter.setRawImagePixels(d.image.data());
    EXPECT_EQ(converter.convertImageFromImageDataWithIndex(0), 0);
    return d;
}

}  // namespace

// Frames with one black level and no table or deltas: every photosite of the active area equals
// (raw - black) / (white - black), with raw taken from LibRaw's unpacked values of the same file.
class SampleAgainstLibRaw : public ::testing::TestWithParam<const char*> {};

TEST_P(SampleAgainstLibRaw, LinearisedValuesMatchLibRawsRawValues) {
    const std::string path = samplePath(GetParam());
    const auto frame = rawtest::readFile(path);
    ASSERT_FALSE(frame.empty()) << path;
    const Decoded d = decodeFrame(frame);
    ASSERT_EQ(d.tags.blackLevel.size(), 1u);
    ASSERT_TRUE(d.tags.linearizationTable.empty());

    auto lr = std::make_unique<LibRaw>();
    ASSERT_EQ(lr->open_file(path.c_str()), LIBRAW_SUCCESS);
    ASSERT_EQ(lr->unpack(), LIBRAW_SUCCESS);
    const auto& s = lr->imgdata.sizes;
    const uint16_t* raw = lr->imgdata.rawdata.raw_image;
    ASSERT_NE(raw, nullptr);
    ASSERT_EQ(s.raw_width, d.tags.imageWidth);
    ASSERT_EQ(s.raw_height, d.tags.imageHeight);
    const size_t pitch = s.raw_pitch / 2;

    const double black = d.tags.blackLevel[0];
    const double white = d.tags.whiteLevel[0];
    size_t checked = 0, mismatches = 0;
    for (int r = 0; r < d.tags.inputRows; ++r) {
        for (int c = 0; c < d.tags.inputCols; ++c) {
            const double v = raw[static_cast<size_t>(r + d.tags.activeTop) * pitch + (c + d.tags.activeLeft)];
            const double expected = (v - black) / (white - black);
            const float got = d.image[static_cast<size_t>(r) * d.tags.inputCols + c];
            if (std::abs(got - expected) > 1e-6) {
                if (mismatches++ < 5) ADD_FAILURE() << "row " << r << " col " << c << ": " << got << " vs " << expected;
            }
            ++checked;
        }
    }
    EXPECT_EQ(mismatches, 0u);
    EXPECT_EQ(checked, static_cast<size_t>(d.tags.inputRows) * d.tags.inputCols);
}

INSTANTIATE_TEST_SUITE_P(Samples, SampleAgainstLibRaw,
                         ::testing::Values("tinydng_colorchart.dng", "fauxbolex_frame_000170.dng",
                                           "fauxbolex_frame_000185.dng", "fauxbolex_frame_001045.dng",
                                           "oiio_valid-32x32.dng", "oiio_bad-exif-type.dng"));

TEST(Samples, ColorchartGeometryAndPublishedValues) {
    const Decoded d = decodeFrame(rawtest::readFile(samplePath("tinydng_colorchart.dng")));
    EXPECT_EQ(d.tags.bitsPerSample, 14);
    EXPECT_EQ(d.tags.activeTop, 26);
    EXPECT_EQ(d.tags.activeLeft, 152);  // even column, but 152 x 14 bits = 266 bytes: byte aligned
    EXPECT_EQ(d.tags.inputRows, 1182 - 26);
    EXPECT_EQ(d.tags.inputCols, 1886 - 152);
    // Stored (591, 944): 2097 2087 2120 2069 (published reference values).
    const int r = 591 - 26, c = 944 - 152;
    const float expected[4] = {2097, 2087, 2120, 2069};
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(d.image[r * d.tags.inputCols + c + i], (expected[i] - 2056.0) / (15000.0 - 2056.0), 1e-6);
}

TEST(Samples, FauxBolexWithoutRowsPerStripDecodesItsPublishedCorners) {
    const Decoded d = decodeFrame(rawtest::readFile(samplePath("fauxbolex_frame_000185.dng")));
    EXPECT_EQ(d.tags.rowsPerStrip, 0u);
    const float row0[8] = {170, 196, 185, 166, 193, 158, 173, 155};
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(d.image[i], (row0[i] - 30.0) / (65520.0 - 30.0), 1e-7);
    const float last[4] = {40, 50, 59, 42};
    const size_t n = d.image.size();
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(d.image[n - 4 + i], (last[i] - 30.0) / (65520.0 - 30.0), 1e-7);
}

// Frames that cannot be decoded must fail cleanly (a failure with a component's text, or a status),
// never crash or read outside the buffer; the sanitizer build checks the latter.
TEST(Samples, BrokenFramesFailCleanly) {
    for (const char* name : {"oiio_bomb-32000x32000.dng", "oiio_truncated.dng", "filetype_Leica-M10.dng"}) {
        const auto frame = rawtest::readFile(samplePath(name));
        std::string failure;
        try {
            decodeFrame(frame);
        } catch (const std::exception& e) {
            failure = e.what();
        }
        EXPECT_NE(failure.find(" - "), std::string::npos) << name << ": " << failure;
        if (std::string(name) == "oiio_truncated.dng") {
            EXPECT_EQ(failure, "cd_locateRows - DNG row offset error");
        }
    }
}

TEST(Samples, CompressedFrameStaysInsideItsBuffer) {
    // Compression 7 is not decoded (strips are taken as packed samples); what matters here is that
    // the rows it yields are read within the frame.
    const auto frame = rawtest::readFile(samplePath("fauxbolex_frame_000112.dng"));
    try {
        decodeFrame(frame);
    } catch (const cd_exception& e) {
        EXPECT_NE(std::string(e.what()).find(" - "), std::string::npos);
    }
}
