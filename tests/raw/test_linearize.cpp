#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "raw_test_util.h"

using namespace cinedng;
using rawtest::failureOf;

namespace {

// A scan-line table over consecutive rows of one buffer, whose end bounds the reads.
struct Rows {
    std::vector<uint8_t> bytes;
    std::vector<unsigned char*> rows;
    cd_ScanLineAccess access;
    Rows(std::vector<uint8_t> data, size_t rowBytes, size_t n) : bytes(std::move(data)) {
        for (size_t r = 0; r < n; ++r) rows.push_back(bytes.data() + r * rowBytes);
        access.configure(rows, bytes.data(), bytes.size());
    }
};

linearParams params(int bits, int rows, int cols, float* out) {
    return linearParams{bits, 0, 0, rows, cols, out, {}, {1, 1}, {0.0f}, {}, {}, {bits >= 32 ? ~0u : (1u << bits) - 1u}};
}

// Output row `row` worked out from the rules alone, given the scale factor: samples read bit by bit
// (16-bit ones in the frame's byte order), table, black, pattern and deltas in double, rounded once.
std::vector<float> expectedRow(const linearParams& p, double factor, const uint8_t* stored, int row) {
    const auto& bl = p.blackLevel;
    const bool dh = p.blackLevelDeltaH.size() == static_cast<size_t>(p.inputCols);
    const bool dv = p.blackLevelDeltaV.size() == static_cast<size_t>(p.inputRows);
    const double black = (dv ? static_cast<double>(p.blackLevelDeltaV[row]) : 0.0) + (bl.size() == 1 ? bl[0] : 0.0);
    std::vector<float> out(p.inputCols);
    for (int i = 0; i < p.inputCols; ++i) {
        uint32_t s = 0;
        for (uint64_t pos = uint64_t(p.firstCol + i) * p.bitsPerSample; pos < uint64_t(p.firstCol + i + 1) * p.bitsPerSample; ++pos)
            s = (s << 1) | ((stored[pos / 8] >> (7 - pos % 8)) & 1u);
        if (p.bitsPerSample == 16 && p.byteOrder == 0x4949) s = ((s & 0xFF) << 8) | (s >> 8);
        const auto& t = p.linearizationTable;
        if (!t.empty()) s = s < t.size() ? t[s] : t.back();
        double v = static_cast<double>(s) - black;
        if (bl.size() > 1) v -= bl[(row % p.blackLevelRepeatDim[0]) * p.blackLevelRepeatDim[1] + i % p.blackLevelRepeatDim[1]];
        if (dh) v -= p.blackLevelDeltaH[i];
        out[i] = static_cast<float>(v * factor);
    }
    return out;
}

}  // namespace

TEST(LinearizeDeathTest, TheRangeFromTheSmallestBlackAndEveryRefusal) {
    float out[8];
    auto q = params(12, 2, 4, out);
    q.firstCol = 1;
    q.blackLevelRepeatDim = {2, 2};
    q.blackLevel = {60, 64, 60, 64};  // white 4095: range 4035
    cd_getLinearRaw lin;
    lin.configure(q);
    EXPECT_EQ(lin.normalizeRawFactor, static_cast<double>(1.0f / 4035.0f));
    EXPECT_EQ(lin.leftByteOffset, 1);  // 12-bit samples from column 1: 4 bits into byte 1
    EXPECT_EQ(lin.leftBitSkip, -4);
    q.blackLevelDeltaH = {1, -2, 3, 0};  // the deltas add their own minima
    q.blackLevelDeltaV = {1, 5};
    lin.configure(q);
    EXPECT_EQ(lin.normalizeRawFactor, static_cast<double>(1.0f / 4036.0f));
    q.blackLevel = {4096, 4096, 4096, 4096};  // 4095 - (4096 - 2 + 1) = 0
    EXPECT_EQ(failureOf([&] { lin.configure(q); }), "cd_getLinearRaw - output range must be > 0");
    q.blackLevelRepeatDim = {2};
    EXPECT_EQ(failureOf([&] { lin.configure(q); }), "cd_getLinearRaw - black level repeat dimension must be 2");

    Rows rows(std::vector<uint8_t>(3 * 6, 0), 6, 3);
    auto p = params(12, 2, 4, out);
    lin.configure(p);
    auto rowFailure = [&](int row) { return failureOf([&] { lin.getRow(rows.access, row); }); };
    EXPECT_EQ(rowFailure(3), "cd_getLinearRaw - input row index is invalid");
    // Row == rows passes the index check; the stored row exists, the output image has no room for it.
    EXPECT_EQ(rowFailure(2), "cd_getLinearRaw - output row lies outside the raw image");
    p.firstRow = 1;  // now that row would be stored row 3, which the table does not hold
    lin.configure(p);
    EXPECT_DEATH(lin.getRow(rows.access, 2), "row < imageHeight");
    lin.pRawImagePixels = nullptr;
    EXPECT_EQ(rowFailure(0), "cd_getLinearRaw - raw iamge pixel pointer is invalid");
    for (int bits : {26, 32, 33, 64}) {  // the mask is 0 only for 64 (shift modulo 32)
        p = params(bits, 2, 4, out);
        lin.configure(p);
        EXPECT_EQ(rowFailure(0), bits == 64 ? "cd_getLinearRaw - sampleMask must be > 0" : "cd_getLinearRaw - repacking buffer invalid");
    }
}

// Every width 1..25, left columns with and without a bit skip, both byte orders, each black-level
// feature alone and all together: every code path (the word decoders, the table of results, the
// one-pass normalisation, the general path) equals the rules read bit by bit, to the last bit.
TEST(LinearizeUnpack, EveryPathIsBitIdenticalToTheRules) {
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> small(-3.0f, 3.0f);
    const int nRows = 4;
    for (int bits = 1; bits <= 25; ++bits) {
        const uint32_t mask = (1u << bits) - 1u;
        // A whole black (with whole per-row deltas) lets the vector kernels take rows of 10 to 16 bits.
        for (int feature = 0; feature < 12; ++feature) {  // none, table, pattern, per column, per row, all; x2
            const bool whole = feature >= 6;
            const bool table = feature % 6 == 1 || feature % 6 == 5, pattern = feature % 6 == 2 || feature % 6 == 5;
            for (int left : {0, 1, 3, 6}) {
                const int cols = 61 + left;
                const size_t rowBytes = (static_cast<size_t>(left + cols + 3) * bits + 7) / 8;
                std::vector<uint8_t> data(rowBytes * nRows);
                for (auto& b : data) b = static_cast<uint8_t>(rng());
                std::vector<float> out(nRows * cols);
                auto p = params(bits, nRows, cols, out.data());
                p.firstCol = left;
                p.byteOrder = (rng() & 1) ? 0x4D4D : 0x4949;
                p.blackLevel = {static_cast<float>(mask / 50) + (whole ? 0.0f : 0.25f)};
                p.whiteLevel = {table ? std::max<uint32_t>(mask, 60000) + 16 : mask + 16};
                p.linearizationTable.resize(table ? std::min<uint32_t>(mask / 3 + 1, 5000) : 0);
                for (auto& t : p.linearizationTable) t = static_cast<uint16_t>(rng() % 60000);
                if (pattern) p.blackLevelRepeatDim = {2, 3}, p.blackLevel.assign(6, static_cast<float>(mask / 60));
                for (int k = 0; pattern && k < 6; ++k) p.blackLevel[k] += small(rng);
                for (int i = 0; (feature % 6 == 3 || feature % 6 == 5) && i < cols; ++i) p.blackLevelDeltaH.push_back(small(rng));
                for (int r = 0; (feature % 6 == 4 || feature % 6 == 5) && r < nRows; ++r)
                    p.blackLevelDeltaV.push_back(whole ? std::round(small(rng)) + 2.0f : small(rng));
                Rows rows(data, rowBytes, nRows);
                cd_getLinearRaw lin;
                lin.configure(p);
                for (int r = 0; r < nRows; ++r) {
                    lin.getRow(rows.access, r);
                    const auto expected = expectedRow(p, lin.normalizeRawFactor, data.data() + r * rowBytes, r);
                    ASSERT_EQ(0, std::memcmp(expected.data(), out.data() + r * cols, cols * sizeof(float)))
                        << "bits " << bits << " feature " << feature << " left " << left << " row " << r;
                }
            }
        }
    }
}
