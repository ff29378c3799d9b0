#pragma once
// Derives what the pipeline needs from the raw tag values of a clip's first frame: the sensor
// geometry (active area and default crop, in rows and columns) and the DNG colour model (the
// XYZ-to-camera matrix interpolated between the two calibration illuminants for the as-shot white,
// its inverse camera-to-XYZ, and the camera white point in XYZ). configure() writes the results
// back into the tag record.
//
// Failures are cd_exception ("cd_DecodeDNGTags - ..." or a matrixOps text); geometry violations
// are assertions ("activeArea.size() == 4", "inputRows > 0", "inputCols > 0", "outputRows > 0",
// "outputCols > 0").
#include <cstdint>
#include <valarray>
#include <vector>

namespace cinedng {

class cd_DNGTags;

class cd_DecodeDNGTags {
public:
    uint32_t imageWidth = 0;
    uint32_t imageHeight = 0;
    std::vector<uint32_t> activeArea;      // top, left, bottom, right
    std::vector<float> defaultCropOrigin;  // column, row
    std::vector<float> defaultCropSize;    // columns, rows
    int32_t colorPlanes = 0;
    uint16_t calibrationIlluminant1 = 0;
    uint16_t calibrationIlluminant2 = 0;
    bool hasCalibrationIlluminant1 = false;
    bool hasCalibrationIlluminant2 = false;
    std::valarray<float> asShotNeutral;
    std::valarray<float> cameraCalibration1;
    std::valarray<float> cameraCalibration2;
    std::valarray<float> xyz2rgbMatrix1;  // ColorMatrix1: XYZ to camera RGB
    std::valarray<float> xyz2rgbMatrix2;  // ColorMatrix2
    bool verbose = false;

    // Derived geometry. The crop origin is relative to the active area.
    int32_t activeTop = 0;
    int32_t activeLeft = 0;
    int32_t inputRows = 0;
    int32_t inputCols = 0;
    int32_t cropOriginRow = 0;
    int32_t cropOriginCol = 0;
    int32_t outputRows = 0;
    int32_t outputCols = 0;

    std::valarray<float> CameraToXYZMtx;       // camera RGB to XYZ, 3x3
    std::valarray<float> CameraXYZWhitePoint;  // XYZ, largest component 1

    // Runs every step on the record and writes geometry and colour model back into it. Returns 0.
    int configure(cd_DNGTags& tags, bool verbose);

    void decodeActiveArea();
    void decodeCropSize();
    // Folds CameraCalibration1/2 into ColorMatrix1/2 once (the calibrations are emptied).
    void prepareMatrices();
    void getCameraToXYZMtx();
    void getCameraXYZWhitePoint();

    // ColorMatrix1 + w * (ColorMatrix2 - ColorMatrix1), w = (mired1 - mired) / (mired1 - mired2)
    // clamped to [0, 1]: linear in inverse temperature.
    std::valarray<float> XYZtoCameraWeightedMatrix(float mired, float mired1, float mired2) const;
    static float cctToMired(float kelvin);
    // The XYZ-to-camera matrix whose temperature matches that of the given camera neutral.
    std::valarray<float> findXYZtoCameraMtx(const std::valarray<float>& neutral) const;

    // Mired range and step that findXYZtoCameraMtx walks for the two illuminants' mireds.
    static void whiteBalanceSearchRange(float mired1, float mired2, float& start, float& end, float& step);
};

}  // namespace cinedng
