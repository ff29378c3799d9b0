// The frame builder is the source of every synthetic frame in the tests: check that what it writes
// is the TIFF structure it was asked for, read back through the parser and independently.
#include <gtest/gtest.h>

#include <libraw/libraw.h>

#include <cstdio>
#include <cstdlib>
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
    RawFrameSpec desc;
    desc.width = 40;
    desc.height = 37;
    desc.bits = 14;
    desc.rowsPerStrip = 16;
    desc.useSubIFD = true;
    desc.byteOrder = ByteOrder::MM;
    const std::vector<uint32_t> r = makeTestRaster(desc.width, desc.height, desc.bits);
    const std::vector<uint8_t> f = buildRawFrame(desc, r);
    cd_parseTiff p;
    testing::internal::CaptureStderr();
    ASSERT_EQ(p.configure(asChars(f), f.size()), 0);
    testing::internal::GetCapturedStderr();
    ASSERT_NE(p.subIFD, nullptr);
    std::vector<unsigned int> offsets, counts;
    ASSERT_EQ(p.getTag(tiffTagCodes::StripOffsets, &offsets), 0);
    ASSERT_EQ(p.getTag(tiffTagCodes::StripByteCounts, &counts), 0);
    ASSERT_EQ(offsets.size(), 3u);
    const uint64_t stride = TiffBuilder::rowBytes(desc.width, desc.bits);
    EXPECT_EQ(counts[0], 16 * stride);
    EXPECT_EQ(counts[2], 5 * stride);
    for (uint32_t y = 0; y < desc.height; ++y) {
        const uint8_t* row = f.data() + offsets[y / 16] + (y % 16) * stride;
        for (uint32_t x = 0; x < desc.width; ++x) ASSERT_EQ(unpackSample(row, x, desc.bits), r[y * desc.width + x]);
    }
}

// LibRaw, an independent DNG reader, decodes the builder's frames to the raster that was packed:
// every common depth, both byte orders, several strips with a short last one, IFD 0 or a sub-IFD.
TEST(FrameBuilder, LibRawReadsBackThePackedRaster) {
    for (int bits : {8, 10, 12, 14, 16})
        for (ByteOrder order : {ByteOrder::II, ByteOrder::MM})
            for (bool sub : {false, true}) {
                SCOPED_TRACE(testing::Message() << bits << " bits, " << (order == ByteOrder::II ? "II" : "MM")
                                                << (sub ? ", sub-IFD" : ", IFD 0"));
                RawFrameSpec desc;
                desc.width = 64;
                desc.height = 40;
                desc.bits = bits;
                desc.byteOrder = order;
                desc.useSubIFD = sub;
                desc.rowsPerStrip = 7;
                desc.whiteLevel = {(1u << bits) - 1};
                desc.colorMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
                desc.calibrationIlluminant1 = 21;
                desc.asShotNeutral = {1, 1, 1};
                const std::vector<uint32_t> raster = makeTestRaster(desc.width, desc.height, bits, 3);
                std::vector<uint8_t> frame = buildRawFrame(desc, raster);
                LibRaw lr;
                ASSERT_EQ(lr.open_buffer(frame.data(), frame.size()), LIBRAW_SUCCESS);
                ASSERT_EQ(lr.unpack(), LIBRAW_SUCCESS);
                ASSERT_NE(lr.imgdata.rawdata.raw_image, nullptr);
                ASSERT_EQ(lr.imgdata.sizes.raw_width, desc.width);
                ASSERT_EQ(lr.imgdata.sizes.raw_height, desc.height);
                const unsigned pitch = lr.imgdata.sizes.raw_pitch / 2;
                int mismatches = 0;
                for (uint32_t y = 0; y < desc.height; ++y)
                    for (uint32_t x = 0; x < desc.width; ++x)
                        mismatches += lr.imgdata.rawdata.raw_image[y * pitch + x] != raster[y * desc.width + x];
                EXPECT_EQ(mismatches, 0);
            }
}

// exiftool reads every field type the builder writes, in both byte orders.
TEST(FrameBuilder, ExiftoolReadsEveryFieldType) {
    if (std::system("exiftool -ver >/dev/null 2>&1") != 0) GTEST_SKIP() << "exiftool is not installed";
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        TiffBuilder b(order);
        b.addLongs(0, 254, {0});
        b.addShorts(0, 256, {64});
        b.addLongs(0, 257, {32});
        b.addAscii(0, 271, "Maker");
        b.addBytes(0, 50706, {1, 4, 0, 0});
        b.addShorts(0, 34858, {static_cast<uint16_t>(-5), 3}, SSHORT);                      // TimeZoneOffset
        b.addRationals(0, 50730, {{static_cast<uint32_t>(-3), 2}}, SRATIONAL);            // BaselineExposure
        b.addRationals(0, 50728, {{1, 2}, {1, 1}, {3, 4}});                               // AsShotNeutral
        b.addDoubles(0, 50727, {0.25, 2.5, 1.0});                                          // AnalogBalance as DOUBLE
        b.addFloats(0, 50731, {1.5f});                                                    // BaselineNoise as FLOAT
        b.addLongs(0, 50714, {static_cast<uint32_t>(-64)}, SLONG);                        // BlackLevel as SLONG
        b.addBytes(0, 50740, {static_cast<uint8_t>(-2), 7}, SBYTE);                       // DNGPrivateData
        const int sub = b.addSubIFD(0, IFDTYPE);
        b.addLongs(sub, 254, {1});
        b.addShorts(sub, 256, {8});
        const std::string path = std::string(CINEDNG_BINARY_DIR) + "/framebuilder_types.dng";
        b.writeFile(path);
        FILE* pipe = popen(("exiftool -n -s -s -s -a -IFD0:TimeZoneOffset -BaselineExposure -AsShotNeutral "
                            "-AnalogBalance -BaselineNoise -BlackLevel -Make -DNGVersion -SubIFD:ImageWidth '" +
                            path + "' 2>&1")
                               .c_str(),
                           "r");
        ASSERT_NE(pipe, nullptr);
        std::string out;
        char buf[4096];
        while (fgets(buf, sizeof buf, pipe)) out += buf;
        pclose(pipe);
        EXPECT_EQ(out, "-5 3\n-1.5\n0.5 1 0.75\n0.25 2.5 1\n1.5\n-64\nMaker\n1 4 0 0\n8\n")
            << (order == ByteOrder::II ? "II" : "MM");
    }
}
