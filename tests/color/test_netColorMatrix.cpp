// Net colour matrix: normalisation, the white-balance warning, verbose lines and the custom
// temperature variant, each compared with an independent composition of the pieces.
#include "cinedng/cd_fullColorMatrix.h"
#include "colorTestUtil.h"

static std::valarray<float> rowSums(const std::valarray<float>& m) { return multiplyMatrix(m, unitTriple, 3); }

TEST(NetColorMatrix, ExrOutputWarningAndVerboseLines) {
    // A camera that sees XYZ directly, whose white point is the output white of the default (ACES)
    // header; without an as-shot neutral the check goes through the white point, and passes.
    MetaWriteClip clip;
    const std::valarray<float> outToXYZ = matrixRGBtoXYZ(clip.headerInfo.chromaticities);
    cd_DNGTags tags;
    tags.CameraToXYZMtx = identityMatrix(3);
    tags.CameraXYZWhitePoint = rowSums(outToXYZ);
    const float cct = XYZToColorTemperature(tags.CameraXYZWhitePoint);
    std::ostringstream expected;
    expected << "- calculate color conversion \n            From CCT " << cct << "\n              To CCT " << cct
             << "\n";
    EXPECT_EQ(stderrOf([&] { determineNetColorMatrix(tags, clip, true); }), expected.str());
    const std::valarray<float> XYZtoOut = invertMatrix(outToXYZ);
    expectNear(clip.colorMatrixFromSourceRGBToOutputRGB, XYZtoOut / rowSums(XYZtoOut).max(), 2e-6f);

    // A camera whose RGB already is the output RGB: the identity.
    tags.CameraToXYZMtx = outToXYZ;
    EXPECT_EQ(stderrOf([&] { determineNetColorMatrix(tags, clip, false); }), "");
    expectNear(clip.colorMatrixFromSourceRGBToOutputRGB, identityMatrix(3), 2e-6f);

    // An as-shot neutral that disagrees with the white point: warned about even when not verbose,
    // with the un-normalised output triple; the matrix is still stored.
    tags.asShotNeutral = {1.0f, 0.5f, 1.0f};
    const std::string log = stderrOf([&] { determineNetColorMatrix(tags, clip, false); });
    const std::valarray<float> out = multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, tags.asShotNeutral, 3);
    std::ostringstream warning;
    warning << "WARNING: Neutrals don't come out white balanced. Bug in matrix ops? white balance? \n"
            << "             outRGBWhite[3]={ " << out[0] << ", " << out[1] << ", " << out[2] << " }\n";
    EXPECT_EQ(log, warning.str());
    expectNear(clip.colorMatrixFromSourceRGBToOutputRGB, identityMatrix(3), 2e-6f);
}

TEST(NetColorMatrix, CustomTemperatureUsesTheGenericSpace) {
    MetaWriteClip clip;
    cd_DNGTags tags;
    tags.CameraToXYZMtx = {0.7f, 0.2f, 0.1f, 0.3f, 0.8f, -0.1f, 0.0f, 0.1f, 0.7f};
    tags.CameraXYZWhitePoint = {0.95f, 1.0f, 0.9f};
    const std::string log6500 = stderrOf([&] { determineNetColorMatrixNonEXRWithCustomWB(tags, clip, true, 6500); });
    const std::valarray<float> net6500 = clip.colorMatrixFromSourceRGBToOutputRGB;
    // "From CCT" reports the camera white point both times.
    EXPECT_EQ(stderrOf([&] { determineNetColorMatrixNonEXRWithCustomWB(tags, clip, true, 3200); }), log6500);
    EXPECT_GT(std::abs(net6500 - clip.colorMatrixFromSourceRGBToOutputRGB).max(), 0.01f);
    std::ostringstream from;
    from << "            From CCT " << XYZToColorTemperature(tags.CameraXYZWhitePoint) << "\n";
    EXPECT_NE(log6500.find(from.str()), std::string::npos);

    // Generic RGB inverse . Bradford(locus white of 6500 K -> generic white) . camera, normalised.
    const std::valarray<float> outToXYZ = matrixAppleGenericRGBToXYZ();
    const std::valarray<float> adapt = matrixChromaticAdaptation(ColorTemperatureToXYZ(6500.0f), rowSums(outToXYZ));
    const std::valarray<float> net =
        multiplyMatrix(multiplyMatrix(invertMatrix(outToXYZ), adapt, 3), tags.CameraToXYZMtx, 3);
    expectNear(net6500, net / rowSums(net).max(), 1e-6f);

    // A record that has not been through the colour decoding is refused, not read out of range.
    cd_DNGTags undecoded;
    EXPECT_NE(failureText([&] { determineNetColorMatrix(undecoded, clip, false); }), "(no failure)");
}
