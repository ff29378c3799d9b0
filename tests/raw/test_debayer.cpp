#include <gtest/gtest.h>

#include <vector>

#include "cinedng/cd_Debayer.h"
#include "cinedng/cd_exception.h"

using namespace cinedng;

namespace {

// A raw image filled by fill(r, c), an output row buffer, and a configured debayer over them.
struct Rig {
    std::vector<float> raw, row;
    debayerParams p;
    cd_Debayer d;

    Rig(int inRows, int inCols, int outRows, int outCols, int rowOff, int colOff, float (*fill)(int, int),
        std::vector<uint8_t> pattern = {0, 1, 1, 2}) {
        for (int r = 0; r < inRows; ++r)
            for (int c = 0; c < inCols; ++c) raw.push_back(fill(r, c));
        row.assign(static_cast<size_t>(outCols) * 3, -99.0f);  // exactly one row: the sanitizer build sees overruns
        p = debayerParams{inRows, inCols, raw.data(), rowOff, colOff, outRows, outCols, 0, row.data(), {2, 2}, pattern};
    }
    void configure() { d.configure(p); }
    std::vector<float> getRow(int r) { d.getRow(r); return row; }
};

float ramp(int r, int c) { return static_cast<float>((r * 7 + c * 3) % 13) + 0.5f; }

}  // namespace

TEST(Debayer, UniformImageGivesItsValueEverywhere) {
    for (int off : {0, 1, 2}) {
        for (const auto& pattern : std::vector<std::vector<uint8_t>>{{0, 1, 1, 2}, {1, 2, 0, 1}, {1, 0, 2, 1}, {2, 1, 1, 0}}) {
            Rig rig(9, 11, 9 - off, 11 - off, off, off, [](int, int) { return 0.375f; }, pattern);
            rig.configure();
            // The walked pixels, and the last one when the right fix-up copies a walked pixel into it
            // (with a left margin the walk ends short of the row and the tail is not written).
            const int checked = rig.p.outputCols - rig.d.leftMargin - (rig.d.leftMargin ? rig.d.rightMargin : 0);
            for (int r = 0; r < rig.p.outputRows; ++r) {
                const auto px = rig.getRow(r);
                for (int i = 0; i < checked * 3; ++i) ASSERT_EQ(px[i], 0.375f) << off << " row " << r << " at " << i;
            }
        }
    }
}

TEST(DebayerDeathTest, EdgeRowsRepeatTheNearestInteriorRowAndTheLeftMarginCopiesPixelOne) {
    Rig rig(8, 8, 8, 6, 0, 2, ramp);
    rig.configure();
    ASSERT_EQ(rig.d.topMargin, 1);
    EXPECT_EQ(rig.getRow(0), rig.getRow(1));
    EXPECT_EQ(rig.getRow(-5), rig.getRow(1));
    EXPECT_EQ(rig.getRow(7), rig.getRow(6));

    Rig left(6, 10, 4, 8, 1, 0, ramp);
    left.configure();
    ASSERT_EQ(left.d.leftMargin, 1);
    const auto px = left.getRow(2);
    EXPECT_EQ(std::vector<float>(px.begin(), px.begin() + 3), std::vector<float>(px.begin() + 3, px.begin() + 6));
    EXPECT_EQ(px[4], ramp(3, 2));  // packed from pixel 0: pixel 1 is raw (3, 2), a green site

    Rig above(4, 8, 4, 4, -5, 2, ramp);  // the clamped row would lie above the raw image
    above.configure();
    EXPECT_THROW(above.d.getRow(1), cd_exception);
    // configure asserts a 2 x 2 pattern whose first entry is a colour.
    above.p.cfaPattern = {3, 1, 1, 2};
    EXPECT_DEATH(above.configure(), "\\* pCFAPattern < 3");
    above.p.cfaRepeatPatternDim = {3, 3};
    above.p.cfaPattern.assign(9, 1);
    EXPECT_DEATH(above.configure(), "CFARows == 2");
}

// Values worked out by hand on an RGGB image with raw(r, c) = 10 r + c (+ 0.5 in column 3). The 5
// output pixels leave the last pair with one site, which must not write past the row.
TEST(Debayer, InterpolatesNeighboursAsTheRulesSay) {
    Rig rig(6, 9, 4, 5, 1, 2, [](int r, int c) { return static_cast<float>(10 * r + c) + (c == 3 ? 0.5f : 0.0f); });
    rig.configure();
    // Raw row 2 (R G): a red site (G from its four neighbours, B from its diagonals), then a green one
    // (R from left and right, B from above and below).
    auto px = rig.getRow(1);
    EXPECT_EQ(std::vector<float>(px.begin(), px.begin() + 6),
              (std::vector<float>{22, (12 + 21 + 23.5f + 32) / 4, (11 + 13.5f + 31 + 33.5f) / 4, (22 + 24) / 2.0f, 23.5f, (13.5f + 33.5f) / 2}));
    // Raw row 3 (G B): a green site (B from left and right, R from above and below), then a blue one.
    px = rig.getRow(2);
    EXPECT_EQ(std::vector<float>(px.begin(), px.begin() + 6),
              (std::vector<float>{(22 + 42) / 2.0f, 32, (31 + 33.5f) / 2, (22 + 24 + 42 + 44) / 4.0f, (23.5f + 32 + 34 + 43.5f) / 4, 33.5f}));
}
