#pragma once
// The DNG tag record of a clip: every tag the system uses, read from one frame through the TIFF
// parser, with the DNG defaults applied where a tag is absent, followed by presence flags and the
// values that the colour decoding derives (geometry and colour model).
#include <cstdint>
#include <ostream>
#include <string>
#include <valarray>
#include <vector>

#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_parseTiff;

class cd_DNGTags {
public:
    // 1..68: tag fields, in record order (source tag code in the comment).
    IOstats stats_;
    std::string imageDescription;             // 270
    std::string make;                         // 271
    std::string model;                        // 272
    uint32_t orientation = 0;                 // 274, default 1
    std::string software;                     // 305
    std::string dateTime;                     // 306
    std::string artist;                       // 315
    std::string copyright;                    // 33432
    std::vector<urational> exposureTime;      // 33434
    srational baselineExposure;               // 50730
    urational exposureIndexExif;              // 41493
    std::vector<urational> FNumber;           // 33437
    std::vector<int16_t> timeZoneOffset;      // 34858
    std::string dateTimeOriginal;             // 36867
    std::vector<srational> shutterSpeedValue; // 37377
    std::vector<urational> apertureValue;     // 37378
    uint16_t lightSource = 0;                 // 37384
    std::vector<urational> focalLength;       // 37386
    uint32_t imageNumber = 0;                 // 37393
    std::string userComment;                  // 37510
    uint16_t byteOrder = 0;                   // from the parser
    uint16_t bitsPerSample = 0;               // 258
    uint16_t compression = 0;                 // 259
    uint16_t fillOrder = 0;                   // 266
    uint16_t photometric = 0;                 // 262
    uint16_t planarConfig = 0;                // 284, default 1
    uint16_t samplesPerPixel = 0;             // 277, default 1
    uint32_t newSubFileType = 0;              // 254
    uint32_t imageWidth = 0;                  // 256
    uint32_t imageHeight = 0;                 // 257
    uint32_t rowsPerStrip = 0;                // 278, clamped to imageHeight
    uint32_t tileLength = 0;                  // 323
    uint32_t tileWidth = 0;                   // 322
    std::vector<uint32_t> stripByteCounts;    // 279
    std::vector<uint32_t> stripOffsets;       // 273
    std::vector<uint32_t> subIFDs;            // 330
    std::vector<uint8_t> CFAPattern;          // 33422
    std::vector<uint16_t> CFARepeatPatternDim;  // 33421
    uint16_t calibrationIlluminant1 = 0;      // 50778
    uint16_t calibrationIlluminant2 = 0;      // 50779
    uint16_t CFALayout = 0;                   // 50711
    uint32_t bayerGreenSplit = 0;             // 50733
    std::vector<uint8_t> dngVersion;          // 50706
    std::vector<uint8_t> dngBackVersion;      // 50707
    std::vector<uint8_t> CFAPlaneColor;       // 50710
    std::vector<uint16_t> blackLevelRepeatDim;  // 50713, default (1, 1)
    std::vector<uint16_t> linearizationTable;   // 50712
    std::vector<uint32_t> activeArea;         // 50829 top, left, bottom, right
    std::vector<uint32_t> whiteLevel;         // 50717, default 2^bits - 1
    std::vector<float> defaultCropOrigin;     // 50719 horizontal, vertical
    std::vector<float> defaultCropSize;       // 50720 width, height
    std::vector<float> blackLevel;            // 50714, default (0)
    std::vector<float> blackLevelH;           // 50715
    std::vector<float> blackLevelV;           // 50716
    std::vector<float> asShotNeutral;         // 50728
    std::vector<float> cameraCalibration1;    // 50723
    std::vector<float> cameraCalibration2;    // 50724
    std::vector<float> xyz2rgbMatrix1;        // 50721 ColorMatrix1
    std::vector<float> xyz2rgbMatrix2;        // 50722 ColorMatrix2
    std::vector<urational> lensInfo;          // 50736
    std::string cameraModel;                  // 50708 UniqueCameraModel
    std::string cameraNumber;                 // 50735 CameraSerialNumber
    std::string localizedCameraModel;         // 50709
    std::vector<uint8_t> timeCodes;           // 51043
    srational frameRate;                      // 51044
    std::vector<float> tStop;                 // 51058
    std::vector<uint8_t> privateData;         // 50740

    // 69: presence flags, true when the tag was found.
    bool hasBayerGreenSplit = false;
    bool hasCalibrationIlluminant1 = false;
    bool hasCalibrationIlluminant2 = false;
    bool hasCFALayout = false;
    bool hasFillOrder = false;
    bool hasFrameRate = false;

    // 70: values derived by the colour decoding (cd_DecodeDNGTags); the tag reading leaves them alone.
    // Active area: first stored row and column, rows and columns. Default crop: origin row and column
    // relative to the active area, rows and columns.
    int32_t activeTop = 0;
    int32_t activeLeft = 0;
    int32_t inputRows = 0;
    int32_t inputCols = 0;
    int32_t cropOriginRow = 0;
    int32_t cropOriginCol = 0;
    int32_t outputRows = 0;
    int32_t outputCols = 0;
    int32_t derivedReserved = 0;

    // 71: colour model derived by the colour decoding: camera RGB to XYZ (3x3, row-major) and the
    // camera white point in XYZ (largest component 1).
    std::valarray<float> CameraToXYZMtx;
    std::valarray<float> CameraXYZWhitePoint;

    int readAllTags(cd_parseTiff& tiff, bool debug);
    int readCoreTags(cd_parseTiff& tiff);
    int readDynamicMetadataTags(cd_parseTiff& tiff);
    int readStorageTags(cd_parseTiff& tiff);
    IOstats stats() const { return stats_; }

    // Tag dumps: the clip's important tags, and the tags that change from image to image.
    void debugPrintTags(std::ostream& os) const;
    void debugImageTags(std::ostream& os) const;
};

}  // namespace cinedng
