#include <gtest/gtest.h>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_locateRows.h"
#include "framebuilder/DngFrameBuilder.h"
#include "raw_test_util.h"

using namespace cinedng;
namespace fb = cinedng::framebuilder;

namespace {

std::string failureOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const cd_exception& e) {
        return e.what();
    }
    return "(no failure)";
}

struct Located {
    std::vector<uint8_t> frame;
    cd_DNGTags tags;
    cd_locateRows locator;
    cd_ScanLineAccess access;
    DynamicMetadata meta;

    explicit Located(std::vector<uint8_t> f) : frame(std::move(f)), tags(rawtest::tagsOf(frame)) { locator.configure(tags); }
    int locate() {
        return locator.locateRows(reinterpret_cast<const char*>(frame.data()), frame.size(), access, meta);
    }
    std::string failure() { return failureOf([&] { locate(); }); }
    size_t offsetOf(unsigned row) { return static_cast<size_t>(access.getRow(row) - frame.data()); }
};

}  // namespace

TEST(LocateRowsConfigure, RefusesZeroCoreValues) {
    const auto good = rawtest::tagsOf(fb::buildRawFrame(fb::RawFrameSpec{}));
    cd_locateRows loc;
    const std::vector<std::pair<std::function<void(cd_DNGTags&)>, const char*>> cases = {
        {[](cd_DNGTags& t) { t.imageHeight = 0; }, "cd_locateRows - the DNG image dimensions are invalid."},
        {[](cd_DNGTags& t) { t.imageWidth = 0; }, "cd_locateRows - the DNG image dimensions are invalid."},
        {[](cd_DNGTags& t) { t.bitsPerSample = 0; }, "cd_locateRows - the 'bitsPerSample' tag cannot be 0"},
        {[](cd_DNGTags& t) { t.compression = 0; }, "cd_locateRows - illegal compression setting"},
        {[](cd_DNGTags& t) { t.photometric = 0; }, "cd_locateRows - illegal photometric setting"},
        {[](cd_DNGTags& t) { t.byteOrder = 0; }, "cd_locateRows - illegal byteOrder setting"},
    };
    for (const auto& [change, text] : cases) {
        auto t = good;
        change(t);
        EXPECT_EQ(failureOf([&] { loc.configure(t); }), text);
    }
}

TEST(LocateRows, RefusesMissingBufferAndUnconfiguredLocator) {
    cd_locateRows loc;
    cd_ScanLineAccess access;
    DynamicMetadata meta;
    const char byte = 0;
    EXPECT_EQ(failureOf([&] { loc.locateRows(nullptr, 10, access, meta); }),
              "cd_locateRows - the input image buffer may not be nil");
    EXPECT_EQ(failureOf([&] { loc.locateRows(&byte, 0, access, meta); }),
              "cd_locateRows - the input image buffer size may not be zero");
    EXPECT_EQ(failureOf([&] { loc.locateRows(&byte, 1, access, meta); }), "cd_locateRows - image height invalid");
}

TEST(LocateRows, RowsLieAtTheFirstStripsRowSize) {
    fb::RawFrameSpec desc;
    desc.width = 40;
    desc.height = 10;
    Located one(fb::buildRawFrame(desc));
    ASSERT_EQ(one.locate(), 0);
    ASSERT_EQ(one.access.imageHeight, 10u);
    for (unsigned r = 0; r < 10; ++r) EXPECT_EQ(one.offsetOf(r), one.tags.stripOffsets[0] + r * 60) << r;
    EXPECT_EQ(one.locator.stats().bytesProcessed, 10u * 8);

    desc.width = 24;
    desc.height = 37;  // strips of 16, 16, 5 rows
    desc.bits = 14;
    desc.rowsPerStrip = 16;
    Located strips(fb::buildRawFrame(desc));
    ASSERT_EQ(strips.locate(), 0);
    ASSERT_EQ(strips.tags.stripOffsets.size(), 3u);
    for (unsigned r = 0; r < 37; ++r)
        EXPECT_EQ(strips.offsetOf(r), strips.tags.stripOffsets[r / 16] + (r % 16) * 42u) << r;
}

TEST(LocateRows, WithoutRowsPerStripOneStripHoldsEveryRow) {
    fb::RawFrameSpec desc;
    desc.width = 16;
    desc.height = 6;
    desc.writeRowsPerStrip = false;
    Located l(fb::buildRawFrame(desc));
    ASSERT_EQ(l.tags.rowsPerStrip, 0u);
    ASSERT_EQ(l.locate(), 0);
    EXPECT_EQ(l.offsetOf(5), l.tags.stripOffsets[0] + 5 * 24u);

    desc.rowsPerStrip = 3;  // two strips, but no tag saying how many rows each holds
    Located several(fb::buildRawFrame(desc));
    EXPECT_EQ(several.failure(), "cd_locateRows - DNG strip setup invalid");
}

TEST(LocateRows, TooFewStripRowsAreRefused) {
    fb::RawFrameSpec desc;
    desc.width = 16;
    desc.height = 8;
    desc.rowsPerStrip = 4;
    int raw = 0;
    auto b = fb::makeRawFrameBuilder(desc, {}, &raw);
    b.removeTag(raw, 278);
    b.addLongs(raw, 278, {3});  // 3 x 2 strips = 6 < 8 rows
    Located l(b.build());
    EXPECT_EQ(l.failure(), "cd_locateRows - DNG strip setup invalid");
}

TEST(LocateRows, RowOffsetsOverlappingTheHeaderOrPastTheEndAreRefused) {
    fb::RawFrameSpec desc;
    desc.width = 8;
    desc.height = 4;
    desc.bits = 8;
    int raw = 0;
    auto b = fb::makeRawFrameBuilder(desc, {}, &raw);
    b.removeTag(raw, 273);
    b.addLongs(raw, 273, {4});
    Located l(b.build());
    EXPECT_EQ(l.failure(), "cd_locateRows - DNG row offset error");

    // The strip placed at the very end: the last row may end one byte past the buffer, not two.
    for (int past : {1, 2}) {
        auto b2 = fb::makeRawFrameBuilder(desc, {}, &raw);
        std::vector<uint8_t> frame = b2.build();
        b2.removeTag(raw, 273);
        const uint32_t stripAt = static_cast<uint32_t>(frame.size()) - 32 + past;
        b2.addLongs(raw, 273, {stripAt});
        frame = b2.build();
        ASSERT_EQ(frame.size(), stripAt + 32 - past);
        Located edge(frame);
        if (past == 1) {
            ASSERT_EQ(edge.locate(), 0);
            EXPECT_EQ(edge.offsetOf(3) + 8, frame.size() + 1);
        } else {
            EXPECT_EQ(edge.failure(), "cd_locateRows - DNG row offset error");
        }
    }
}

TEST(LocateRows, FrameWithADifferentCoreLayoutIsRefused) {
    fb::RawFrameSpec desc;
    Located l(fb::buildRawFrame(desc));
    auto refusal = [&](fb::RawFrameSpec other) {
        auto frame = fb::buildRawFrame(other);
        return failureOf([&] {
            l.locator.locateRows(reinterpret_cast<const char*>(frame.data()), frame.size(), l.access, l.meta);
        });
    };
    auto s = desc; s.bits = 14;
    EXPECT_EQ(refusal(s), "cd_locateRows - bitsPerSample <= 0");
    s = desc; s.height = desc.height + 2;
    EXPECT_EQ(refusal(s), "cd_locateRows - image height invalid");
    s = desc; s.width = desc.width - 2;
    EXPECT_EQ(refusal(s), "cd_locateRows - image width invalid");
    s = desc; s.compression = 7;
    EXPECT_EQ(refusal(s), "cd_locateRows - illegal compression");
    s = desc; s.photometric = 34892;
    EXPECT_EQ(refusal(s), "cd_locateRows - illegal photometric");
    s = desc; s.byteOrder = fb::ByteOrder::MM;
    EXPECT_EQ(refusal(s), "cd_locateRows - illegal byteOrder");
    EXPECT_EQ(refusal(desc), "(no failure)");
}

TEST(LocateRows, DynamicMetadataFollowsEachFrameAndKeepsTheLastTimeCode) {
    fb::RawFrameSpec desc;
    desc.imageNumber = 41;
    desc.dateTimeOriginal = "2024:05:06 07:08:09";
    desc.timeCodes = {0x12, 0x34, 0x56, 0x01, 0, 0, 0, 0, 0x99, 0x99, 0x99, 0x09, 0, 0, 0, 0};
    Located l(fb::buildRawFrame(desc));
    ASSERT_EQ(l.locate(), 0);
    EXPECT_EQ(l.meta.imageNumber, 41u);
    EXPECT_EQ(l.meta.dateTimeOriginal, "2024:05:06 07:08:09");
    const std::array<uint8_t, 8> first = {0x12, 0x34, 0x56, 0x01, 0, 0, 0, 0};
    EXPECT_EQ(l.meta.timeCode, first);

    // Next frame: no time code, no date, no image number.
    fb::RawFrameSpec next;
    auto frame = fb::buildRawFrame(next);
    l.locator.locateRows(reinterpret_cast<const char*>(frame.data()), frame.size(), l.access, l.meta);
    EXPECT_EQ(l.meta.imageNumber, 0u);
    EXPECT_EQ(l.meta.dateTimeOriginal, "");
    EXPECT_EQ(l.meta.timeCode, first);
}

// Frames built with every width from 8 to 16 bits, both byte orders, one strip and strips with a
// short last one, and an active area with an odd left column: located and linearised, they give
// back exactly the stored values.
TEST(LocateRows, SyntheticFramesOfEveryWidthDecodeToTheirValues) {
    for (int bits = 8; bits <= 16; ++bits) {
        for (auto order : {fb::ByteOrder::II, fb::ByteOrder::MM}) {
            for (uint32_t rowsPerStrip : {0u, 5u}) {
                for (bool subIfd : {false, true}) {
                    fb::RawFrameSpec desc;
                    desc.width = 29;
                    desc.height = 13;
                    desc.bits = bits;
                    desc.byteOrder = order;
                    desc.rowsPerStrip = rowsPerStrip;
                    desc.useSubIFD = subIfd;
                    desc.activeArea = {2, 3, 12, 28};  // top 2, left 3 (odd), 10 x 25
                    desc.whiteLevel = {(1u << bits) - 1};
                    const auto raster = fb::makeTestRaster(desc.width, desc.height, bits, bits * 7 + rowsPerStrip);
                    Located l(fb::buildRawFrame(desc, raster));
                    ASSERT_EQ(l.locate(), 0);
                    std::vector<float> out(10 * 25);
                    linearParams p;
                    p.bitsPerSample = bits;
                    p.firstRow = l.tags.activeTop;
                    p.firstCol = l.tags.activeLeft;
                    p.inputRows = l.tags.inputRows;
                    p.inputCols = l.tags.inputCols;
                    p.pRawImagePixels = out.data();
                    p.blackLevelRepeatDim = l.tags.blackLevelRepeatDim;
                    p.blackLevel = l.tags.blackLevel;
                    p.whiteLevel = l.tags.whiteLevel;
                    p.byteOrder = l.tags.byteOrder;
                    ASSERT_EQ(p.inputRows, 10);
                    ASSERT_EQ(p.inputCols, 25);
                    cd_getLinearRaw lin;
                    lin.configure(p);
                    for (int r = 0; r < 10; ++r) lin.getRow(l.access, r);
                    const double factor = static_cast<double>(1.0f / static_cast<float>((1u << bits) - 1));
                    for (int r = 0; r < 10; ++r)
                        for (int c = 0; c < 25; ++c)
                            ASSERT_EQ(out[r * 25 + c],
                                      static_cast<float>(raster[(r + 2) * 29 + (c + 3)] * factor))
                                << "bits " << bits << " MM " << (order == fb::ByteOrder::MM) << " rps "
                                << rowsPerStrip << " row " << r << " col " << c;
                }
            }
        }
    }
}
