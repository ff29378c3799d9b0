// Geometry and colour model of a clip, from the tags of its first frame.
#include "cinedng/cd_DecodeDNGTags.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"
#include "cinedng/matrixOps.h"

namespace cinedng {

namespace {

// Crop values are floats in the file, rounded half away from zero and compared as signed 64-bit
// values. A value that does not fit that range (or is not a number) has no integer meaning and is
// refused instead of being converted with undefined results.
int64_t roundCropValue(float value) {
    const double rounded = std::round(static_cast<double>(value));
    if (!(rounded >= -9223372036854775808.0 && rounded < 9223372036854775808.0)) {
        throw cd_exception("cd_DecodeDNGTags - default crop value out of range");
    }
    return static_cast<int64_t>(rounded);
}

// The crop origin is stored in a 32-bit field; an origin outside that range is refused as well.
int32_t roundCropOrigin(float value) {
    const int64_t rounded = roundCropValue(value);
    if (rounded < INT32_MIN || rounded > INT32_MAX) {
        throw cd_exception("cd_DecodeDNGTags - default crop value out of range");
    }
    return static_cast<int32_t>(rounded);
}

std::valarray<float> toValarray(const std::vector<float>& v) {
    std::valarray<float> result;
    valarrayassign(result, v);
    return result;
}

}  // namespace

int cd_DecodeDNGTags::configure(cd_DNGTags& tags, bool verboseFlag) {
    verbose = verboseFlag;
    imageWidth = tags.imageWidth;
    imageHeight = tags.imageHeight;
    activeArea = tags.activeArea;
    defaultCropSize = tags.defaultCropSize;
    defaultCropOrigin = tags.defaultCropOrigin;

    decodeActiveArea();
    decodeCropSize();
    tags.activeTop = activeTop;
    tags.activeLeft = activeLeft;
    tags.inputRows = inputRows;
    tags.inputCols = inputCols;
    tags.cropOriginRow = cropOriginRow;
    tags.cropOriginCol = cropOriginCol;
    tags.outputRows = outputRows;
    tags.outputCols = outputCols;

    colorPlanes = static_cast<int32_t>(tags.xyz2rgbMatrix1.size() / 3);
    if (colorPlanes != 3) {
        throw cd_exception("cd_DecodeDNGTags - colorPlanes must be 3");
    }

    calibrationIlluminant1 = tags.calibrationIlluminant1;
    calibrationIlluminant2 = tags.calibrationIlluminant2;
    hasCalibrationIlluminant1 = tags.hasCalibrationIlluminant1;
    hasCalibrationIlluminant2 = tags.hasCalibrationIlluminant2;
    asShotNeutral = toValarray(tags.asShotNeutral);
    cameraCalibration1 = toValarray(tags.cameraCalibration1);
    cameraCalibration2 = toValarray(tags.cameraCalibration2);
    xyz2rgbMatrix1 = toValarray(tags.xyz2rgbMatrix1);
    xyz2rgbMatrix2 = toValarray(tags.xyz2rgbMatrix2);
    // The camera matrix is derived only while it is empty: an object that has already decoded a
    // record keeps its camera matrix (the white point is recomputed from it).
    prepareMatrices();
    getCameraToXYZMtx();
    getCameraXYZWhitePoint();

    valarrayassign(tags.CameraToXYZMtx, CameraToXYZMtx);
    valarrayassign(tags.CameraXYZWhitePoint, CameraXYZWhitePoint);
    return 0;
}

void cd_DecodeDNGTags::decodeActiveArea() {
    if (verbose) std::cerr << "- set up active area size and offset" << std::endl;
    CD_ASSERT(activeArea.size() == 4);
    activeTop = static_cast<int32_t>(activeArea[0]);
    activeLeft = static_cast<int32_t>(activeArea[1]);
    // Unsigned differences, as stored in the file; a bottom above the top wraps to a negative count.
    inputRows = static_cast<int32_t>(std::min(activeArea[2], imageHeight) - activeArea[0]);
    inputCols = static_cast<int32_t>(std::min(activeArea[3], imageWidth) - activeArea[1]);
    CD_ASSERT(inputRows > 0);
    CD_ASSERT(inputCols > 0);
}

void cd_DecodeDNGTags::decodeCropSize() {
    if (verbose) std::cerr << "- set up output size and offsets" << std::endl;
    if (defaultCropOrigin.size() < 2) {
        throw cd_exception("cd_DecodeDNGTags - defaultCropOrigin must hold 2 values");
    }
    if (defaultCropSize.size() < 2) {
        throw cd_exception("cd_DecodeDNGTags - defaultCropSize must hold 2 values");
    }
    cropOriginRow = roundCropOrigin(defaultCropOrigin[1]);
    cropOriginCol = roundCropOrigin(defaultCropOrigin[0]);
    // A crop larger than the active area is cut to what is left right of / below the origin.
    outputRows = static_cast<int32_t>(std::min<int64_t>(roundCropValue(defaultCropSize[1]),
                                                        static_cast<int64_t>(inputRows) - cropOriginRow));
    outputCols = static_cast<int32_t>(std::min<int64_t>(roundCropValue(defaultCropSize[0]),
                                                        static_cast<int64_t>(inputCols) - cropOriginCol));
    CD_ASSERT(outputRows > 0);
    CD_ASSERT(outputCols > 0);
}

void cd_DecodeDNGTags::prepareMatrices() {
    if (cameraCalibration1.size() != 0) {
        xyz2rgbMatrix1 = multiplyMatrix(cameraCalibration1, xyz2rgbMatrix1, colorPlanes);
        cameraCalibration1.resize(0);  // never fold it in twice
    }
    if (cameraCalibration2.size() != 0) {
        xyz2rgbMatrix2 = multiplyMatrix(cameraCalibration2, xyz2rgbMatrix2, colorPlanes);
        cameraCalibration2.resize(0);
    }
    if (cameraCalibration1.size() != 0) {
        throw cd_exception("cd_DecodeDNGTags - invalid camera calibration matrix");
    }
    // Everything below inverts ColorMatrix1 as a 3x3 matrix. A matrix of 10 or 11 values passes the
    // plane count, and a 1x3 calibration turns it into 3 values; refuse both here rather than
    // stopping the process on the inversion's size assertion.
    if (xyz2rgbMatrix1.size() != 9) {
        throw cd_exception("cd_DecodeDNGTags - ColorMatrix1 must hold 9 values");
    }
}

float cd_DecodeDNGTags::cctToMired(float kelvin) { return 1.0e6f / kelvin; }

std::valarray<float> cd_DecodeDNGTags::XYZtoCameraWeightedMatrix(float mired, float mired1, float mired2) const {
    float w = (mired1 - mired) / (mired1 - mired2);
    w = std::clamp(w, 0.0f, 1.0f);
    if (xyz2rgbMatrix2.size() != xyz2rgbMatrix1.size()) {
        // Only reached through a direct call: the search uses ColorMatrix1 alone in that case.
        throw cd_exception("cd_DecodeDNGTags - ColorMatrix2 must match ColorMatrix1");
    }
    return xyz2rgbMatrix1 + w * (xyz2rgbMatrix2 - xyz2rgbMatrix1);
}

void cd_DecodeDNGTags::whiteBalanceSearchRange(float mired1, float mired2, float& start, float& end, float& step) {
    // Bounds: the mireds of 50000 K and 2000 K.
    const float lowest = cctToMired(50000.0f);
    const float highest = cctToMired(2000.0f);
    start = std::clamp(std::min(mired1, mired2), lowest, highest);
    end = std::clamp(std::max(mired1, mired2), lowest, highest);
    step = std::max((end - start) / 50.0f, 5.0f);
}

std::valarray<float> cd_DecodeDNGTags::findXYZtoCameraMtx(const std::valarray<float>& neutral) const {
    if (!hasCalibrationIlluminant2 || neutral.size() == 0 || xyz2rgbMatrix2.size() != 9) {
        if (verbose) {
            std::cerr << "- XYZ to Camera RGB matrix : using ColorMatrix1 only" << std::endl;
            if (neutral.size() == 0) {
                std::cerr << "-- no white balance" << std::endl;
            } else {
                std::cerr << "-- no calibrationIlluminant2" << std::endl;
            }
        }
        return xyz2rgbMatrix1;
    }

    const float cct1 = LightSourceToColorTemperature(calibrationIlluminant1);
    const float cct2 = LightSourceToColorTemperature(calibrationIlluminant2);
    const float mired1 = cctToMired(cct1);
    const float mired2 = cctToMired(cct2);
    float start, end, step;
    whiteBalanceSearchRange(mired1, mired2, start, end, step);

    // Walk the mired range until the temperature of the neutral, seen through the interpolated
    // matrix, crosses the mired that produced the matrix.
    float result = 0.0f;
    float previousMired = 0.0f;
    float difference = 0.0f;
    float bestDifference = 0.0f;
    bool firstStep = true;
    for (float mired = start; mired < end; mired += step) {
        const float previousDifference = difference;
        const std::valarray<float> M = XYZtoCameraWeightedMatrix(mired, mired1, mired2);
        const std::valarray<float> xyz = multiplyMatrix(invertMatrix(M), neutral, 3);
        difference = mired - 1.0e6f / XYZToColorTemperature(xyz);
        if (difference == 0.0f) {
            result = mired;
            break;
        }
        if (!firstStep && difference * previousDifference <= 0.0f) {
            // The correction is added, not subtracted: the result lies between this mired and the
            // next step rather than at the interpolated root. Calibrated behaviour; keep it.
            result = mired + difference / (difference - previousDifference) * (mired - previousMired);
            break;
        }
        if (firstStep || std::fabs(difference) < std::fabs(bestDifference)) {
            result = mired;
            bestDifference = difference;
        }
        previousMired = mired;
        firstStep = false;
    }

    if (verbose) {
        std::cerr << "- XYZ to Camera RGB matrix, white-balanced betweeen cct1: " << cct1 << " & cct2: " << cct2
                  << std::endl;
    }
    return XYZtoCameraWeightedMatrix(result, mired1, mired2);
}

void cd_DecodeDNGTags::getCameraToXYZMtx() {
    if (CameraToXYZMtx.size() == 0) {
        CameraToXYZMtx = invertMatrix(findXYZtoCameraMtx(asShotNeutral));
    }
    if (CameraToXYZMtx.sum() == 0.0f) {
        throw cd_exception("cd_DecodeDNGTags - CameraToXYZMtx illegal");
    }
}

void cd_DecodeDNGTags::getCameraXYZWhitePoint() {
    if (CameraToXYZMtx.size() == 0) {
        getCameraToXYZMtx();
    }
    std::valarray<float> white;
    if (asShotNeutral.size() == 0) {
        white = ColorTemperatureToXYZ(LightSourceToColorTemperature(calibrationIlluminant1));
        const float largest = white.max();
        white /= largest;
        if (verbose) {
            std::cerr << "-- asShotNeutral not defined. Defaulting white balance to CalibrationIlluminant1 color "
                         "temperature "
                      << XYZToColorTemperature(white) << std::endl;
        }
    } else {
        const float largestNeutral = asShotNeutral.max();
        const std::valarray<float> neutral = asShotNeutral / largestNeutral;
        white = multiplyMatrix(CameraToXYZMtx, neutral, 3);
        const float largest = white.max();
        white /= largest;
    }
    CameraXYZWhitePoint = white;
    if (CameraXYZWhitePoint.sum() == 0.0f) {
        throw cd_exception("cd_DecodeDNGTags - CameraXYZWhitePoint invalid");
    }
}

}  // namespace cinedng
