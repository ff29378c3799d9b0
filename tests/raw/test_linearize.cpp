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

std::string configureFailure(linearParams p) {
    cd_getLinearRaw lin;
    try {
        lin.configure(p);
    } catch (const cd_exception& e) {
        return e.what();
    }
    return "(no failure)";
}

}  // namespace

TEST(LinearizeConfigure, RefusalsAndTheRangeFromTheSmallestBlack) {
    float out[4];
    const auto p = baseParams(12, 2, 4, out);
    const std::vector<std::pair<std::function<void(linearParams&)>, const char*>> cases = {
        {[](linearParams& q) { q.bitsPerSample = 0; }, "cd_getLinearRaw - bits per sample must be > 0"},
        {[](linearParams& q) { q.inputRows = 0; }, "cd_getLinearRaw - input rows invalid"},
        {[](linearParams& q) { q.inputCols = -3; }, "cd_getLinearRaw - input cols invalid"},
        {[](linearParams& q) { q.blackLevel.clear(); }, "cd_getLinearRaw - no black levels present"},
        {[](linearParams& q) { q.blackLevelRepeatDim = {2, 2, 1}; }, "cd_getLinearRaw - black level repeat dimension must be 2"},
        {[](linearParams& q) { q.blackLevel = {4095.0f}; }, "cd_getLinearRaw - output range must be > 0"},
    };
    for (const auto& [change, text] : cases) {
        auto q = p;
        change(q);
        EXPECT_EQ(configureFailure(q), text);
    }

    // (60, 64, 60, 64) with white 4095: range 4035; per-column and per-row deltas add their minima.
    auto q = p;
    q.blackLevelRepeatDim = {2, 2};
    q.blackLevel = {60, 64, 60, 64};
    cd_getLinearRaw lin;
    lin.configure(q);
    EXPECT_EQ(lin.normalizeRawFactor, static_cast<double>(1.0f / 4035.0f));
    q.blackLevelDeltaH = {1, -2, 3, 0};
    q.blackLevelDeltaV = {1, 5};
    lin.configure(q);
    EXPECT_EQ(lin.normalizeRawFactor, static_cast<double>(1.0f / 4036.0f));
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

// Every width from 1 to 25 bits, odd and even left columns, both byte orders, with and without each
// black-level feature: the output equals the rules worked out independently (a bit-by-bit reader
// and the arithmetic in double), bit for bit. This covers the dedicated decoders (8, 10, 12, 14, 16
// bits, the table of results, the one-pass normalisation) against the general bit reader.
TEST(LinearizeUnpack, FastPathsAreBitIdenticalToTheRules) {
    std::mt19937 rng(99);
    for (int bits = 1; bits <= 25; ++bits) {
        for (int feature = 0; feature < 6; ++feature) {
            for (int left : {0, 1, 3, 6}) {
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
                p.whiteLevel = {mask + 16};
                if (feature == 1 || feature == 5) {
                    p.linearizationTable.resize(std::min<uint32_t>(mask / 3 + 1, 5000));
                    for (auto& t : p.linearizationTable) t = static_cast<uint16_t>(rng() % 60000);
                    p.whiteLevel = {std::max<uint32_t>(mask, 60000) + 16};
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
