// Net colour matrix: normalisation, the white-balance warning, verbose lines, and the custom
// temperature variant.
#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <valarray>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_fullColorMatrix.h"
#include "cinedng/matrixOps.h"

using namespace cinedng;

namespace {

// A camera that sees XYZ directly and whose white point is the output white of the default
// (ACES) header.
cd_DNGTags identityCamera(const MetaWriteClip& clip) {
    cd_DNGTags t;
    t.CameraToXYZMtx = identityMatrix(3);
    t.CameraXYZWhitePoint = multiplyMatrix(matrixRGBtoXYZ(clip.headerInfo.chromaticities), unitTriple, 3);
    t.xyz2rgbMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    return t;
}

std::string run(cd_DNGTags& tags, MetaWriteClip& clip, bool verbose) {
    testing::internal::CaptureStderr();
    determineNetColorMatrix(tags, clip, verbose);
    return testing::internal::GetCapturedStderr();
}

}  // namespace

TEST(NetColorMatrix, IdentityCameraGivesTheNormalisedOutputInverse) {
    MetaWriteClip clip;
    cd_DNGTags tags = identityCamera(clip);
    const std::string log = run(tags, clip, false);
    EXPECT_EQ(log, "");  // camera white = output white: no warning

    std::valarray<float> expected = invertMatrix(matrixRGBtoXYZ(clip.headerInfo.chromaticities));
    expected /= multiplyMatrix(expected, unitTriple, 3).max();
    const std::valarray<float>& net = clip.colorMatrixFromSourceRGBToOutputRGB;
    ASSERT_EQ(net.size(), 9u);
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(net[i], expected[i], 2e-6f) << i;

    // A camera whose RGB already is the output RGB: the net matrix is the identity, and camera
    // (1, 1, 1) comes out as (1, 1, 1).
    tags.CameraToXYZMtx = matrixRGBtoXYZ(clip.headerInfo.chromaticities);
    EXPECT_EQ(run(tags, clip, false), "");
    const std::valarray<float> identity = identityMatrix(3);
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(clip.colorMatrixFromSourceRGBToOutputRGB[i], identity[i], 2e-6f) << i;
    const std::valarray<float> out = multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, unitTriple, 3);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(out[i], 1.0f, 2e-6f);
}

TEST(NetColorMatrix, SRGBOutputWithAnAdaptedCamera) {
    // sRGB primaries, camera with a D50-ish white: the largest row sum is exactly 1 and the camera
    // white point comes out neutral (white-point path, no as-shot neutral).
    MetaWriteClip clip;
    clip.headerInfo.chromaticities = chromaticities(0.64f, 0.33f, 0.30f, 0.60f, 0.15f, 0.06f, 0.3127f, 0.3290f);
    cd_DNGTags tags;
    tags.CameraToXYZMtx = {0.7f, 0.2f, 0.1f, 0.3f, 0.8f, -0.1f, 0.0f, 0.1f, 0.7f};
    tags.CameraXYZWhitePoint = multiplyMatrix(tags.CameraToXYZMtx, std::valarray<float>{1.0f, 0.9f, 0.6f}, 3);
    tags.CameraXYZWhitePoint /= tags.CameraXYZWhitePoint.max();
    EXPECT_EQ(run(tags, clip, false), "");
    const std::valarray<float> rows = multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, unitTriple, 3);
    EXPECT_FLOAT_EQ(rows.max(), 1.0f);
    // The camera's neutral (1, 0.9, 0.6) lands on equal output values.
    const std::valarray<float> n =
        multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, std::valarray<float>{1.0f, 0.9f, 0.6f}, 3);
    EXPECT_NEAR(n[0] / n.max(), 1.0f, 1e-4f);
    EXPECT_NEAR(n[1] / n.max(), 1.0f, 1e-4f);
    EXPECT_NEAR(n[2] / n.max(), 1.0f, 1e-4f);
}

TEST(NetColorMatrix, WarnsWhenTheNeutralIsNotWhite) {
    MetaWriteClip clip;
    cd_DNGTags tags = identityCamera(clip);
    tags.asShotNeutral = {1.0f, 0.5f, 1.0f};  // disagrees with the white point
    const std::string log = run(tags, clip, false);
    const std::valarray<float> outNeutral =
        multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, tags.asShotNeutral, 3);
    std::ostringstream expected;
    expected << "WARNING: Neutrals don't come out white balanced. Bug in matrix ops? white balance? \n"
             << "             outRGBWhite[3]={ " << outNeutral[0] << ", " << outNeutral[1] << ", " << outNeutral[2]
             << " }\n";
    EXPECT_EQ(log, expected.str());
    // The matrix is still stored.
    EXPECT_NEAR(multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, unitTriple, 3).max(), 1.0f, 1e-6f);
}

TEST(NetColorMatrix, VerboseLines) {
    MetaWriteClip clip;
    cd_DNGTags tags = identityCamera(clip);
    const std::string log = run(tags, clip, true);
    std::ostringstream expected;
    const float cct = XYZToColorTemperature(tags.CameraXYZWhitePoint);
    expected << "- calculate color conversion \n"
             << "            From CCT " << cct << "\n"
             << "              To CCT " << cct << "\n";
    EXPECT_EQ(log, expected.str());
}

TEST(NetColorMatrix, CustomTemperatureUsesTheGenericSpace) {
    MetaWriteClip clip;
    cd_DNGTags tags;
    tags.CameraToXYZMtx = {0.7f, 0.2f, 0.1f, 0.3f, 0.8f, -0.1f, 0.0f, 0.1f, 0.7f};
    tags.CameraXYZWhitePoint = {0.95f, 1.0f, 0.9f};
    tags.xyz2rgbMatrix1 = {1, 0, 0, 0, 1, 0, 0, 0, 1};

    testing::internal::CaptureStderr();
    determineNetColorMatrixNonEXRWithCustomWB(tags, clip, true, 6500.0f);
    const std::string log6500 = testing::internal::GetCapturedStderr();
    const std::valarray<float> net6500 = clip.colorMatrixFromSourceRGBToOutputRGB;
    testing::internal::CaptureStderr();
    determineNetColorMatrixNonEXRWithCustomWB(tags, clip, true, 3200.0f);
    const std::string log3200 = testing::internal::GetCapturedStderr();
    const std::valarray<float> net3200 = clip.colorMatrixFromSourceRGBToOutputRGB;

    EXPECT_GT(std::abs(net6500 - net3200).max(), 0.01f);
    // "From CCT" reports the camera white point in both cases.
    EXPECT_EQ(log6500, log3200);
    std::ostringstream from;
    from << "            From CCT " << XYZToColorTemperature(tags.CameraXYZWhitePoint) << "\n";
    EXPECT_NE(log6500.find(from.str()), std::string::npos);

    // Worked independently: generic RGB inverse . Bradford(locus white -> generic white) . camera.
    const std::valarray<float> outToXYZ = matrixAppleGenericRGBToXYZ();
    const std::valarray<float> adapt =
        matrixChromaticAdaptation(ColorTemperatureToXYZ(6500.0f), multiplyMatrix(outToXYZ, unitTriple, 3));
    std::valarray<float> expected =
        multiplyMatrix(multiplyMatrix(invertMatrix(outToXYZ), adapt, 3), tags.CameraToXYZMtx, 3);
    expected /= multiplyMatrix(expected, unitTriple, 3).max();
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(net6500[i], expected[i], 1e-6f);
    EXPECT_FLOAT_EQ(multiplyMatrix(net6500, unitTriple, 3).max(), 1.0f);
}

TEST(NetColorMatrix, UndecodedRecordIsRefused) {
    MetaWriteClip clip;
    cd_DNGTags tags;  // no colour model
    EXPECT_THROW(determineNetColorMatrix(tags, clip, false), cd_exception);
    EXPECT_THROW(determineNetColorMatrixNonEXRWithCustomWB(tags, clip, false, 5000.0f), cd_exception);
}
