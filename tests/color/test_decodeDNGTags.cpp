// DNG colour decoding: geometry, the colour model, failure texts and verbose lines. Synthetic frames
// go through the whole parameter gathering (parser, tag reading, decoding); geometry, verbose lines
// and the search are also exercised directly on a hand-filled tag record.
#include <algorithm>
#include <array>
#include <tuple>

#include "cinedng/cd_DecodeDNGTags.h"
#include "cinedng/cd_getDNGParams.h"
#include "colorTestUtil.h"
#include "framebuilder/DngFrameBuilder.h"

namespace fb = cinedng::framebuilder;

// A plausible XYZ -> camera pair (illuminant A and D65), exact in four decimals.
const std::vector<double> kMatrixA{0.6461, -0.0907, -0.0882, -0.4300, 1.2184, 0.2378, -0.0819, 0.1944, 0.5931};
const std::vector<double> kMatrixD65{0.6722, -0.0635, -0.0963, -0.4287, 1.2460, 0.2028, -0.0908, 0.2162, 0.5668};
const float kMiredA = 1e6f / 2856.0f, kMiredD65 = 1e6f / 6500.0f;

// ColorMatrix1 only, or both matrices with illuminants 17 and 21.
static fb::RawFrameDesc frame(std::vector<double> neutral, bool twoIlluminants = false) {
    fb::RawFrameDesc s;
    s.colorMatrix1 = kMatrixA;
    s.asShotNeutral = std::move(neutral);
    if (twoIlluminants) {
        s.colorMatrix2 = kMatrixD65;
        s.calibrationIlluminant1 = 17;
        s.calibrationIlluminant2 = 21;
    }
    return s;
}

static cd_DNGTags gather(const fb::RawFrameDesc& desc) {
    std::vector<uint8_t> bytes = fb::buildRawFrame(desc);
    cd_DNGTags tags;
    EXPECT_EQ(cd_getDNGParams::getParamsForImageData(bytes.data(), static_cast<long>(bytes.size()), tags), 0);
    return tags;
}

// A record as the tag reading leaves it for a 100 x 60 frame with an identity ColorMatrix1.
static cd_DNGTags record(std::vector<uint32_t> activeArea = {0, 0, 60, 100}, std::vector<float> cropOrigin = {0, 0},
                         std::vector<float> cropSize = {100, 60}) {
    cd_DNGTags t;
    t.imageWidth = 100;
    t.imageHeight = 60;
    t.activeArea = std::move(activeArea);
    t.defaultCropOrigin = std::move(cropOrigin);
    t.defaultCropSize = std::move(cropSize);
    t.xyz2rgbMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    return t;
}

// top, left, inputRows, inputCols, crop origin row and column, outputRows, outputCols
using Geometry = std::array<int32_t, 8>;
static Geometry decodeGeometry(cd_DNGTags t) {
    EXPECT_EQ(cd_DecodeDNGTags().configure(t, false), 0);
    return {t.activeTop, t.activeLeft, t.inputRows, t.inputCols, t.cropOriginRow, t.cropOriginCol, t.outputRows,
            t.outputCols};
}

TEST(DecodeGeometry, ActiveAreaAndCropWrittenBack) {
    // The right edge beyond the image is cut to the width; origins round half away from zero; a crop
    // wider than the active area is cut to inputCols - origin.
    EXPECT_EQ(decodeGeometry(record({4, 6, 58, 200}, {2.5f, 1.5f}, {500, 10.4f})),
              (Geometry{4, 6, 54, 94, 2, 3, 10, 91}));
    // Negative origins widen the room left; a crop size beyond 32 bits is still only a minimum.
    EXPECT_EQ(decodeGeometry(record({0, 0, 60, 100}, {-0.5f, -1.5f}, {3e9f, 20})),
              (Geometry{0, 0, 60, 100, -2, -1, 20, 101}));
    // Malformed crop tags are refused cleanly.
    EXPECT_EQ(failureText([] { decodeGeometry(record({0, 0, 60, 100}, {1})); }),
              "cd_DecodeDNGTags - defaultCropOrigin must hold 2 values");
    EXPECT_EQ(failureText([] { decodeGeometry(record({0, 0, 60, 100}, {0, 3e9f}, {NAN, 5})); }),
              "cd_DecodeDNGTags - default crop value out of range");
}

TEST(DecodeGeometryDeathTest, GeometryAssertions) {
    EXPECT_DEATH(decodeGeometry(record({0, 0})), "activeArea.size\\(\\) == 4");
    EXPECT_DEATH(decodeGeometry(record({5, 0, 5, 10})), "inputRows > 0");
    EXPECT_DEATH(decodeGeometry(record({0, 7, 10, 3})), "inputCols > 0");  // the difference wraps negative
    EXPECT_DEATH(decodeGeometry(record({0, 0, 60, 100}, {0, 60})), "outputRows > 0");
    EXPECT_DEATH(decodeGeometry(record({0, 0, 60, 100}, {0, 0}, {0.4f, 10})), "outputCols > 0");
}

TEST(DecodeColour, ColorMatrix1Only) {
    const cd_DNGTags tags = gather(frame({0.5, 1.0, 0.7}));
    const std::valarray<float> inverse = invertMatrix(asValarray(kMatrixA));
    expectNear(tags.CameraToXYZMtx, inverse, 1e-6f);
    const std::valarray<float> white = multiplyMatrix(inverse, std::valarray<float>{0.5f, 1.0f, 0.7f}, 3);
    expectNear(tags.CameraXYZWhitePoint, white / white.max(), 1e-6f);

    // Without AsShotNeutral the white is the locus point of illuminant 1, largest component 1; the
    // printed temperature is its round trip, not the table's 6500.
    cd_DNGTags t = record();
    t.calibrationIlluminant1 = 21;
    const std::string log = stderrOf([&] { cd_DecodeDNGTags().configure(t, true); });
    const std::valarray<float> w = ColorTemperatureToXYZ(6500.0f) / ColorTemperatureToXYZ(6500.0f).max();
    std::ostringstream expected;
    expected << "- XYZ to Camera RGB matrix : using ColorMatrix1 only\n-- no white balance\n"
             << "-- asShotNeutral not defined. Defaulting white balance to CalibrationIlluminant1 color temperature "
             << XYZToColorTemperature(w) << "\n";
    EXPECT_NE(log.find(expected.str()), std::string::npos) << log;
    expectNear(t.CameraXYZWhitePoint, w, 0.0f);
}

TEST(DecodeColour, CameraCalibrationIsFoldedInOnce) {
    fb::RawFrameDesc s = frame({0.5, 1.0, 0.7});
    s.cameraCalibration1 = {1.1, 0, 0, 0, 1.0, 0, 0, 0, 0.9};
    const std::valarray<float> folded = multiplyMatrix(asValarray(s.cameraCalibration1), asValarray(kMatrixA), 3);
    expectNear(gather(s).CameraToXYZMtx, invertMatrix(folded), 1e-6f);
    cd_DecodeDNGTags d;
    d.colorPlanes = 3;
    d.cameraCalibration1 = asValarray(s.cameraCalibration1);
    d.xyz2rgbMatrix1 = asValarray(kMatrixA);
    d.prepareMatrices();
    d.prepareMatrices();  // the calibration was emptied: nothing is multiplied in again
    expectNear(d.xyz2rgbMatrix1, folded, 0.0f);
}

TEST(DecodeColour, TwoIlluminantSearch) {
    float start = 0, end = 0, step = 0;
    cd_DecodeDNGTags::whiteBalanceSearchRange(kMiredA, kMiredD65, start, end, step);
    EXPECT_NEAR(start, 153.8f, 0.05f);
    EXPECT_NEAR(end, 350.1f, 0.05f);
    EXPECT_EQ(step, 5.0f);  // 196.3 / 50 = 3.93 is raised to 5
    // ColorMatrix1 + w (ColorMatrix2 - ColorMatrix1), w = (mired1 - m) / (mired1 - mired2) within [0, 1].
    const std::valarray<float> A = asValarray(kMatrixA), D = asValarray(kMatrixD65);
    auto weighted = [&](float m) { return A + std::clamp((kMiredA - m) / (kMiredA - kMiredD65), 0.f, 1.f) * (D - A); };

    // A camera looking at a 4000 K white through the matrix interpolated for 250 mired.
    std::valarray<float> n = multiplyMatrix(weighted(250.0f), ColorTemperatureToXYZ(4000.0f), 3);
    const cd_DNGTags tags = gather(frame({n[0] / n.max(), n[1] / n.max(), n[2] / n.max()}, true));
    n = {tags.asShotNeutral[0], tags.asShotNeutral[1], tags.asShotNeutral[2]};  // as stored (four decimals)
    n /= n.max();
    // Walk the mireds to the first sign change; the correction is added, so the result lies past it.
    float prevMired = 0, prevDiff = 0, expected = -1;
    for (float m = start; m < end && expected < 0; prevMired = m, m += step) {
        const float diff = m - 1e6f / XYZToColorTemperature(multiplyMatrix(invertMatrix(weighted(m)), n, 3));
        if (m != start && diff * prevDiff <= 0) expected = m + diff / (diff - prevDiff) * (m - prevMired);
        prevDiff = diff;
    }
    EXPECT_GT(expected, prevMired);
    EXPECT_NEAR(expected, 250.0f, 2 * step);
    expectNear(tags.CameraToXYZMtx, invertMatrix(weighted(expected)), 1e-6f);
    EXPECT_NEAR(XYZToColorTemperature(tags.CameraXYZWhitePoint), 4000.0f, 150.0f);

    // Equal illuminants: the loop does not run and mired 0 weights fully towards ColorMatrix2.
    fb::RawFrameDesc same = frame({1, 1, 1}, true);
    same.calibrationIlluminant1 = 21;
    expectNear(gather(same).CameraToXYZMtx, invertMatrix(D), 0.0f);

    // The neutral is normalised by its largest value: (0.5, 1, 0.5) and (1, 2, 1) agree.
    const cd_DNGTags half = gather(frame({0.5, 1.0, 0.5}, true)), full = gather(frame({1.0, 2.0, 1.0}, true));
    expectNear(half.CameraXYZWhitePoint, full.CameraXYZWhitePoint, 0.0f);
    expectNear(half.CameraToXYZMtx, full.CameraToXYZMtx, 0.0f);
}

TEST(DecodeColour, FailureTexts) {
    const std::tuple<std::vector<double>, std::vector<double>, std::string> cases[] = {
        {{1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}, {}, "cd_DecodeDNGTags - colorPlanes must be 3"},  // four planes
        {{}, {}, "cd_DecodeDNGTags - colorPlanes must be 3"},
        {{1, 0, 0, 0, 1, 0, 0, 0, 1, 0}, {}, "cd_DecodeDNGTags - ColorMatrix1 must hold 9 values"},
        {{1, 2, 3, 2, 4, 6, 0, 0, 1}, {}, "matrixOps::invertMatrix - determinant may not be zero"},
        {{1, 0, 0, 0, 1, 0, 0, 0, -0.5}, {}, "cd_DecodeDNGTags - CameraToXYZMtx illegal"},  // inverse sums to 0
        // Inverse [[1,0,0],[0,4,-2],[0,0,-1]] takes the neutral (1, 0.5, 1) to (1, 0, -1).
        {{1, 0, 0, 0, 0.25, -0.5, 0, 0, -1}, {}, "cd_DecodeDNGTags - CameraXYZWhitePoint invalid"},
        {kMatrixA, {1, 0, 0, 1}, "matrixOps::multiplyMatrix - matrix size mismatch"},  // a calibration of 2 x 2
    };
    for (const auto& [matrix, calibration, text] : cases) {
        fb::RawFrameDesc s = frame({1, 0.5, 1});
        s.colorMatrix1 = matrix;
        s.cameraCalibration1 = calibration;
        EXPECT_EQ(failureText([&] { gather(s); }), text);
    }
}
