#include <gtest/gtest.h>

#include <vector>

#include "cinedng/cd_Debayer.h"
#include "cinedng/cd_exception.h"

using namespace cinedng;

namespace {

struct DebayerFixture {
    std::vector<float> raw;
    std::vector<float> rowOut;
    debayerParams p;

    DebayerFixture(int inRows, int inCols, int outRows, int outCols, int rowOff, int colOff,
                   std::vector<uint8_t> pattern = {0, 1, 1, 2}) {
        raw.resize(static_cast<size_t>(inRows) * inCols);
        rowOut.assign(static_cast<size_t>(outCols) * 3, -99.0f);
        p.inputRows = inRows;
        p.inputCols = inCols;
        p.pRawImagePixels = raw.data();
        p.rowOffset = rowOff;
        p.colOffset = colOff;
        p.outputRows = outRows;
        p.outputCols = outCols;
        p.pOutputRowData = rowOut.data();
        p.cfaRepeatPatternDim = {2, 2};
        p.cfaPattern = std::move(pattern);
    }
    float& at(int r, int c) { return raw[static_cast<size_t>(r) * p.inputCols + c]; }
};

}  // namespace

TEST(DebayerDeathTest, ConfigureAssertsPatternAndBuffers) {
    DebayerFixture f(4, 4, 4, 4, 0, 0);
    cd_Debayer d;
    auto p = f.p;
    p.cfaRepeatPatternDim = {3, 3};
    p.cfaPattern.assign(9, 1);
    EXPECT_DEATH(d.configure(p), "CFARows == 2");
    p = f.p;
    p.cfaPattern = {3, 1, 1, 2};
    EXPECT_DEATH(d.configure(p), "\\* pCFAPattern < 3");
    p = f.p;
    p.pOutputRowData = nullptr;
    EXPECT_DEATH(d.configure(p), "pOutputRowData != NULL");
}

TEST(Debayer, UniformImageGivesItsValueEverywhere) {
    for (int off : {0, 1, 2}) {
        for (auto pattern : {std::vector<uint8_t>{0, 1, 1, 2}, std::vector<uint8_t>{1, 2, 0, 1},
                             std::vector<uint8_t>{1, 0, 2, 1}, std::vector<uint8_t>{2, 1, 1, 0}}) {
            DebayerFixture f(9, 11, 9 - off, 11 - off, off, off, pattern);
            std::fill(f.raw.begin(), f.raw.end(), 0.375f);
            cd_Debayer d;
            d.configure(f.p);
            for (int r = 0; r < f.p.outputRows; ++r) {
                d.getRow(r);
                // The walk fills pixels from 0 on; with no left margin the right fix-up copies a
                // walked pixel into the last one.
                const int covered = f.p.outputCols - d.leftMargin - d.rightMargin;
                for (int i = 0; i < covered * 3; ++i) ASSERT_EQ(f.rowOut[i], 0.375f) << r << " " << i;
                if (d.rightMargin && !d.leftMargin)
                    for (int i = covered * 3; i < f.p.outputCols * 3; ++i) ASSERT_EQ(f.rowOut[i], 0.375f);
            }
        }
    }
}

TEST(Debayer, EdgeRowsRepeatTheNearestInteriorRow) {
    DebayerFixture f(8, 8, 8, 6, 0, 2);
    for (size_t i = 0; i < f.raw.size(); ++i) f.raw[i] = static_cast<float>(i * 7 % 13);
    cd_Debayer d;
    d.configure(f.p);
    ASSERT_EQ(d.topMargin, 1);
    d.getRow(0);
    const auto row0 = f.rowOut;
    d.getRow(1);
    EXPECT_EQ(row0, f.rowOut);
    d.getRow(-5);
    EXPECT_EQ(row0, f.rowOut);
    d.getRow(7);
    const auto last = f.rowOut;
    d.getRow(6);
    EXPECT_EQ(last, f.rowOut);
}

TEST(Debayer, LeftMarginCopiesPixelOneIntoPixelZero) {
    DebayerFixture f(6, 10, 4, 8, 1, 0);
    for (size_t i = 0; i < f.raw.size(); ++i) f.raw[i] = static_cast<float>(i % 17) + 0.5f;
    cd_Debayer d;
    d.configure(f.p);
    ASSERT_EQ(d.leftMargin, 1);
    ASSERT_EQ(d.rightMargin, 0);
    d.getRow(2);
    for (int ch = 0; ch < 3; ++ch) EXPECT_EQ(f.rowOut[ch], f.rowOut[3 + ch]);
    // Packed from pixel 0: output pixel 1 belongs to raw column c0 + 1 = 2 (a G B row at raw row 3:
    // green site, so its own value is G).
    EXPECT_EQ(f.rowOut[4], f.at(3, 2));
}

// Values worked out by hand on an RGGB image with raw(r, c) = 10 r + c.
TEST(Debayer, InterpolatesNeighboursAsTheRulesSay) {
    DebayerFixture f(6, 8, 4, 4, 1, 2);  // R G / G B, red row 0
    for (int r = 0; r < 6; ++r)
        for (int c = 0; c < 8; ++c) f.at(r, c) = static_cast<float>(10 * r + c) + (c == 3 ? 0.5f : 0.0f);
    cd_Debayer d;
    d.configure(f.p);
    d.getRow(1);  // raw row 2: an R G row; leftMargin 0, pattern column 0 is red, so green is second
    const float* px = f.rowOut.data();
    // Pixel 0: raw (2, 2), red site. G = (12 + 21 + 23.5 + 32) / 4; B = (11 + 13 + 31 + 33) / 4.
    EXPECT_EQ(px[0], 22.0f);
    EXPECT_EQ(px[1], (12.0f + 21.0f + 23.5f + 32.0f) / 4.0f);
    EXPECT_EQ(px[2], (11.0f + 13.5f + 31.0f + 33.5f) / 4.0f);
    // Pixel 1: raw (2, 3), green site in a red row: R from left/right, B from above/below.
    EXPECT_EQ(px[3], (22.0f + 24.0f) / 2.0f);
    EXPECT_EQ(px[4], 23.5f);
    EXPECT_EQ(px[5], (13.5f + 33.5f) / 2.0f);

    d.getRow(2);  // raw row 3: G B, green first
    // Pixel 0: raw (3, 2), green site in a blue row: B from left/right, R from above/below.
    EXPECT_EQ(px[0], (22.0f + 42.0f) / 2.0f);
    EXPECT_EQ(px[1], 32.0f);
    EXPECT_EQ(px[2], (31.0f + 33.5f) / 2.0f);
    // Pixel 1: raw (3, 3), blue site.
    EXPECT_EQ(px[5], 33.5f);
    EXPECT_EQ(px[0 + 3], (22.0f + 24.0f + 42.0f + 44.0f) / 4.0f);
}

TEST(Debayer, OddCoveredWidthWritesOnlyItsOwnPixels) {
    // 5 covered pixels: the last pair has only its first site; nothing past the row is touched.
    DebayerFixture f(6, 9, 4, 5, 1, 2);
    std::fill(f.raw.begin(), f.raw.end(), 2.0f);
    f.rowOut.push_back(-7.0f);  // sentinel just past the row
    f.p.pOutputRowData = f.rowOut.data();
    cd_Debayer d;
    d.configure(f.p);
    ASSERT_EQ(d.leftMargin + d.rightMargin, 0);
    d.getRow(1);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(f.rowOut[i], 2.0f);
    EXPECT_EQ(f.rowOut[15], -7.0f);
}

TEST(Debayer, RefusesAWindowOutsideTheRawImage) {
    DebayerFixture f(4, 8, 4, 4, -5, 2);  // a negative row offset puts the clamped row above the image
    cd_Debayer d;
    d.configure(f.p);
    EXPECT_THROW(d.getRow(1), cd_exception);
}
