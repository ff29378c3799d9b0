// DNG colour decoding: geometry, the colour model, failure texts and verbose lines. Synthetic frames
// go through the whole parameter gathering (parser, tag reading, decoding); geometry and the search
// are also exercised directly on a hand-filled tag record.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <valarray>
#include <vector>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_DecodeDNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_getDNGParams.h"
#include "cinedng/matrixOps.h"
#include "framebuilder/DngFrameBuilder.h"

using namespace cinedng;
namespace fb = cinedng::framebuilder;

namespace {

// A plausible XYZ -> camera pair (illuminant A and D65) with exact four-decimal values.
const std::vector<double> kMatrixA{0.6461, -0.0907, -0.0882, -0.4300, 1.2184, 0.2378, -0.0819, 0.1944, 0.5931};
const std::vector<double> kMatrixD65{0.6722, -0.0635, -0.0963, -0.4287, 1.2460, 0.2028, -0.0908, 0.2162, 0.5668};

std::valarray<float> asValarray(const std::vector<double>& v) {
    std::valarray<float> r(v.size());
    for (size_t i = 0; i < v.size(); ++i) r[i] = static_cast<float>(v[i]);
    return r;
}

void expectNear(const std::valarray<float>& got, const std::valarray<float>& want, float tol) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << "element " << i;
}

fb::RawFrameSpec baseFrame() {
    fb::RawFrameSpec s;
    s.width = 32;
    s.height = 16;
    s.colorMatrix1 = kMatrixA;
    s.asShotNeutral = {0.5, 1.0, 0.7};
    return s;
}

// Parameter gathering on an in-memory frame; the stderr text is returned through *log.
cd_DNGTags gather(const std::vector<uint8_t>& frame, std::string* log = nullptr) {
    std::vector<uint8_t> bytes = frame;
    cd_DNGTags tags;
    if (log) testing::internal::CaptureStderr();
    int status = -1;
    try {
        status = cd_getDNGParams::getParamsForImageData(bytes.data(), static_cast<long>(bytes.size()), tags);
    } catch (...) {
        if (log) *log = testing::internal::GetCapturedStderr();
        throw;
    }
    if (log) *log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, 0);
    return tags;
}

std::string gatherFailure(const std::vector<uint8_t>& frame) {
    try {
        gather(frame);
    } catch (const cd_exception& e) {
        return e.what();
    }
    return "(no failure)";
}

// A record as the tag reading leaves it for a frame of the given size and colour tags.
cd_DNGTags record(uint32_t width, uint32_t height) {
    cd_DNGTags t;
    t.imageWidth = width;
    t.imageHeight = height;
    t.activeArea = {0, 0, height, width};
    t.defaultCropOrigin = {0, 0};
    t.defaultCropSize = {static_cast<float>(width), static_cast<float>(height)};
    t.xyz2rgbMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    return t;
}

}  // namespace

// ---- geometry --------------------------------------------------------------------------------

TEST(DecodeGeometry, ActiveAreaAndCropWrittenBack) {
    cd_DNGTags t = record(100, 60);
    t.activeArea = {4, 6, 58, 200};        // right edge beyond the image: cut to the width
    t.defaultCropOrigin = {2.5f, 1.5f};    // half away from zero: column 3, row 2
    t.defaultCropSize = {500.0f, 10.4f};  // wider than the active area: cut to inputCols - origin
    cd_DecodeDNGTags d;
    EXPECT_EQ(d.configure(t, false), 0);
    EXPECT_EQ(t.activeTop, 4);
    EXPECT_EQ(t.activeLeft, 6);
    EXPECT_EQ(t.inputRows, 54);
    EXPECT_EQ(t.inputCols, 94);
    EXPECT_EQ(t.cropOriginRow, 2);
    EXPECT_EQ(t.cropOriginCol, 3);
    EXPECT_EQ(t.outputRows, 10);
    EXPECT_EQ(t.outputCols, 91);
    EXPECT_EQ(t.derivedReserved, 0);
    EXPECT_EQ(d.outputCols, 91);

    // Negative origins round away from zero too, and widen the room left for the crop.
    cd_DNGTags u = record(10, 10);
    u.defaultCropOrigin = {-0.5f, -1.5f};
    u.defaultCropSize = {20.0f, 20.0f};
    cd_DecodeDNGTags e;
    e.configure(u, false);
    EXPECT_EQ(u.cropOriginCol, -1);
    EXPECT_EQ(u.cropOriginRow, -2);
    EXPECT_EQ(u.outputCols, 11);
    EXPECT_EQ(u.outputRows, 12);
}

TEST(DecodeGeometryDeathTest, GeometryAssertions) {
    cd_DNGTags a = record(10, 10);
    a.activeArea = {0, 0};
    EXPECT_DEATH(cd_DecodeDNGTags().configure(a, false), "activeArea.size\\(\\) == 4");
    cd_DNGTags b = record(10, 10);
    b.activeArea = {5, 0, 5, 10};
    EXPECT_DEATH(cd_DecodeDNGTags().configure(b, false), "inputRows > 0");
    cd_DNGTags c = record(10, 10);
    c.activeArea = {0, 7, 10, 3};  // right of the left edge wraps negative
    EXPECT_DEATH(cd_DecodeDNGTags().configure(c, false), "inputCols > 0");
    cd_DNGTags d = record(10, 10);
    d.defaultCropOrigin = {0, 10};
    EXPECT_DEATH(cd_DecodeDNGTags().configure(d, false), "outputRows > 0");
    cd_DNGTags e = record(10, 10);
    e.defaultCropSize = {0.4f, 10};
    EXPECT_DEATH(cd_DecodeDNGTags().configure(e, false), "outputCols > 0");
}

TEST(DecodeGeometry, MalformedCropIsRefusedCleanly) {
    cd_DNGTags t = record(10, 10);
    t.defaultCropOrigin = {1.0f};
    EXPECT_THROW(cd_DecodeDNGTags().configure(t, false), cd_exception);
    cd_DNGTags u = record(10, 10);
    u.defaultCropSize = {NAN, 5.0f};
    try {
        cd_DecodeDNGTags().configure(u, false);
        FAIL();
    } catch (const cd_exception& e) {
        EXPECT_EQ(std::string(e.what()), "cd_DecodeDNGTags - default crop value out of range");
    }
}

// ---- colour model on synthetic frames --------------------------------------------------------

TEST(DecodeColour, ColorMatrix1Only) {
    fb::RawFrameSpec s = baseFrame();
    std::string log;
    cd_DecodeDNGTags dummy;
    {
        cd_DNGTags t = record(32, 16);
        t.xyz2rgbMatrix1.assign(kMatrixA.begin(), kMatrixA.end());
        t.asShotNeutral = {0.5f, 1.0f, 0.7f};
        testing::internal::CaptureStderr();
        dummy.configure(t, true);
        log = testing::internal::GetCapturedStderr();
    }
    EXPECT_NE(log.find("- set up active area size and offset\n- set up output size and offsets\n"
                       "- XYZ to Camera RGB matrix : using ColorMatrix1 only\n-- no calibrationIlluminant2\n"),
              std::string::npos)
        << log;

    const cd_DNGTags tags = gather(fb::buildRawFrame(s));
    const std::valarray<float> inverse = invertMatrix(asValarray(kMatrixA));
    expectNear(tags.CameraToXYZMtx, inverse, 1e-6f);
    ASSERT_EQ(tags.CameraXYZWhitePoint.size(), 3u);
    // White = CameraToXYZ . neutral, largest component 1.
    std::valarray<float> white = multiplyMatrix(inverse, std::valarray<float>{0.5f, 1.0f, 0.7f}, 3);
    white /= white.max();
    expectNear(tags.CameraXYZWhitePoint, white, 1e-6f);
    EXPECT_EQ(tags.CameraXYZWhitePoint.max(), 1.0f);
}

TEST(DecodeColour, NoWhiteBalanceDefaultsToIlluminant1) {
    fb::RawFrameSpec s = baseFrame();
    s.asShotNeutral.clear();
    s.calibrationIlluminant1 = 21;
    std::string log;
    cd_DNGTags t = record(32, 16);
    t.xyz2rgbMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    t.calibrationIlluminant1 = 21;
    cd_DecodeDNGTags d;
    testing::internal::CaptureStderr();
    d.configure(t, true);
    log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("- XYZ to Camera RGB matrix : using ColorMatrix1 only\n-- no white balance\n"), std::string::npos);
    // The printed temperature is the round trip through the locus, not the table's 6500.
    std::valarray<float> w = ColorTemperatureToXYZ(6500.0f);
    w /= w.max();
    std::ostringstream expected;
    expected << "-- asShotNeutral not defined. Defaulting white balance to CalibrationIlluminant1 color temperature "
             << XYZToColorTemperature(w) << "\n";
    EXPECT_NE(log.find(expected.str()), std::string::npos) << log;
    expectNear(t.CameraXYZWhitePoint, w, 0.0f);

    const cd_DNGTags tags = gather(fb::buildRawFrame(s));
    std::valarray<float> w65 = ColorTemperatureToXYZ(6500.0f);
    w65 /= w65.max();
    expectNear(tags.CameraXYZWhitePoint, w65, 0.0f);
}

TEST(DecodeColour, CameraCalibrationIsFoldedInOnce) {
    int raw = 0;
    fb::RawFrameSpec s = baseFrame();
    fb::TiffBuilder b = fb::makeRawFrameBuilder(s, {}, &raw);
    const std::vector<double> cc1{1.1, 0, 0, 0, 1.0, 0, 0, 0, 0.9};
    b.addNumbers(raw, 50723, fb::SRATIONAL, cc1);
    const cd_DNGTags tags = gather(b.build());
    const std::valarray<float> folded = multiplyMatrix(asValarray(cc1), asValarray(kMatrixA), 3);
    expectNear(tags.CameraToXYZMtx, invertMatrix(folded), 1e-6f);
    // The record keeps the tag values as read.
    EXPECT_EQ(tags.cameraCalibration1.size(), 9u);

    // A second prepareMatrices on the same object leaves the folded matrix alone.
    cd_DecodeDNGTags d;
    d.colorPlanes = 3;
    d.cameraCalibration1 = asValarray(cc1);
    d.xyz2rgbMatrix1 = asValarray(kMatrixA);
    d.prepareMatrices();
    const std::valarray<float> once = d.xyz2rgbMatrix1;
    d.prepareMatrices();
    expectNear(d.xyz2rgbMatrix1, once, 0.0f);
    EXPECT_EQ(d.cameraCalibration1.size(), 0u);
}

TEST(DecodeColour, TwoIlluminantSearch) {
    float start = 0, end = 0, step = 0;
    // Standard light A (2856 K) and D65 (6500 K).
    cd_DecodeDNGTags::whiteBalanceSearchRange(1e6f / 2856.0f, 1e6f / 6500.0f, start, end, step);
    EXPECT_NEAR(start, 153.8f, 0.05f);
    EXPECT_NEAR(end, 350.1f, 0.05f);
    EXPECT_EQ(step, 5.0f);  // 196.3 / 50 = 3.93 is raised to 5
    // Wide range: 50 steps; bounds clamp to 20 and 500 mired.
    cd_DecodeDNGTags::whiteBalanceSearchRange(1e6f / 1000.0f, 1e6f / 100000.0f, start, end, step);
    EXPECT_EQ(start, 20.0f);
    EXPECT_EQ(end, 500.0f);
    EXPECT_EQ(step, 9.6f);

    cd_DecodeDNGTags d;
    d.xyz2rgbMatrix1 = asValarray(kMatrixA);
    d.xyz2rgbMatrix2 = asValarray(kMatrixD65);
    const float m1 = 1e6f / 2856.0f, m2 = 1e6f / 6500.0f;
    expectNear(d.XYZtoCameraWeightedMatrix(m1, m1, m2), d.xyz2rgbMatrix1, 0.0f);
    expectNear(d.XYZtoCameraWeightedMatrix(m2, m1, m2), d.xyz2rgbMatrix2, 1e-7f);
    expectNear(d.XYZtoCameraWeightedMatrix(1000.0f, m1, m2), d.xyz2rgbMatrix1, 0.0f);  // clamped to 0
    expectNear(d.XYZtoCameraWeightedMatrix(0.0f, m1, m2), d.xyz2rgbMatrix2, 1e-7f);   // clamped to 1
    expectNear(d.XYZtoCameraWeightedMatrix((m1 + m2) / 2, m1, m2), (d.xyz2rgbMatrix1 + d.xyz2rgbMatrix2) / 2.0f,
               1e-6f);
    EXPECT_FLOAT_EQ(cd_DecodeDNGTags::cctToMired(5000.0f), 200.0f);

    // A camera looking at a 4000 K white: its neutral through the matrix interpolated for 4000 K.
    const float m4000 = 250.0f;
    const std::valarray<float> neutral =
        multiplyMatrix(d.XYZtoCameraWeightedMatrix(m4000, m1, m2), ColorTemperatureToXYZ(4000.0f), 3);

    fb::RawFrameSpec s = baseFrame();
    s.colorMatrix2 = kMatrixD65;
    s.calibrationIlluminant1 = 17;
    s.calibrationIlluminant2 = 21;
    s.asShotNeutral = {neutral[0] / neutral.max(), neutral[1] / neutral.max(), neutral[2] / neutral.max()};
    std::string log;
    const cd_DNGTags tags = gather(fb::buildRawFrame(s), &log);
    EXPECT_EQ(log.find("white-balanced"), std::string::npos);  // not verbose

    // Walk the same mireds and find the first sign change of (mired - mired of the neutral's CCT);
    // the result lies past that step by the added correction.
    d.calibrationIlluminant1 = 17;
    d.calibrationIlluminant2 = 21;
    d.hasCalibrationIlluminant2 = true;
    ASSERT_EQ(tags.asShotNeutral.size(), 3u);  // as read from the file (four decimals)
    std::valarray<float> n{tags.asShotNeutral[0], tags.asShotNeutral[1], tags.asShotNeutral[2]};
    n /= n.max();
    cd_DecodeDNGTags::whiteBalanceSearchRange(m1, m2, start, end, step);
    float prevMired = 0, prevDiff = 0, expected = -1;
    for (float m = start; m < end; m += step) {
        const float diff =
            m - 1e6f / XYZToColorTemperature(multiplyMatrix(invertMatrix(d.XYZtoCameraWeightedMatrix(m, m1, m2)), n, 3));
        if (m != start && diff * prevDiff <= 0) {
            expected = m + diff / (diff - prevDiff) * (m - prevMired);
            EXPECT_GT(expected, m);  // beyond the step, not between the two steps
            break;
        }
        prevMired = m;
        prevDiff = diff;
    }
    ASSERT_GT(expected, 0.0f);
    EXPECT_NEAR(expected, m4000, 2 * step);
    expectNear(tags.CameraToXYZMtx, invertMatrix(d.XYZtoCameraWeightedMatrix(expected, m1, m2)), 1e-6f);
    expectNear(d.findXYZtoCameraMtx(n), d.XYZtoCameraWeightedMatrix(expected, m1, m2), 0.0f);

    // The white point is the neutral seen through the chosen matrix; its temperature near 4000 K.
    EXPECT_NEAR(XYZToColorTemperature(tags.CameraXYZWhitePoint), 4000.0f, 150.0f);

    testing::internal::CaptureStderr();
    d.verbose = true;
    d.findXYZtoCameraMtx(n);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "- XYZ to Camera RGB matrix, white-balanced betweeen cct1: 2856 & cct2: 6500\n");
}

TEST(DecodeColour, EqualIlluminantsSkipTheSearch) {
    cd_DecodeDNGTags d;
    d.xyz2rgbMatrix1 = asValarray(kMatrixA);
    d.xyz2rgbMatrix2 = asValarray(kMatrixD65);
    d.calibrationIlluminant1 = 21;
    d.calibrationIlluminant2 = 21;
    d.hasCalibrationIlluminant2 = true;
    // The loop does not run; mired 0 weights fully towards ColorMatrix2.
    expectNear(d.findXYZtoCameraMtx({1.0f, 1.0f, 1.0f}), d.xyz2rgbMatrix2, 0.0f);
}

TEST(DecodeColour, NeutralScaleDoesNotMatter) {
    fb::RawFrameSpec s = baseFrame();
    s.colorMatrix2 = kMatrixD65;
    s.calibrationIlluminant1 = 17;
    s.calibrationIlluminant2 = 21;
    s.asShotNeutral = {0.5, 1.0, 0.5};
    const cd_DNGTags half = gather(fb::buildRawFrame(s));
    s.asShotNeutral = {1.0, 2.0, 1.0};
    const cd_DNGTags full = gather(fb::buildRawFrame(s));
    expectNear(half.CameraXYZWhitePoint, full.CameraXYZWhitePoint, 0.0f);
    expectNear(half.CameraToXYZMtx, full.CameraToXYZMtx, 0.0f);
}

TEST(DecodeColour, FailureTexts) {
    fb::RawFrameSpec s = baseFrame();
    s.colorMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};  // four planes
    EXPECT_EQ(gatherFailure(fb::buildRawFrame(s)), "cd_DecodeDNGTags - colorPlanes must be 3");
    s.colorMatrix1.clear();
    EXPECT_EQ(gatherFailure(fb::buildRawFrame(s)), "cd_DecodeDNGTags - colorPlanes must be 3");
    s.colorMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0};  // ten values still count three planes
    EXPECT_EQ(gatherFailure(fb::buildRawFrame(s)), "cd_DecodeDNGTags - ColorMatrix1 must hold 9 values");
    s.colorMatrix1 = {1, 2, 3, 2, 4, 6, 0, 0, 1};
    EXPECT_EQ(gatherFailure(fb::buildRawFrame(s)), "matrixOps::invertMatrix - determinant may not be zero");
    // Inverse [[1,0,0],[0,1,0],[0,0,-2]] sums to 0.
    s.colorMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, -0.5};
    EXPECT_EQ(gatherFailure(fb::buildRawFrame(s)), "cd_DecodeDNGTags - CameraToXYZMtx illegal");
    // Inverse [[1,0,0],[0,4,-2],[0,0,-1]] takes the neutral (1, 0.5, 1) to (1, 0, -1).
    s.colorMatrix1 = {1, 0, 0, 0, 0.25, -0.5, 0, 0, -1};
    s.asShotNeutral = {1, 0.5, 1};
    EXPECT_EQ(gatherFailure(fb::buildRawFrame(s)), "cd_DecodeDNGTags - CameraXYZWhitePoint invalid");
    // A calibration of the wrong shape cannot be folded in.
    int raw = 0;
    s.colorMatrix1 = kMatrixA;
    fb::TiffBuilder b = fb::makeRawFrameBuilder(s, {}, &raw);
    b.addNumbers(raw, 50723, fb::SRATIONAL, {1, 0, 0, 1});
    EXPECT_EQ(gatherFailure(b.build()), "matrixOps::multiplyMatrix - matrix size mismatch");
}

TEST(DecodeColour, ReconfigureStartsAfresh) {
    cd_DNGTags a = record(8, 8);
    cd_DNGTags b = record(8, 8);
    b.xyz2rgbMatrix1 = {2, 0, 0, 0, 2, 0, 0, 0, 2};
    cd_DecodeDNGTags d;
    d.configure(a, false);
    d.configure(b, false);
    expectNear(b.CameraToXYZMtx, {0.5f, 0, 0, 0, 0.5f, 0, 0, 0, 0.5f}, 0.0f);
}
