// Colour-processing information: the instance operation from the clip's colour model and the class
// operation from a caller's XYZ-to-camera matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <valarray>

#include "cinedng/KSCinemaDNGFileSequence.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/matrixOps.h"
#include "host_test_util.h"

using namespace cinedng;
using namespace hosttest;

namespace {

std::valarray<float> va(const KSValuePtr& v) {
    const std::vector<float> f = v->floatVector();
    return std::valarray<float>(f.data(), f.size());
}

float largestRowSum(const std::valarray<float>& m) {
    float best = -INFINITY;
    for (int r = 0; r < 3; ++r) best = std::max(best, m[3 * r] + m[3 * r + 1] + m[3 * r + 2]);
    return best;
}

const float kTemperatures[] = {2000, 2856, 3200, 4500, 5000, 5500, 6500, 9000, 15000};

}  // namespace

TEST(KSImageProcessingInfoFromClip, NormalisedMatricesForEveryTemperature) {
    for (const auto& name : {std::string("tinydng_colorchart.dng"), std::string("fauxbolex_frame_000170.dng")}) {
        SCOPED_TRACE(name);
        auto seq = KSCinemaDNGFileSequence::initWithFilenames({samplePath(name)});
        ASSERT_TRUE(seq);
        const cd_DNGTags& tags = *seq->context()->dngTags();

        // No temperature chosen means 5000 K.
        auto byDefault = seq->imageProcessingInfoWithCustomWhiteBalance(-1.0f);
        auto at5000 = seq->imageProcessingInfoWithCustomWhiteBalance(5000.0f);
        EXPECT_TRUE(byDefault->camToOutRGBMatrix()->isEqual(*at5000->camToOutRGBMatrix()));
        EXPECT_TRUE(byDefault->camToXYZMatrix()->isEqual(*at5000->camToXYZMatrix()));
        EXPECT_TRUE(byDefault->cameraMaxValuesRGB()->isEqual(*at5000->cameraMaxValuesRGB()));

        std::valarray<float> previous;
        for (float T : kTemperatures) {
            SCOPED_TRACE(T);
            auto info = seq->imageProcessingInfoWithCustomWhiteBalance(T);
            const std::valarray<float> net = va(info->camToOutRGBMatrix());
            const std::valarray<float> maxRGB = va(info->cameraMaxValuesRGB());
            ASSERT_EQ(net.size(), 9u);
            ASSERT_EQ(maxRGB.size(), 3u);
            EXPECT_NEAR(largestRowSum(net), 1.0f, 2e-6f);
            EXPECT_EQ(maxRGB.max(), 1.0f);
            // The camera-to-XYZ matrix is the clip's own.
            const std::valarray<float> camToXYZ = va(info->camToXYZMatrix());
            ASSERT_EQ(camToXYZ.size(), 9u);
            for (int i = 0; i < 9; ++i) EXPECT_EQ(camToXYZ[i], tags.CameraToXYZMtx[i]);
            // The camera white comes out of the net matrix as an equal triple (a grey).
            const std::valarray<float> out = multiplyMatrix(net, maxRGB, 3);
            EXPECT_NEAR(out[0], out[1], 1e-5f * std::fabs(out[1]));
            EXPECT_NEAR(out[2], out[1], 1e-5f * std::fabs(out[1]));
            if (previous.size()) {
                const std::valarray<float> diff = std::abs(std::valarray<float>(net - previous));
                EXPECT_GT(diff.max(), 1e-4f);
            }
            previous = net;
        }
    }
}

TEST(KSImageProcessingInfoFromMatrix, InverseOfTheSuppliedMatrixAndNormalisedWhite) {
    const float xyzToCam[9] = {0.6461f, -0.1164f, -0.0857f, -0.3825f, 1.1597f, 0.2534f, -0.0416f, 0.154f, 0.6039f};
    const std::valarray<float> M(xyzToCam, 9);
    for (float T : kTemperatures) {
        SCOPED_TRACE(T);
        auto info = KSCinemaDNGFileSequence::cameraToOutputRGBMatrixWithCustomWhiteBalance(T, xyzToCam);
        const std::valarray<float> camToXYZ = va(info->camToXYZMatrix());
        const std::valarray<float> inv = invertMatrix(M);
        for (int i = 0; i < 9; ++i) EXPECT_EQ(camToXYZ[i], inv[i]);
        EXPECT_NEAR(largestRowSum(va(info->camToOutRGBMatrix())), 1.0f, 2e-6f);
        const std::valarray<float> white = va(info->cameraMaxValuesRGB());
        EXPECT_EQ(white.max(), 1.0f);
        // Proportional to the camera's response to the locus white of T.
        const std::valarray<float> response = multiplyMatrix(M, ColorTemperatureToXYZ(T), 3);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(white[i], response[i] / response.max(), 1e-6f);
    }
}

TEST(KSImageProcessingInfoFromMatrix, SingularOrMissingMatrixRaises) {
    const float singular[9] = {1, 2, 3, 2, 4, 6, 0, 0, 1};
    try {
        KSCinemaDNGFileSequence::cameraToOutputRGBMatrixWithCustomWhiteBalance(5000, singular);
        FAIL() << "no exception";
    } catch (const cd_exception& e) {
        EXPECT_STREQ(e.what(), "matrixOps::invertMatrix - determinant may not be zero");
    }
    EXPECT_THROW(KSCinemaDNGFileSequence::cameraToOutputRGBMatrixWithCustomWhiteBalance(5000, nullptr), cd_exception);
}

// Given the clip's own XYZ-to-camera matrix, the class operation reaches the same net matrix as the
// instance operation (they differ in how they derive the camera white).
TEST(KSImageProcessingInfoFromMatrix, AgreesWithTheClipOperationOnTheNetMatrix) {
    auto seq = KSCinemaDNGFileSequence::initWithFilenames({samplePath("fauxbolex_frame_000170.dng")});
    ASSERT_TRUE(seq);
    const std::valarray<float> xyzToCam = invertMatrix(seq->context()->dngTags()->CameraToXYZMtx);
    for (float T : {3200.0f, 6500.0f}) {
        const std::valarray<float> a = va(seq->imageProcessingInfoWithCustomWhiteBalance(T)->camToOutRGBMatrix());
        const std::valarray<float> b = va(
            KSCinemaDNGFileSequence::cameraToOutputRGBMatrixWithCustomWhiteBalance(T, &xyzToCam[0])->camToOutRGBMatrix());
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(a[i], b[i], 1e-4f) << T << " " << i;
    }
}
