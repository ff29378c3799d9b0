// Matrix toolkit: shapes, orientation, inversion and the exact failure texts.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <valarray>
#include <vector>

#include "cinedng/cd_exception.h"
#include "cinedng/matrixOps.h"

using namespace cinedng;

namespace {

std::string failureText(void (*f)()) {
    try {
        f();
    } catch (const cd_exception& e) {
        return e.what();
    }
    return "(no failure)";
}

void expectEq(const std::valarray<float>& got, const std::vector<float>& want, float tol = 0.0f) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_NEAR(got[i], want[i], tol) << "element " << i;
    }
}

}  // namespace

TEST(MatrixOps, MultiplyShapesAndValues) {
    const std::valarray<float> M{1, 2, 3, 4, 5, 6, 7, 8, 9};
    const std::valarray<float> col{1, 0, -1};
    // 3x3 times a 3x1 column.
    expectEq(multiplyMatrix(M, col, 3), {-2, -2, -2});
    // 1x3 row times 3x3 (inner dimension 3 again: A is 1x3).
    expectEq(multiplyMatrix(col, M, 3), {-6, -6, -6});
    // n = 1: an outer product of a 3x1 and a 1x2.
    expectEq(multiplyMatrix(std::valarray<float>{1, 2, 3}, std::valarray<float>{10, 20}, 1),
             {10, 20, 20, 40, 30, 60});
    // 2x3 times 3x2.
    expectEq(multiplyMatrix(std::valarray<float>{1, 2, 3, 4, 5, 6}, std::valarray<float>{7, 8, 9, 10, 11, 12}, 3),
             {58, 64, 139, 154});

    // All four pairings of value array and float vector agree.
    const std::vector<float> Mv{1, 2, 3, 4, 5, 6, 7, 8, 9};
    const std::vector<float> colv{1, 0, -1};
    expectEq(multiplyMatrix(Mv, col, 3), {-2, -2, -2});
    expectEq(multiplyMatrix(M, colv, 3), {-2, -2, -2});
    expectEq(multiplyMatrix(Mv, colv, 3), {-2, -2, -2});
}

TEST(MatrixOps, SizeFailuresCarryTheirTexts) {
    EXPECT_EQ(failureText([] { multiplyMatrix(std::valarray<float>(3), std::valarray<float>(9), 2); }),
              "matrixOps::multiplyMatrix - matrix size mismatch");
    EXPECT_EQ(failureText([] { multiplyMatrix(std::vector<float>(9), std::vector<float>(4), 3); }),
              "matrixOps::multiplyMatrix - matrix size mismatch");
    EXPECT_EQ(failureText([] { multiplyMatrix(std::vector<float>(9), std::valarray<float>(9), 0); }),
              "matrixOps::multiplyMatrix - matrix size mismatch");
    EXPECT_EQ(failureText([] {
                  std::vector<float> v(4, 1.0f);
                  multiplyByMatrix(v, std::valarray<float>(16), 4);
              }),
              "matrixOps::multiplyByMatrix - matrix size mismatch");
    EXPECT_EQ(failureText([] {
                  std::vector<float> v(3, 1.0f);
                  multiplyByMatrix(v, std::valarray<float>(1.0f, 1), 1);  // would read past M
              }),
              "matrixOps::multiplyByMatrix - matrix size mismatch");
    EXPECT_EQ(failureText([] { transpose(std::valarray<float>(6), 4); }),
              "matrixOps::transpose - matrix size mismatch");
    EXPECT_EQ(failureText([] { cross(std::valarray<float>(3), std::valarray<float>(3)); }),
              "matrixOps::cross - matrix size mismatch");
    EXPECT_EQ(failureText([] { invertMatrix(std::valarray<float>(0.0f, 9)); }),
              "matrixOps::invertMatrix - determinant may not be zero");
    EXPECT_EQ(failureText([] { invertMatrix(std::valarray<float>{1, 2, 3, 2, 4, 6, 0, 0, 1}); }),
              "matrixOps::invertMatrix - determinant may not be zero");
}

TEST(MatrixOps, MultiplyByMatrixIsTheRowVectorProduct) {
    const std::valarray<float> M{1, 2, 3, 4, 5, 6, 7, 8, 9};
    std::vector<float> v{1, 0, 0};
    multiplyByMatrix(v, M, 3);
    EXPECT_EQ(v, (std::vector<float>{1, 2, 3}));  // first ROW of M, not its first column
    v = {1, 1, 2};
    multiplyByMatrix(v, M, 3);
    EXPECT_EQ(v, (std::vector<float>{19, 23, 27}));
}

TEST(MatrixOps, InvertByCofactors) {
    expectEq(invertMatrix(identityMatrix(3)), {1, 0, 0, 0, 1, 0, 0, 0, 1});
    // det = 2*4*1 = 8; inverse worked out by hand.
    const std::valarray<float> A{2, 0, 0, 0, 4, 0, 1, 0, 1};
    expectEq(invertMatrix(A), {0.5f, 0, 0, 0, 0.25f, 0, -0.5f, 0, 1});
    const std::valarray<float> B{0.9f, 0.2f, -0.1f, 0.05f, 1.1f, 0.3f, -0.2f, 0.1f, 0.8f};
    expectEq(multiplyMatrix(B, invertMatrix(B), 3), {1, 0, 0, 0, 1, 0, 0, 0, 1}, 1e-6f);
    // A NaN determinant is not refused; it spreads into the result.
    std::valarray<float> C = identityMatrix(3);
    C[0] = std::nanf("");
    const std::valarray<float> inv = invertMatrix(C);
    EXPECT_TRUE(std::isnan(inv[4]));
}

TEST(MatrixOpsDeathTest, InvertNeedsNineElements) {
    EXPECT_DEATH(invertMatrix(std::valarray<float>(1.0f, 4)), "mtx.size\\(\\) == 9");
}

TEST(MatrixOps, TransposeAndAssign) {
    // 2 rows of 3 become 3 rows of 2.
    expectEq(transpose(std::valarray<float>{1, 2, 3, 4, 5, 6}, 2), {1, 4, 2, 5, 3, 6});
    EXPECT_EQ(cross(std::valarray<float>{1, 2}, std::valarray<float>{3, 4}), -2.0f);
    std::valarray<float> dst{9, 9};
    valarrayassign(dst, std::vector<float>{1, 2, 3});  // resized to the source
    expectEq(dst, {1, 2, 3});
}
