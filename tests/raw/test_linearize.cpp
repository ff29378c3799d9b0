#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_getLinearRaw.h"
#include "raw_test_util.h"

using namespace cinedng;
using rawtest::packMSB;
using rawtest::readMSB;
using rawtest::RowsOverBuffer;

namespace {

linearParams baseParams(int bits, int rows, int cols, float* out) {
    linearParams p;
    p.bitsPerSample = bits;
    p.inputRows = rows;
    p.inputCols = cols;
    p.pRawImagePixels = out;
    p.blackLevelRepeatDim = {1, 1};
    p.blackLevel = {0.0f};
    p.whiteLevel = {(bits >= 32) ? 0xFFFFFFFFu : ((1u << bits) - 1u)};
    return p;
}

// Stored sample `col` of a stored row, read by the rules: 8 and 16 bits directly (16 in the frame's
// byte order), any other width as an MSB-first bit stream.
uint32_t storedSample(const uint8_t* row, int bits, int64_t col, uint16_t byteOrder) {
    if (bits == 8) return row[col];
    if (bits == 16) {
        const uint8_t a = row[2 * col], b = row[2 * col + 1];
        return byteOrder == 0x4D4D ? (uint32_t(a) << 8 | b) : (uint32_t(b) << 8 | a);
    }
    return readMSB(row, static_cast<uint64_t>(col) * bits, bits);
}

// The expected output row, worked out from the rules independently of the library's code paths.
std::vector<float> expectedRow(const linearParams& p, const uint8_t* storedRow, int row) {
    const auto& bl = p.blackLevel;
    const bool pattern = bl.size() > 1;
    const bool dh = p.blackLevelDeltaH.size() == static_cast<size_t>(p.inputCols);
    const bool dv = p.blackLevelDeltaV.size() == static_cast<size_t>(p.inputRows);
    float minBlack = *std::min_element(bl.begin(), bl.end());
    if (dh) minBlack += *std::min_element(p.blackLevelDeltaH.begin(), p.blackLevelDeltaH.end());
    if (dv) minBlack += *std::min_element(p.blackLevelDeltaV.begin(), p.blackLevelDeltaV.end());
    const double factor = static_cast<double>(1.0f / (static_cast<float>(p.whiteLevel[0]) - minBlack));
    double black = bl.size() == 1 ? bl[0] : 0.0;
    if (dv) black = static_cast<double>(p.blackLevelDeltaV[row]) + black;
    std::vector<float> out(p.inputCols);
    for (int i = 0; i < p.inputCols; ++i) {
        uint32_t s = storedSample(storedRow, p.bitsPerSample, p.firstCol + i, p.byteOrder);
        const auto& t = p.linearizationTable;
        if (!t.empty()) s = s < t.size() ? t[s] : t.back();
        double v = static_cast<double>(s) - black;
        if (pattern) v -= bl[(row % p.blackLevelRepeatDim[0]) * p.blackLevelRepeatDim[1] + (i % p.blackLevelRepeatDim[1])];
        if (dh) v -= p.blackLevelDeltaH[i];
        out[i] = static_cast<float>(v * factor);
    }
    return out;
}

void expectConfigureFails(linearParams p, const char* text) {
    cd_getLinearRaw lin;
    try {
        lin.configure(p);
        ADD_FAILURE() << "configure accepted a record that should fail with: " << text;
    } catch (const cd_exception& e) {
        EXPECT_STREQ(e.what(), text);
    }
}

}  // namespace

TEST(LinearizeConfigure, RefusesEachInvalidFieldWithItsText) {
    float out[4];
    auto p = baseParams(12, 1, 4, out);
    auto q = p; q.bitsPerSample = 0;
    expectConfigureFails(q, "cd_getLinearRaw - bits per sample must be > 0");
    q = p; q.inputRows = 0;
    expectConfigureFails(q, "cd_getLinearRaw - input rows invalid");
    q = p; q.inputCols = -3;
    expectConfigureFails(q, "cd_getLinearRaw - input cols invalid");
    q = p; q.blackLevel.clear();
    expectConfigureFails(q, "cd_getLinearRaw - no black levels present");
    q = p; q.blackLevelRepeatDim = {2, 2, 1};
    expectConfigureFails(q, "cd_getLinearRaw - black level repeat dimension must be 2");
    q = p; q.blackLevel = {4095.0f};
    expectConfigureFails(q, "cd_getLinearRaw - output range must be > 0");
    q = p; q.blackLevel = {5000.0f};
    expectConfigureFails(q, "cd_getLinearRaw - output range must be > 0");
}

TEST(LinearizeConfigure, OutputRangeUsesTheSmallestBlack) {
    float out[4];
    auto p = baseParams(12, 2, 4, out);
    p.blackLevelRepeatDim = {2, 2};
    p.blackLevel = {60, 64, 60, 64};
    cd_getLinearRaw lin;
    lin.configure(p);
    EXPECT_EQ(lin.normalizeRawFactor, static_cast<double>(1.0f / 4035.0f));
    EXPECT_TRUE(lin.hasBlackPattern);
    EXPECT_EQ(lin.baseBlack, 0.0);

    // Deltas add their own minima: 4095 - (60 + -2 + 1) = 4036.
    p.blackLevelDeltaH = {1, -2, 3, 0};
    p.blackLevelDeltaV = {1, 5};
    lin.configure(p);
    EXPECT_EQ(lin.normalizeRawFactor, static_cast<double>(1.0f / 4036.0f));
    // Delta lists of the wrong length are ignored.
    p.blackLevelDeltaH = {1, -2, 3};
    p.blackLevelDeltaV = {1, 5, 7};
    lin.configure(p);
    EXPECT_FALSE(lin.hasDeltaH);
    EXPECT_FALSE(lin.hasDeltaV);
    EXPECT_EQ(lin.normalizeRawFactor, static_cast<double>(1.0f / 4035.0f));
}

TEST(LinearizeConfigure, OddLeftColumnStartsInsideAByte) {
    float out[4];
    auto p = baseParams(12, 1, 4, out);
    p.firstCol = 1;
    cd_getLinearRaw lin;
    lin.configure(p);
    EXPECT_EQ(lin.leftByteOffset, 1);
    EXPECT_EQ(lin.leftBitSkip, -4);
    EXPECT_EQ(lin.sampleMask, 0xFFFu);
    p.bitsPerSample = 14;
    p.firstCol = 3;  // 42 bits: byte 5, 2 bits in
    lin.configure(p);
    EXPECT_EQ(lin.leftByteOffset, 5);
    EXPECT_EQ(lin.leftBitSkip, -2);
}

TEST(LinearizeGetRow, RefusesEachInvalidStateWithItsText) {
    std::vector<float> out(2 * 4);
    auto p = baseParams(12, 2, 4, out.data());
    RowsOverBuffer rows(std::vector<uint8_t>(3 * 6, 0), 6, 3);
    cd_getLinearRaw lin;
    lin.configure(p);
    auto expectRowFails = [&](int row, const char* text) {
        try {
            lin.getRow(rows.access, row);
            ADD_FAILURE() << "row " << row << " accepted, expected: " << text;
        } catch (const cd_exception& e) {
            EXPECT_STREQ(e.what(), text);
        }
    };
    expectRowFails(-1, "cd_getLinearRaw - input row index is invalid");
    expectRowFails(3, "cd_getLinearRaw - input row index is invalid");
    // Row == rows passes the index check; the stored row exists here, but the output image has no
    // room for it, so it is refused rather than written past the caller's buffer.
    expectRowFails(2, "cd_getLinearRaw - output row lies outside the raw image");
    EXPECT_EQ(lin.getRow(rows.access, 1), 0);

    lin.pRawImagePixels = nullptr;
    expectRowFails(0, "cd_getLinearRaw - raw iamge pixel pointer is invalid");

    for (int bits : {26, 31, 32}) {
        auto q = baseParams(bits, 2, 4, out.data());
        lin.configure(q);
        expectRowFails(0, "cd_getLinearRaw - repacking buffer invalid");
    }
}

TEST(LinearizeGetRowDeathTest, RowPastTheStoredImageFailsTheRowTableAssertion) {
    std::vector<float> out(2 * 4);
    auto p = baseParams(12, 2, 4, out.data());
    RowsOverBuffer rows(std::vector<uint8_t>(2 * 6, 0), 6, 2);
    cd_getLinearRaw lin;
    lin.configure(p);
    EXPECT_DEATH(lin.getRow(rows.access, 2), "row < imageHeight");
}

TEST(LinearizeValues, BlackPatternAndWhiteMapToZeroAndOne) {
    const int cols = 4;
    std::vector<float> out(2 * cols);
    auto p = baseParams(12, 2, cols, out.data());
    p.blackLevelRepeatDim = {2, 2};
    p.blackLevel = {64, 64, 64, 64};
    auto data = packMSB({64, 4095, 64, 4095, 4095, 64, 0, 4095}, 12);
    RowsOverBuffer rows(data, 6, 2);
    cd_getLinearRaw lin;
    lin.configure(p);
    lin.getRow(rows.access, 0);
    lin.getRow(rows.access, 1);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 1.0f);
    EXPECT_EQ(out[5], 0.0f);
    // No clipping: below black is negative, and the pattern's per-site black is subtracted.
    EXPECT_FLOAT_EQ(out[6], -64.0f / 4031.0f);
    EXPECT_EQ(out[7], 1.0f);
}

TEST(LinearizeValues, TableMapsAndSaturatesToItsLastEntry) {
    std::vector<float> out(4);
    auto p = baseParams(8, 1, 4, out.data());
    p.linearizationTable = {10, 20, 30, 1010};
    p.whiteLevel = {1010};
    p.blackLevel = {10};
    RowsOverBuffer rows({0, 2, 3, 7}, 4, 1);
    cd_getLinearRaw lin;
    lin.configure(p);
    lin.getRow(rows.access, 0);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], static_cast<float>(20.0 * static_cast<double>(1.0f / 1000.0f)));  // 2 -> 30
    EXPECT_EQ(out[2], 1.0f);
    EXPECT_EQ(out[3], 1.0f);  // 7 is beyond the 4 entries: the last entry
}

TEST(LinearizeValues, PerRowAndPerColumnDeltasAreSubtracted) {
    const int rowsN = 2, cols = 3;
    std::vector<float> out(rowsN * cols);
    auto p = baseParams(16, rowsN, cols, out.data());
    p.blackLevel = {100};
    p.whiteLevel = {1100};
    p.blackLevelDeltaH = {0, 10, 20};
    p.blackLevelDeltaV = {0, 5};
    // range = 1100 - (100 + 0 + 0) = 1000
    std::vector<uint8_t> data;
    for (uint16_t v : {100, 110, 120, 1105, 1115, 1125}) {
        data.push_back(v & 0xFF);
        data.push_back(v >> 8);
    }
    RowsOverBuffer rows(data, 6, 2);
    cd_getLinearRaw lin;
    lin.configure(p);
    lin.getRow(rows.access, 0);
    lin.getRow(rows.access, 1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], 0.0f) << i;
    for (int i = 3; i < 6; ++i) EXPECT_EQ(out[i], 1.0f) << i;
}

// Every width from 1 to 25 bits, every left offset of a byte's worth of bits, sample values over
// the whole range: the lineariser returns exactly the packed values.
TEST(LinearizeUnpack, EveryWidthAndLeftOffsetDecodesThePackedValues) {
    std::mt19937 rng(1234);
    for (int bits = 1; bits <= 25; ++bits) {
        for (int left = 0; left < 8; ++left) {
            const int cols = 37, storedCols = left + cols + 2;
            const uint32_t mask = (1u << bits) - 1u;
            std::vector<uint32_t> stored(storedCols);
            for (auto& v : stored) v = rng() & mask;
            stored[left] = mask;
            stored[left + 1] = 0;
            const uint16_t order = (bits % 2) ? 0x4D4D : 0x4949;
            std::vector<uint8_t> row;
            if (bits == 16) {
                for (uint32_t v : stored) {
                    if (order == 0x4D4D) { row.push_back(v >> 8); row.push_back(v & 0xFF); }
                    else { row.push_back(v & 0xFF); row.push_back(v >> 8); }
                }
            } else {
                row = packMSB(stored, bits, 0, /*fill=*/1);
            }
            std::vector<float> out(cols);
            auto p = baseParams(bits, 1, cols, out.data());
            p.firstCol = left;
            p.byteOrder = order;
            p.whiteLevel = {mask ? mask : 1u};
            RowsOverBuffer rows(row, row.size(), 1);
            cd_getLinearRaw lin;
            lin.configure(p);
            lin.getRow(rows.access, 0);
            const double factor = static_cast<double>(1.0f / static_cast<float>(p.whiteLevel[0]));
            for (int i = 0; i < cols; ++i)
                ASSERT_EQ(out[i], static_cast<float>(static_cast<double>(stored[left + i]) * factor))
                    << "bits " << bits << " left " << left << " col " << i;
        }
    }
}

TEST(LinearizeUnpack, BigEndianSixteenBitFrameMatchesItsLittleEndianTwin) {
    const int cols = 5;
    const std::vector<uint16_t> v = {0x0102, 0xFFFE, 0x8000, 0x00FF, 0x1234};
    std::vector<uint8_t> le, be;
    for (uint16_t x : v) {
        le.push_back(x & 0xFF); le.push_back(x >> 8);
        be.push_back(x >> 8); be.push_back(x & 0xFF);
    }
    std::vector<float> a(cols), b(cols);
    auto p = baseParams(16, 1, cols, a.data());
    RowsOverBuffer ra(le, le.size(), 1), rb(be, be.size(), 1);
    cd_getLinearRaw lin;
    lin.configure(p);
    lin.getRow(ra.access, 0);
    p.pRawImagePixels = b.data();
    p.byteOrder = 0x4D4D;
    lin.configure(p);
    lin.getRow(rb.access, 0);
    for (int i = 0; i < cols; ++i) {
        EXPECT_EQ(a[i], b[i]);
        EXPECT_EQ(a[i], static_cast<float>(v[i] * static_cast<double>(1.0f / 65535.0f)));
    }
}

// The dedicated decoders (widths 8, 10, 12, 14, 16 and the tabulated result) against the rules
// worked out independently, bit for bit, on random rows with and without every black-level feature.
TEST(LinearizeUnpack, FastPathsAreBitIdenticalToTheRules) {
    std::mt19937 rng(99);
    for (int bits : {8, 9, 10, 11, 12, 13, 14, 15, 16, 18}) {
        for (int feature = 0; feature < 6; ++feature) {
            for (int left : {0, 1, 2, 3, 5}) {
                const int nRows = 4, cols = 61 + left;  // odd widths exercise the tails
                const int storedCols = left + cols + 3;
                const uint32_t mask = (1u << bits) - 1u;
                const size_t rowBytes = (static_cast<size_t>(storedCols) * bits + 7) / 8;
                std::vector<uint8_t> data(rowBytes * nRows);
                for (auto& b : data) b = static_cast<uint8_t>(rng());
                std::vector<float> out(nRows * cols);
                auto p = baseParams(bits, nRows, cols, out.data());
                p.firstCol = left;
                p.byteOrder = (rng() & 1) ? 0x4D4D : 0x4949;
                std::uniform_real_distribution<float> small(-3.0f, 3.0f);
                p.blackLevel = {static_cast<float>(mask / 50) + 0.25f};
                p.whiteLevel = {mask};
                if (feature == 1 || feature == 5) {
                    p.linearizationTable.resize(mask / 3 + 1);
                    for (auto& t : p.linearizationTable) t = static_cast<uint16_t>(rng() % 60000);
                    p.whiteLevel = {60000};
                }
                if (feature == 2 || feature == 5) {
                    p.blackLevelRepeatDim = {2, 3};
                    p.blackLevel.clear();
                    for (int k = 0; k < 6; ++k) p.blackLevel.push_back(static_cast<float>(mask / 60) + small(rng));
                }
                if (feature == 3 || feature == 5)
                    for (int i = 0; i < cols; ++i) p.blackLevelDeltaH.push_back(small(rng));
                if (feature == 4 || feature == 5)
                    for (int r = 0; r < nRows; ++r) p.blackLevelDeltaV.push_back(small(rng));
                RowsOverBuffer rows(data, rowBytes, nRows);
                cd_getLinearRaw lin;
                lin.configure(p);
                for (int r = 0; r < nRows; ++r) {
                    lin.getRow(rows.access, r);
                    const auto expected = expectedRow(p, data.data() + r * rowBytes, r);
                    ASSERT_EQ(0, std::memcmp(expected.data(), out.data() + r * cols, cols * sizeof(float)))
                        << "bits " << bits << " feature " << feature << " left " << left << " row " << r;
                }
            }
        }
    }
}

TEST(LinearizeBounds, RowEndingPastTheFrameReadsZeros) {
    // Two 12-bit rows of 4 samples (6 bytes each); the frame is cut 2 bytes into the second row's
    // last sample pair, so that pair reads as if its missing bytes were zero.
    auto data = packMSB({1, 2, 3, 4, 0xABC, 0xDEF, 0x123, 0x456}, 12);
    std::vector<uint8_t> frame(data.begin(), data.begin() + 10);
    std::vector<float> out(8);
    auto p = baseParams(12, 2, 4, out.data());
    p.whiteLevel = {1};
    RowsOverBuffer rows(frame, 6, 2);
    cd_getLinearRaw lin;
    lin.configure(p);
    lin.getRow(rows.access, 1);
    EXPECT_EQ(out[4], 0xABC);
    EXPECT_EQ(out[5], 0xDEF);
    EXPECT_EQ(out[6], 0x120);  // byte 9 (0x12) is present, byte 10 is not
    EXPECT_EQ(out[7], 0.0f);
}
