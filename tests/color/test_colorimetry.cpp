// Colorimetry checked against hand-worked values and published data (Robertson's table, the sRGB
// matrix, Lindbloom's Bradford D65->D50 matrix).
#include <gtest/gtest.h>

#include <cmath>
#include <valarray>
#include <vector>

#include "cinedng/KRColorTemperature.h"
#include "cinedng/cd_exrStructs.h"
#include "cinedng/matrixOps.h"

using namespace cinedng;

namespace {

// CIE 1960 uv -> (x, y, 1 - x - y) in double, straight from the definitions.
std::vector<double> uvToXYZRef(double u, double v) {
    const double d = 2.0 * u - 8.0 * v + 4.0;
    const double x = 3.0 * u / d;
    const double y = 2.0 * v / d;
    return {x, y, 1.0 - x - y};
}

std::valarray<float> xyz(double x, double y) {
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(1.0 - x - y)};
}

}  // namespace

TEST(Colorimetry, Conversions) {
    // D65: x 0.3127, y 0.3290 -> u 0.19783, v 0.31221 (hand-worked: d = -0.6254 + 3.948 + 3).
    const std::valarray<float> uv = xyTouv({0.3127f, 0.3290f});
    EXPECT_NEAR(uv[0], 4 * 0.3127 / 6.3226, 1e-6);
    EXPECT_NEAR(uv[1], 6 * 0.3290 / 6.3226, 1e-6);
    const std::valarray<float> back = uvToxy(uv);
    EXPECT_NEAR(back[0], 0.3127f, 1e-6);
    EXPECT_NEAR(back[1], 0.3290f, 1e-6);
    // XYZ with Y = 1 gives the same uv as its chromaticity.
    const std::valarray<float> uv2 = XYZTouv({0.95047f, 1.0f, 1.08883f});
    EXPECT_NEAR(uv2[0], uv[0], 2e-5);
    EXPECT_NEAR(uv2[1], uv[1], 2e-5);
    const std::valarray<float> xy = XYZToxy({2.0f, 3.0f, 5.0f});
    EXPECT_FLOAT_EQ(xy[0], 0.2f);
    EXPECT_FLOAT_EQ(xy[1], 0.3f);
    const std::valarray<float> X = xyToXYZ({0.25f, 0.5f});
    EXPECT_EQ(X.size(), 3u);
    EXPECT_FLOAT_EQ(X[2], 0.25f);
}

TEST(Colorimetry, LightSourceCodes) {
    EXPECT_EQ(LightSourceToColorTemperature(21), 6500.0f);
    EXPECT_EQ(LightSourceToColorTemperature(17), 2856.0f);
    EXPECT_EQ(LightSourceToColorTemperature(4), 5500.0f);  // flash: the default
    EXPECT_EQ(LightSourceToColorTemperature(10), 5550.0f);
    EXPECT_EQ(LightSourceToColorTemperature(32767), 5500.0f);
    EXPECT_EQ(LightSourceToColorTemperature(32768 + 6000), 6000.0f);
    EXPECT_EQ(LightSourceToColorTemperature(32768), 0.0f);
}

TEST(Colorimetry, ColorTemperatureToXYZHitsTheTableAndInterpolates) {
    // 5000 K is exactly 200 mired and 4000 K exactly 250: the published locus points themselves.
    EXPECT_EQ((ColorTemperatureToXYZ(5000.0f) == uvToXYZ({0.21142f, 0.32312f})).min(), true);
    EXPECT_EQ((ColorTemperatureToXYZ(4000.0f) == uvToXYZ({0.22511f, 0.33439f})).min(), true);
    const std::vector<double> ref5000 = uvToXYZRef(0.21142, 0.32312);
    const std::valarray<float> w5000 = ColorTemperatureToXYZ(5000.0f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(w5000[i], ref5000[i], 1e-6);

    // 4500 K = 222.2 mired: 8/9 of the way from the 200 to the 225 line.
    const double f = (1e6 / 4500.0 - 200.0) / 25.0;
    const std::vector<double> ref4500 =
        uvToXYZRef(f * 0.21807 + (1 - f) * 0.21142, f * 0.32909 + (1 - f) * 0.32312);
    const std::valarray<float> w4500 = ColorTemperatureToXYZ(4500.0f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(w4500[i], ref4500[i], 1e-6);

    // Beyond either end of the table: the end points.
    const std::vector<double> refBlue = uvToXYZRef(0.18006, 0.26352);
    const std::vector<double> refRed = uvToXYZRef(0.33724, 0.36051);
    EXPECT_NEAR(ColorTemperatureToXYZ(INFINITY)[0], refBlue[0], 1e-6);
    EXPECT_NEAR(ColorTemperatureToXYZ(1000.0f)[0], refRed[0], 1e-6);

    for (float T = 1000.0f; T <= 100000.0f; T *= 1.1f) {
        EXPECT_NEAR(ColorTemperatureToXYZ(T).sum(), 1.0f, 1e-6f) << T;
    }
}

TEST(Colorimetry, XYZToColorTemperature) {
    // D65 by Robertson's method is about 6504 K.
    EXPECT_NEAR(XYZToColorTemperature(xyz(0.3127, 0.3290)), 6504.0f, 6.0f);
    // Illuminant A (x 0.44757, y 0.40745) is 2856 K.
    EXPECT_NEAR(XYZToColorTemperature(xyz(0.44757, 0.40745)), 2856.0f, 5.0f);
    // Table points come back as their own temperature; the scale of the XYZ does not matter.
    EXPECT_NEAR(XYZToColorTemperature(ColorTemperatureToXYZ(5000.0f)), 5000.0f, 0.5f);
    EXPECT_NEAR(XYZToColorTemperature(ColorTemperatureToXYZ(4000.0f) * 7.0f), 4000.0f, 0.5f);
    for (float T = 2100.0f; T < 40000.0f; T *= 1.07f) {
        EXPECT_NEAR(XYZToColorTemperature(ColorTemperatureToXYZ(T)), T, T * 0.002f) << T;
    }
    // Bluer than the first line: 10^6 / 1e-10, clamped to 50000. Redder than 600 mired: 1666.7 K,
    // clamped to 2000.
    EXPECT_EQ(XYZToColorTemperature(uvToXYZ({0.17f, 0.25f})), 50000.0f);
    EXPECT_EQ(XYZToColorTemperature(uvToXYZ({0.36f, 0.36f})), 2000.0f);
    // A point on a line has distance 0 from it.
    EXPECT_NEAR(RobertsonDistance({0.22511f, 0.33439f}, Robertson_uvtTable[16]), 0.0f, 1e-7f);
    EXPECT_EQ(RobertsonMired[0], 1.0e-10f);
    EXPECT_EQ(Robertson_uvtTable[19][0], 0.24702f);
}

TEST(Colorimetry, RGBtoXYZFromPrimaries) {
    // sRGB primaries with the D65 white reproduce the published sRGB matrix to about four decimals
    // (the published Z row is rounded from a slightly different white, hence 3e-4).
    const std::valarray<float> m = matrixRGBtoXYZ(std::valarray<float>{0.64f, 0.33f, 0.30f, 0.60f, 0.15f, 0.06f,
                                                                       0.3127f, 0.3290f});
    const std::valarray<float> ref = matrixsRGBtoXYZ();
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(m[i], ref[i], 3e-4f) << i;
    // White maps to the white with Y = 1.
    const std::valarray<float> w = multiplyMatrix(m, unitTriple, 3);
    EXPECT_NEAR(w[0], 0.3127f / 0.3290f, 1e-5f);
    EXPECT_NEAR(w[1], 1.0f, 1e-6f);

    // The EXR record's chromaticities (ACES by default) give the ACES AP0 matrix.
    const openEXRHeaderInfo header;
    const std::valarray<float> aces = matrixRGBtoXYZ(header.chromaticities);
    const std::vector<float> ap0{0.9525524f, 0.0f, 0.0000937f, 0.3439664f, 0.7281661f, -0.0721325f,
                                 0.0f, 0.0f, 1.0088252f};
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(aces[i], ap0[i], 2e-5f) << i;

    // The generic RGB matrix is used as listed: its white is D50-like.
    const std::valarray<float> g = multiplyMatrix(matrixAppleGenericRGBToXYZ(), unitTriple, 3);
    EXPECT_NEAR(g[0], 0.964f, 1e-6f);
    EXPECT_NEAR(g[2], 0.824f, 1e-6f);
}

TEST(Colorimetry, BradfordAdaptation) {
    // Lindbloom's published Bradford D65 -> D50 matrix.
    const std::valarray<float> a =
        matrixChromaticAdaptation({0.95047f, 1.0f, 1.08883f}, {0.96422f, 1.0f, 0.82521f});
    const std::vector<float> ref{1.0478112f, 0.0228866f, -0.0501270f, 0.0295424f, 0.9904844f,
                                 -0.0170491f, -0.0092345f, 0.0150436f, 0.7521316f};
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(a[i], ref[i], 2e-5f) << i;
    // Same white on both sides: the identity.
    const std::valarray<float> id = matrixChromaticAdaptation(xyz(0.3, 0.31), xyz(0.3, 0.31));
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(id[i], i % 4 == 0 ? 1.0f : 0.0f, 1e-6f);
}

TEST(Colorimetry, EncodingAndToneCurve) {
    EXPECT_EQ(LuminanceTo8bitsRGB(-1.0f), 0);
    EXPECT_EQ(LuminanceTo8bitsRGB(2.0f), 255);
    EXPECT_EQ(LuminanceTo8bitsRGB(1.0f), 255);
    EXPECT_EQ(LuminanceTo8bitsRGB(std::nanf("")), 0);
    // 0.0031308 itself takes the linear branch: 255 * 12.92 * 0.0031308 + 0.5 = 10.81 -> 10.
    EXPECT_EQ(LuminanceTo8bitsRGB(0.0031308f), 10);
    // 18% grey: 1.055 * 0.18^(1/2.4) - 0.055 = 0.4614 -> 118.
    EXPECT_EQ(LuminanceTo8bitsRGB(0.18f), 118);
    EXPECT_EQ(toneCurve1(0.0f), 0.0f);
    EXPECT_NEAR(toneCurve1(1.0f), 1.0f, 1e-6f);
    EXPECT_NEAR(toneCurve1(0.5f), 0.25f + 1.025f - 0.7875f + 0.16875f, 1e-6f);
}

// ---- double-precision temperature and tint ---------------------------------------------------

namespace {

KRColorTemperature fromUv(double u, double v) {
    const double d = 2.0 * u - 8.0 * v + 4.0;
    return KRColorTemperature(KRXYCoordinateMake(3.0 * u / d, 2.0 * v / d));
}

double roundedToFifty(double T) { return std::round(T / 50.0) * 50.0; }

}  // namespace

TEST(ColorTemperatureTint, LocusPointsHaveNoTint) {
    const KRColorTemperature onLine = fromUv(0.21142, 0.32312);
    EXPECT_NEAR(onLine.temperature(), 5000.0, 1e-6);
    EXPECT_NEAR(onLine.tint(), 0.0, 1e-9);
    // Half-way along the chord between the 200 and 225 mired points.
    const KRColorTemperature between = fromUv((0.21142 + 0.21807) / 2, (0.32312 + 0.32909) / 2);
    EXPECT_GT(between.temperature(), 1e6 / 225.0);
    EXPECT_LT(between.temperature(), 5000.0);
    EXPECT_NEAR(1e6 / between.temperature(), 212.5, 1.0);
    EXPECT_NEAR(between.tint(), 0.0, 0.1);
    // Off the locus along the isotemperature line: same temperature, tint of -3000 x the offset.
    const double t = -1.4512, len = std::sqrt(1 + t * t);
    const KRColorTemperature offset = fromUv(0.22511 + 0.002 / len, 0.33439 + 0.002 * t / len);
    EXPECT_NEAR(offset.temperature(), 4000.0, 1e-6);
    EXPECT_NEAR(offset.tint(), -6.0, 1e-6);
}

TEST(ColorTemperatureTint, AgreesWithTheFloatMethodAndEndsOfTheTable) {
    const KRColorTemperature d65(KRXYCoordinateMake(0.3127, 0.3290));
    EXPECT_NEAR(d65.temperature(), 6504.0, 6.0);
    EXPECT_NEAR(d65.temperature(), XYZToColorTemperature(xyz(0.3127, 0.3290)), 1.0);
    // Bluer than the 10-mired line: 100000 K. Redder than the 600-mired line: 10^6 / 600.
    EXPECT_DOUBLE_EQ(fromUv(0.17, 0.25).temperature(), 100000.0);
    EXPECT_NEAR(fromUv(0.36, 0.36).temperature(), 1666.6667, 1e-3);

    KRColorTemperature set(3200.0, 12.5);
    EXPECT_EQ(set.temperature(), 3200.0);
    EXPECT_EQ(set.tint(), 12.5);
    set.setTemperature(5600.0);
    set.setTint(-1.0);
    EXPECT_EQ(set.temperature(), 5600.0);
    EXPECT_EQ(set.tint(), -1.0);
}

TEST(ColorTemperatureTint, WhiteBalanceRoundsToFiftyKelvin) {
    // Walk along the chord between the 175 and 200 mired locus points until the temperature read
    // back is 5474 K and 5475 K, then apply the rounding of the metadata dictionary.
    auto at = [](double target) {
        double lo = 0.0, hi = 1.0;  // fraction from the 200 towards the 175 line
        for (int i = 0; i < 100; ++i) {
            const double mid = (lo + hi) / 2;
            const double T = fromUv(0.21142 + mid * (0.20525 - 0.21142), 0.32312 + mid * (0.31647 - 0.32312))
                                 .temperature();
            (T < target ? lo : hi) = mid;
        }
        return fromUv(0.21142 + hi * (0.20525 - 0.21142), 0.32312 + hi * (0.31647 - 0.32312)).temperature();
    };
    const double t5474 = at(5474.0);
    const double t5475 = at(5475.0);
    EXPECT_NEAR(t5474, 5474.0, 1e-6);
    EXPECT_NEAR(t5475, 5475.0, 1e-6);
    EXPECT_EQ(roundedToFifty(t5474), 5450.0);
    EXPECT_EQ(roundedToFifty(t5475), 5500.0);
}
