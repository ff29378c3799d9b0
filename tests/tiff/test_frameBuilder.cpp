// The frame builder is the source of every synthetic frame in the tests: check that what it writes
// is the TIFF structure it was asked for, read back through the parser and independently.
#include <gtest/gtest.h>

#include <cstring>

#include "cinedng/cd_parseTiff.h"
#include "framebuilder/DngFrameBuilder.h"

using namespace cinedng;
using namespace cinedng::framebuilder;

namespace {

const char* asChars(const std::vector<uint8_t>& v) { return reinterpret_cast<const char*>(v.data()); }

// Reference MSB-first unpacker, independent of the builder's packer.
uint32_t unpackSample(const uint8_t* row, uint32_t x, int bits) {
    uint32_t v = 0;
    for (int b = 0; b < bits; ++b) {
        const uint64_t bit = static_cast<uint64_t>(x) * bits + b;
        v = (v << 1) | ((row[bit / 8] >> (7 - bit % 8)) & 1u);
    }
    return v;
}

}  // namespace

TEST(FrameBuilder, HeaderAndInEntryVersusOutOfLineValues) {
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        TiffBuilder b(order);
        b.addAscii(0, 271, "A");       // 2 bytes: inside the entry
        b.addAscii(0, 272, "ABCD");    // 5 bytes: out of line
        b.addLongs(0, 256, {7});
        b.addBytes(0, 1000, std::vector<uint8_t>(120, 9));  // pads the frame above 100 bytes
        const std::vector<uint8_t> f = b.build();
        ASSERT_GE(f.size(), 100u);
        EXPECT_EQ(f[0], order == ByteOrder::II ? 'I' : 'M');
        cd_parseTiff p;
        ASSERT_EQ(p.configure(asChars(f), f.size()), 0);
        ASSERT_EQ(p.getlocalIFDEntry(271), 0);
        EXPECT_EQ(p.tag.FieldSize, 2u);
        const unsigned char* entry = p.searchIFD(271, p.ifd0);
        EXPECT_EQ(p.tag.pValue, entry + 8);
        ASSERT_EQ(p.getlocalIFDEntry(272), 0);
        EXPECT_EQ(p.tag.FieldSize, 5u);
        EXPECT_NE(p.tag.pValue, p.searchIFD(272, p.ifd0) + 8);
        std::string s;
        EXPECT_EQ(p.getTag(tiffTagCodes::Model, &s), 0);
        EXPECT_EQ(s, "ABCD");
        unsigned int w = 0;
        EXPECT_EQ(p.getTag(tiffTagCodes::ImageWidth, &w), 0);
        EXPECT_EQ(w, 7u);
    }
}

TEST(FrameBuilder, PacksEveryBitDepthMsbFirstWithByteAlignedRows) {
    for (int bits = 1; bits <= 32; ++bits) {
        const uint32_t w = 13, h = 3;
        const std::vector<uint32_t> r = makeTestRaster(w, h, bits, static_cast<uint32_t>(bits));
        for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
            const std::vector<uint8_t> packed = TiffBuilder::packRows(r, w, h, bits, order);
            const uint64_t stride = TiffBuilder::rowBytes(w, bits);
            ASSERT_EQ(packed.size(), stride * h) << bits;
            for (uint32_t y = 0; y < h; ++y)
                for (uint32_t x = 0; x < w; ++x) {
                    const uint8_t* row = packed.data() + stride * y;
                    uint32_t v;
                    if (bits == 8) v = row[x];
                    else if (bits == 16)
                        v = order == ByteOrder::II ? (row[2 * x] | row[2 * x + 1] << 8) : (row[2 * x] << 8 | row[2 * x + 1]);
                    else v = unpackSample(row, x, bits);
                    ASSERT_EQ(v, r[y * w + x]) << "bits " << bits << " at " << x << "," << y;
                }
        }
    }
}

TEST(FrameBuilder, StripsWithShortLastStripAndSubIfdLayout) {
    RawFrameSpec spec;
    spec.width = 40;
    spec.height = 37;
    spec.bits = 14;
    spec.rowsPerStrip = 16;
    spec.useSubIFD = true;
    spec.byteOrder = ByteOrder::MM;
    const std::vector<uint32_t> r = makeTestRaster(spec.width, spec.height, spec.bits);
    const std::vector<uint8_t> f = buildRawFrame(spec, r);
    cd_parseTiff p;
    testing::internal::CaptureStderr();
    ASSERT_EQ(p.configure(asChars(f), f.size()), 0);
    testing::internal::GetCapturedStderr();
    ASSERT_NE(p.subIFD, nullptr);
    std::vector<unsigned int> offsets, counts;
    ASSERT_EQ(p.getTag(tiffTagCodes::StripOffsets, &offsets), 0);
    ASSERT_EQ(p.getTag(tiffTagCodes::StripByteCounts, &counts), 0);
    ASSERT_EQ(offsets.size(), 3u);
    const uint64_t stride = TiffBuilder::rowBytes(spec.width, spec.bits);
    EXPECT_EQ(counts[0], 16 * stride);
    EXPECT_EQ(counts[2], 5 * stride);
    for (uint32_t y = 0; y < spec.height; ++y) {
        const uint8_t* row = f.data() + offsets[y / 16] + (y % 16) * stride;
        for (uint32_t x = 0; x < spec.width; ++x) ASSERT_EQ(unpackSample(row, x, spec.bits), r[y * spec.width + x]);
    }
}
