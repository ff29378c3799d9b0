// Matrix toolkit, colorimetry and temperature/tint against hand-worked values and published data
// (Robertson's table, the sRGB and ACES AP0 matrices, Lindbloom's Bradford D65->D50 matrix).
#include <functional>

#include "cinedng/KRColorTemperature.h"
#include "colorTestUtil.h"

// CIE 1960 uv -> (x, y, 1 - x - y), in double straight from the definitions.
static std::valarray<float> uvRef(double u, double v) {
    return xyz(3.0 * u / (2.0 * u - 8.0 * v + 4.0), 2.0 * v / (2.0 * u - 8.0 * v + 4.0));
}

static KRColorTemperature fromUv(double u, double v) {
    const double d = 2.0 * u - 8.0 * v + 4.0;
    return KRColorTemperature(KRXYCoordinateMake(3.0 * u / d, 2.0 * v / d));
}

TEST(MatrixOps, HandWorkedResults) {
    const std::valarray<float> M{1, 2, 3, 4, 5, 6, 7, 8, 9};
    expectNear(multiplyMatrix(std::valarray<float>{1, 2, 3, 4, 5, 6}, std::valarray<float>{7, 8, 9, 10, 11, 12}, 3),
               {58, 64, 139, 154}, 0);
    expectNear(multiplyMatrix(std::vector<float>{1, 2, 3}, std::vector<float>{10, 20}, 1), {10, 20, 20, 40, 30, 60}, 0);
    std::vector<float> v{1, 1, 2};
    multiplyByMatrix(v, M, 3);  // the row-vector product v . M, not M . v
    EXPECT_EQ(v, (std::vector<float>{19, 23, 27}));
    expectNear(invertMatrix({2, 0, 0, 0, 4, 0, 1, 0, 1}), {0.5f, 0, 0, 0, 0.25f, 0, -0.5f, 0, 1}, 0);
    const std::valarray<float> B{0.9f, 0.2f, -0.1f, 0.05f, 1.1f, 0.3f, -0.2f, 0.1f, 0.8f};  // every cofactor counts
    expectNear(multiplyMatrix(B, invertMatrix(B), 3), identityMatrix(3), 1e-6f);
    EXPECT_TRUE(std::isnan(invertMatrix({NAN, 0, 0, 0, 1, 0, 0, 0, 1})[4]));  // a NaN determinant is not refused
    expectNear(transpose({1, 2, 3, 4, 5, 6}, 2), {1, 4, 2, 5, 3, 6}, 0);
    EXPECT_EQ(cross({1, 2}, {3, 4}), -2.0f);
}

TEST(MatrixOps, FailureTexts) {
    const std::string mult = "matrixOps::multiplyMatrix - matrix size mismatch";
    const std::string byM = "matrixOps::multiplyByMatrix - matrix size mismatch";
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { multiplyMatrix(std::valarray<float>(3), std::valarray<float>(9), 2); }, mult},
        {[] { std::vector<float> v(4); multiplyByMatrix(v, std::valarray<float>(16), 4); }, byM},
        {[] { std::vector<float> v(3); multiplyByMatrix(v, std::valarray<float>(1), 1); }, byM},  // M too small
        {[] { transpose(std::valarray<float>(6), 4); }, "matrixOps::transpose - matrix size mismatch"},
        {[] { cross(std::valarray<float>(3), std::valarray<float>(3)); }, "matrixOps::cross - matrix size mismatch"},
        {[] { invertMatrix({1, 2, 3, 2, 4, 6, 0, 0, 1}); }, "matrixOps::invertMatrix - determinant may not be zero"},
        {[] { matrixChromaticAdaptation({1, 1}, {1, 1}); }, mult},  // the product's text passes through
    };
    for (const auto& [f, text] : cases) EXPECT_EQ(failureText(f), text);
}

TEST(MatrixOpsDeathTest, InvertNeedsNineElements) {
    EXPECT_DEATH(invertMatrix(std::valarray<float>(1.0f, 4)), "mtx.size\\(\\) == 9");
}

TEST(Colorimetry, ConversionsAndLightSources) {
    const std::valarray<float> uv = xyTouv({0.3127f, 0.3290f});  // D65: d = -0.6254 + 3.948 + 3
    expectNear(uv, {static_cast<float>(4 * 0.3127 / 6.3226), static_cast<float>(6 * 0.3290 / 6.3226)}, 1e-6f);
    expectNear(XYZToxy({2.0f, 3.0f, 5.0f}), {0.2f, 0.3f}, 1e-7f);
    const std::pair<uint16_t, float> codes[] = {{21, 6500}, {17, 2856}, {4, 5500}, {10, 5550}, {32768 + 6000, 6000}};
    for (const auto& [code, kelvin] : codes) EXPECT_EQ(LightSourceToColorTemperature(code), kelvin) << code;
}

TEST(Colorimetry, TemperatureAndLocus) {
    // 200 and 250 mired are table lines: the published locus points themselves. 4500 K (222.2
    // mired) lies 8/9 of the way from the 200 to the 225 line; beyond either end, the end points.
    expectNear(ColorTemperatureToXYZ(5000.0f), uvRef(0.21142, 0.32312), 1e-6f);
    expectNear(ColorTemperatureToXYZ(4000.0f), uvRef(0.22511, 0.33439), 1e-6f);
    const double f = (1e6 / 4500.0 - 200.0) / 25.0;
    expectNear(ColorTemperatureToXYZ(4500.0f), uvRef(f * 0.21807 + (1 - f) * 0.21142, f * 0.32909 + (1 - f) * 0.32312),
               1e-6f);
    expectNear(ColorTemperatureToXYZ(INFINITY), uvRef(0.18006, 0.26352), 1e-6f);
    expectNear(ColorTemperatureToXYZ(1000.0f), uvRef(0.33724, 0.36051), 1e-6f);
    for (float T = 1000.0f; T <= 100000.0f; T *= 1.1f) EXPECT_NEAR(ColorTemperatureToXYZ(T).sum(), 1.0f, 1e-6f) << T;

    // D65 is about 6504 K by Robertson's method; round trips along the locus at any XYZ scale.
    EXPECT_NEAR(XYZToColorTemperature(xyz(0.3127, 0.3290)), 6504.0f, 6.0f);
    for (float T = 2100.0f; T < 40000.0f; T *= 1.07f)
        EXPECT_NEAR(XYZToColorTemperature(ColorTemperatureToXYZ(T) * 7.0f), T, T * 0.002f) << T;
    // Bluer than the first line: 10^6 / 1e-10 clamped to 50000; redder than 600 mired: 1666.7 K
    // clamped to 2000.
    EXPECT_EQ(XYZToColorTemperature(uvToXYZ({0.17f, 0.25f})), 50000.0f);
    EXPECT_EQ(XYZToColorTemperature(uvToXYZ({0.36f, 0.36f})), 2000.0f);
    EXPECT_EQ(Robertson_uvtTable[19][0], 0.24702f);  // the published 325-mired u
}

TEST(Colorimetry, RGBMatricesAndAdaptation) {
    // sRGB primaries with D65 reproduce the published sRGB matrix to about four decimals; the
    // default EXR header's (ACES) chromaticities give the published AP0 matrix.
    expectNear(matrixRGBtoXYZ(std::valarray<float>{0.64f, 0.33f, 0.30f, 0.60f, 0.15f, 0.06f, 0.3127f, 0.3290f}),
               matrixsRGBtoXYZ(), 3e-4f);
    expectNear(matrixRGBtoXYZ(openEXRHeaderInfo().chromaticities),
               {0.9525524f, 0, 0.0000937f, 0.3439664f, 0.7281661f, -0.0721325f, 0, 0, 1.0088252f}, 2e-5f);
    // The generic RGB matrix is used as listed: a D50-like white.
    expectNear(multiplyMatrix(matrixAppleGenericRGBToXYZ(), unitTriple, 3), {0.964f, 1.0f, 0.824f}, 1e-6f);
    // Lindbloom's Bradford D65 -> D50; equal whites give the identity.
    expectNear(matrixChromaticAdaptation({0.95047f, 1.0f, 1.08883f}, {0.96422f, 1.0f, 0.82521f}),
               {1.0478112f, 0.0228866f, -0.0501270f, 0.0295424f, 0.9904844f, -0.0170491f, -0.0092345f, 0.0150436f,
                0.7521316f},
               2e-5f);
    expectNear(matrixChromaticAdaptation(xyz(0.3, 0.31), xyz(0.3, 0.31)), identityMatrix(3), 1e-6f);
}

TEST(Colorimetry, EncodingAndToneCurve) {
    // 0.0031308 takes the linear branch: 255 * 12.92 * 0.0031308 + 0.5 = 10.8; 18 % grey:
    // 1.055 * 0.18^(1/2.4) - 0.055 = 0.4614 -> 118.
    const std::pair<float, int> codes[] = {{-1.0f, 0}, {2.0f, 255}, {NAN, 0}, {0.0031308f, 10}, {0.18f, 118}};
    for (const auto& [L, code] : codes) EXPECT_EQ(LuminanceTo8bitsRGB(L), code) << L;
    EXPECT_NEAR(toneCurve1(1.0f), 1.0f, 1e-6f);
    EXPECT_NEAR(toneCurve1(0.5f), 0.25f + 1.025f - 0.7875f + 0.16875f, 1e-6f);
}

TEST(ColorTemperatureTint, LocusTintAndEndsOfTheTable) {
    EXPECT_NEAR(fromUv(0.21142, 0.32312).tint(), 0.0, 1e-9);
    const KRColorTemperature between = fromUv((0.21142 + 0.21807) / 2, (0.32312 + 0.32909) / 2);
    EXPECT_NEAR(1e6 / between.temperature(), 212.5, 1.0);
    EXPECT_NEAR(between.tint(), 0.0, 0.1);
    // Along the 250-mired isotemperature line: same temperature, tint -3000 x the offset.
    const double t = -1.4512, len = std::sqrt(1 + t * t);
    const KRColorTemperature offset = fromUv(0.22511 + 0.002 / len, 0.33439 + 0.002 * t / len);
    EXPECT_NEAR(offset.temperature(), 4000.0, 1e-6);
    EXPECT_NEAR(offset.tint(), -6.0, 1e-6);
    // Bluer than the 10-mired line: 100000 K; redder than the 600-mired line: 10^6 / 600.
    EXPECT_DOUBLE_EQ(fromUv(0.17, 0.25).temperature(), 100000.0);
    EXPECT_NEAR(fromUv(0.36, 0.36).temperature(), 1666.6667, 1e-3);
}

TEST(ColorTemperatureTint, WhiteBalanceRoundsToFiftyKelvin) {
    // Bisect along the chord from the 200 to the 175 mired locus point for whites that read 5474 K
    // and 5475 K, then round as the metadata dictionary does: round(T / 50) * 50.
    auto at = [](double g) { return fromUv(0.21142 + g * (0.20525 - 0.21142), 0.32312 + g * (0.31647 - 0.32312)); };
    for (const double target : {5474.0, 5475.0}) {
        double lo = 0.0, hi = 1.0;
        for (int i = 0; i < 60; ++i) (at((lo + hi) / 2).temperature() < target ? lo : hi) = (lo + hi) / 2;
        EXPECT_NEAR(at(hi).temperature(), target, 1e-6);
        EXPECT_EQ(std::round(at(hi).temperature() / 50.0) * 50.0, target == 5474.0 ? 5450.0 : 5500.0);
    }
}
