// Net colour matrix from camera RGB to an output RGB space.
#include "cinedng/cd_fullColorMatrix.h"

#include <cmath>
#include <iomanip>
#include <iostream>
#include <valarray>

#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"
#include "cinedng/matrixOps.h"

namespace cinedng {

namespace {

// (XYZtoOut . adapt) . camToXYZ, divided by its largest row sum.
std::valarray<float> normalisedNet(const std::valarray<float>& XYZtoOut, const std::valarray<float>& adapt,
                                   const std::valarray<float>& camToXYZ) {
    if (camToXYZ.size() != 9) {
        // A record that has not been through the colour decoding has no camera matrix.
        throw cd_exception("cd_fullColorMatrix - CameraToXYZMtx must hold 9 values");
    }
    std::valarray<float> net = multiplyMatrix(multiplyMatrix(XYZtoOut, adapt, 3), camToXYZ, 3);
    const std::valarray<float> rowSums = multiplyMatrix(net, unitTriple, 3);
    const float largestRowSum = rowSums.max();
    net /= largestRowSum;
    return net;
}

void printCCTs(const cd_DNGTags& tags, const std::valarray<float>& outWhite) {
    std::cerr << "            From CCT " << XYZToColorTemperature(tags.CameraXYZWhitePoint) << std::endl;
    std::cerr << "              To CCT " << XYZToColorTemperature(outWhite) << std::endl;
}

// The as-shot neutral (or, without one, the camera white point taken back to camera RGB) must come
// out of the net matrix as a neutral output triple. Only warns.
void checkWhiteBalance(const cd_DNGTags& tags, const std::valarray<float>& net) {
    std::valarray<float> outNeutral;
    if (tags.asShotNeutral.size() == 3) {
        outNeutral = multiplyMatrix(net, tags.asShotNeutral, 3);
    } else {
        outNeutral = multiplyMatrix(net, multiplyMatrix(invertMatrix(tags.CameraToXYZMtx), tags.CameraXYZWhitePoint, 3),
                                    3);
    }
    const float largest = outNeutral.max();
    const std::valarray<float> normalised = outNeutral / largest;
    double worst = 0.0;
    for (size_t i = 0; i < normalised.size(); ++i) {
        const double deviation = std::fabs(static_cast<double>(normalised[i]) - 1.0);
        if (!(deviation <= worst)) worst = deviation;  // a NaN counts as the worst
    }
    if (!(worst < 0.0001)) {
        std::cerr << "WARNING: Neutrals don't come out white balanced. Bug in matrix ops? white balance? " << std::endl;
        std::cerr << std::setw(24) << "outRGBWhite" << "[" << outNeutral.size() << "]={ ";
        const size_t shown = outNeutral.size() < 100 ? outNeutral.size() : 100;
        for (size_t i = 0; i < shown; ++i) {
            if (i) std::cerr << ", ";
            std::cerr << outNeutral[i];
        }
        if (outNeutral.size() > 100) std::cerr << " ...";
        std::cerr << " }" << std::endl;
    }
}

}  // namespace

void determineNetColorMatrix(cd_DNGTags& tags, MetaWriteClip& writeParams, bool verbose) {
    if (verbose) std::cerr << "- calculate color conversion " << std::endl;
    const std::valarray<float> outToXYZ = matrixRGBtoXYZ(writeParams.headerInfo.chromaticities);
    const std::valarray<float> XYZtoOut = invertMatrix(outToXYZ);
    const std::valarray<float> outWhite = multiplyMatrix(outToXYZ, unitTriple, 3);  // Y = 1
    const std::valarray<float> adapt = matrixChromaticAdaptation(tags.CameraXYZWhitePoint, outWhite);
    const std::valarray<float> net = normalisedNet(XYZtoOut, adapt, tags.CameraToXYZMtx);

    checkWhiteBalance(tags, net);

    writeParams.colorMatrixFromSourceRGBToOutputRGB = net;
    if (verbose) printCCTs(tags, outWhite);
    CD_ASSERT(writeParams. colorMatrixFromSourceRGBToOutputRGB.sum() != 0);
}

void determineNetColorMatrixNonEXRWithCustomWB(cd_DNGTags& tags, MetaWriteClip& writeParams, bool verbose,
                                               float temperature) {
    if (verbose) std::cerr << "- calculate color conversion " << std::endl;
    const std::valarray<float> outToXYZ = matrixAppleGenericRGBToXYZ();
    const std::valarray<float> XYZtoOut = invertMatrix(outToXYZ);
    const std::valarray<float> outWhite = multiplyMatrix(outToXYZ, unitTriple, 3);
    const std::valarray<float> sourceWhite = ColorTemperatureToXYZ(temperature);  // X + Y + Z = 1
    const std::valarray<float> adapt = matrixChromaticAdaptation(sourceWhite, outWhite);
    // The adapted source white and the camera's response to it are formed but not used; they still
    // validate the shapes of the matrices involved.
    (void)multiplyMatrix(adapt, sourceWhite, 3);
    (void)multiplyMatrix(tags.xyz2rgbMatrix1, sourceWhite, 3);
    const std::valarray<float> net = normalisedNet(XYZtoOut, adapt, tags.CameraToXYZMtx);

    writeParams.colorMatrixFromSourceRGBToOutputRGB = net;
    // "From CCT" reports the camera white point, not the chosen temperature.
    if (verbose) printCCTs(tags, outWhite);
    if (writeParams.colorMatrixFromSourceRGBToOutputRGB.sum() == 0.0f) {
        throw cd_exception("cd_fullColorMatrix - color matrix from source to out RGB invalid");
    }
}

}  // namespace cinedng
