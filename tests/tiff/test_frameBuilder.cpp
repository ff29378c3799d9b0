// The frame builder is the source of every synthetic frame in the tests: its packing is checked
// against an independent unpacker, and its frames against LibRaw, an independent DNG reader.
#include <libraw/libraw.h>

#include "tiff_test_util.h"

using namespace cinedng::framebuilder;

TEST(FrameBuilder, PacksEveryBitDepthMsbFirstWithByteAlignedRows) {
    const uint32_t w = 13, h = 3;
    for (int bits = 1; bits <= 32; ++bits)
        for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
            const std::vector<uint32_t> r = makeTestRaster(w, h, bits, static_cast<uint32_t>(bits));
            const std::vector<uint8_t> packed = TiffBuilder::packRows(r, w, h, bits, order);
            const uint64_t stride = TiffBuilder::rowBytes(w, bits);
            ASSERT_EQ(packed.size(), stride * h) << bits;
            // 16-bit samples are words in the frame's order, every other width an MSB-first bit stream,
            // read back here bit by bit.
            for (uint32_t i = 0; i < w * h; ++i) {
                const uint8_t* row = packed.data() + stride * (i / w);
                const uint64_t first = uint64_t{i % w} * bits;
                uint32_t v = 0;
                for (uint64_t bit = first; bit < first + bits; ++bit) v = v << 1 | (row[bit / 8] >> (7 - bit % 8) & 1u);
                if (bits == 16 && order == ByteOrder::II) v = (v >> 8) | (v & 0xFF) << 8;
                ASSERT_EQ(v, r[i]) << bits << " bits at " << i;
            }
        }
}

// LibRaw, an independent DNG reader, decodes the builder's frames to the raster that was packed:
// every common depth, both byte orders, several strips with a short last one, IFD 0 or a sub-IFD.
TEST(FrameBuilder, LibRawReadsBackThePackedRaster) {
    RawFrameDesc desc{.width = 64, .height = 40, .rowsPerStrip = 7, .colorMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1},
                      .asShotNeutral = {1, 1, 1}};
    for (int bits : {8, 10, 12, 14, 16})
        for (ByteOrder order : {ByteOrder::II, ByteOrder::MM})
            for (bool sub : {false, true}) {
                SCOPED_TRACE(testing::Message() << bits << " bits, MM " << (order == ByteOrder::MM) << ", sub-IFD " << sub);
                desc.bits = bits;
                desc.byteOrder = order;
                desc.useSubIFD = sub;
                desc.whiteLevel = {(1u << bits) - 1};
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
                for (uint32_t i = 0; i < desc.width * desc.height; ++i)
                    mismatches += lr.imgdata.rawdata.raw_image[i / desc.width * pitch + i % desc.width] != raster[i];
                EXPECT_EQ(mismatches, 0);
            }
}
