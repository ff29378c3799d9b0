#include "cinedng/cd_DNGTags.h"

#include <iomanip>
#include <iostream>

#include "cinedng/cd_parseTiff.h"
#include "cinedng/cd_timeCode.h"

namespace cinedng {

using T = tiffTagCodes;

int cd_DNGTags::readAllTags(cd_parseTiff& tiff, bool debug) {
    cd_timing timer;
    byteOrder = tiff.byteOrder;

    // Absent tags leave what the query stores: zero for scalars, empty vectors and strings.
    tiff.getTag(T::ImageDescription, &imageDescription);
    tiff.getTag(T::Make, &make);
    tiff.getTag(T::Model, &model);
    tiff.getTag(T::Orientation, &orientation);
    tiff.getTag(T::Software, &software);
    tiff.getTag(T::DateTime, &dateTime);
    tiff.getTag(T::Artist, &artist);
    tiff.getTag(T::Copyright, &copyright);
    tiff.getTag(T::ExposureTime, &exposureTime);
    tiff.getTag(T::FNumber, &FNumber);
    tiff.getTag(T::TimeZoneOffset, &timeZoneOffset);
    tiff.getTag(T::DateTimeOriginal, &dateTimeOriginal);
    tiff.getTag(T::ShutterSpeedValue, &shutterSpeedValue);
    tiff.getTag(T::ApertureValue, &apertureValue);
    tiff.getTag(T::LightSource, &lightSource);
    tiff.getTag(T::FocalLength, &focalLength);
    tiff.getTag(T::ImageNumber, &imageNumber);
    tiff.getTag(T::UserComment, &userComment);
    tiff.getTag(T::SamplesPerPixel, &samplesPerPixel);
    tiff.getTag(T::PlanarConfiguration, &planarConfig);
    tiff.getTag(T::NewSubFileType, &newSubFileType);
    tiff.getTag(T::ImageWidth, &imageWidth);
    tiff.getTag(T::ImageLength, &imageHeight);
    tiff.getTag(T::BitsPerSample, &bitsPerSample);
    tiff.getTag(T::Compression, &compression);
    tiff.getTag(T::PhotometricInterpretation, &photometric);
    tiff.getTag(T::RowsPerStrip, &rowsPerStrip);
    tiff.getTag(T::TileLength, &tileLength);
    tiff.getTag(T::TileWidth, &tileWidth);
    tiff.getTag(T::DateTimeOriginal, &dateTimeOriginal);  // read a second time, harmlessly
    tiff.getTag(T::SubIFDs, &subIFDs);
    tiff.getTag(T::StripOffsets, &stripOffsets);
    tiff.getTag(T::StripByteCounts, &stripByteCounts);

    const int cfaStatus = tiff.getTag(T::CFAPattern, &CFAPattern);
    if (cfaStatus != 0) std::cerr << "CFAPattern read error  " << cfaStatus << std::endl;

    tiff.getTag(T::CFARepeatPatternDim, &CFARepeatPatternDim);
    hasCalibrationIlluminant1 = tiff.getTag(T::CalibrationIlluminant1, &calibrationIlluminant1) == 0;
    hasCalibrationIlluminant2 = tiff.getTag(T::CalibrationIlluminant2, &calibrationIlluminant2) == 0;
    hasCFALayout = tiff.getTag(T::CFALayout, &CFALayout) == 0;
    hasFillOrder = tiff.getTag(T::FillOrder, &fillOrder) == 0;
    hasBayerGreenSplit = tiff.getTag(T::BayerGreenSplit, &bayerGreenSplit) == 0;

    tiff.getTag(T::DNGVersion, &dngVersion);
    tiff.getTag(T::DNGBackwardVersion, &dngBackVersion);
    tiff.getTag(T::CFAPlaneColor, &CFAPlaneColor);
    tiff.getTag(T::BlackLevelRepeatDim, &blackLevelRepeatDim);
    tiff.getTag(T::LinearizationTable, &linearizationTable);
    tiff.getTag(T::ActiveArea, &activeArea);
    tiff.getTag(T::WhiteLevel, &whiteLevel);
    tiff.getTag(T::BlackLevel, &blackLevel);
    tiff.getTag(T::BlackLevelDeltaH, &blackLevelH);
    tiff.getTag(T::BlackLevelDeltaV, &blackLevelV);
    tiff.getTag(T::DefaultCropOrigin, &defaultCropOrigin);
    tiff.getTag(T::DefaultCropSize, &defaultCropSize);
    tiff.getTag(T::AsShotNeutral, &asShotNeutral);
    tiff.getTag(T::CameraCalibration1, &cameraCalibration1);
    tiff.getTag(T::CameraCalibration2, &cameraCalibration2);
    tiff.getTag(T::ColorMatrix1, &xyz2rgbMatrix1);
    tiff.getTag(T::ColorMatrix2, &xyz2rgbMatrix2);
    tiff.getTag(T::LensInfo, &lensInfo);
    tiff.getTag(T::UniqueCameraModel, &cameraModel);
    tiff.getTag(T::CameraSerialNumber, &cameraNumber);
    tiff.getTag(T::LocalizedCameraModel, &localizedCameraModel);
    tiff.getTag(T::BaselineExposure, &baselineExposure);
    tiff.getTag(T::ExposureIndex, &exposureIndexExif);
    tiff.getTag(T::DNGPrivateData, &privateData);
    hasFrameRate = tiff.getTag(T::FrameRate, &frameRate) == 0;
    tiff.getTag(T::TimeCodes, &timeCodes);
    tiff.getTag(T::TStop, &tStop);

    // Defaults the DNG format implies for absent tags, in this order (later ones use earlier ones).
    if (rowsPerStrip > imageHeight) rowsPerStrip = imageHeight;
    if (orientation == 0) orientation = 1;
    if (samplesPerPixel == 0) samplesPerPixel = 1;
    if (planarConfig == 0) planarConfig = 1;
    if (blackLevelRepeatDim.empty()) blackLevelRepeatDim = {1, 1};
    if (blackLevel.empty()) blackLevel = {0.0f};
    if (whiteLevel.empty()) whiteLevel = {(1u << (bitsPerSample % 32u)) - 1u};
    if (activeArea.empty()) activeArea = {0u, 0u, imageHeight, imageWidth};
    if (defaultCropOrigin.empty()) defaultCropOrigin = {0.0f, 0.0f};
    if (defaultCropSize.empty()) {
        // A short ActiveArea or DefaultCropOrigin reads its missing values as 0.
        auto area = [this](size_t i) { return i < activeArea.size() ? activeArea[i] : 0u; };
        auto origin = [this](size_t i) { return i < defaultCropOrigin.size() ? defaultCropOrigin[i] : 0.0f; };
        defaultCropSize = {static_cast<float>(area(3) - area(1)) - origin(0),
                           static_cast<float>(area(2) - area(0)) - origin(1)};
    }

    stats_.timeDataProcessing += timer.time();
    if (debug) debugPrintTags(std::cerr);
    return 0;
}

int cd_DNGTags::readCoreTags(cd_parseTiff& tiff) {
    cd_timing timer;
    byteOrder = tiff.byteOrder;
    tiff.getTag(T::ImageWidth, &imageWidth);
    tiff.getTag(T::ImageLength, &imageHeight);
    tiff.getTag(T::BitsPerSample, &bitsPerSample);
    tiff.getTag(T::SamplesPerPixel, &samplesPerPixel);
    tiff.getTag(T::Compression, &compression);
    tiff.getTag(T::PhotometricInterpretation, &photometric);
    stats_.timeDataProcessing += timer.time();
    return 0;
}

int cd_DNGTags::readDynamicMetadataTags(cd_parseTiff& tiff) {
    cd_timing timer;
    imageNumber = 0;
    dateTimeOriginal.clear();
    timeCodes.clear();
    tiff.getTag(T::ImageNumber, &imageNumber);
    tiff.getTag(T::DateTimeOriginal, &dateTimeOriginal);
    tiff.getTag(T::TimeCodes, &timeCodes);
    stats_.timeDataProcessing += timer.time();
    return 0;
}

int cd_DNGTags::readStorageTags(cd_parseTiff& tiff) {
    cd_timing timer;
    tiff.getTag(T::StripOffsets, &stripOffsets);
    tiff.getTag(T::StripByteCounts, &stripByteCounts);
    tiff.getTag(T::RowsPerStrip, &rowsPerStrip);
    stats_.timeDataProcessing += timer.time();
    return 0;
}

// ---- tag dumps ----

namespace {

template <typename V>
void scalarLine(std::ostream& os, const char* name, const V& value) {
    os << std::setw(24) << name << "   = " << value << std::endl;
}

// Small integers (bytes, shorts) print as numbers, not characters.
void scalarLine(std::ostream& os, const char* name, uint16_t value) {
    os << std::setw(24) << name << "   = " << static_cast<unsigned>(value) << std::endl;
}

// Name[count]={ e0, e1, ... } with at most 20 elements, each converted to float.
template <typename E>
void vectorLine(std::ostream& os, const char* name, const std::vector<E>& v) {
    os << std::setw(24) << name << "[" << v.size() << "]={ ";
    const size_t shown = v.size() < 20 ? v.size() : 20;
    for (size_t i = 0; i < shown; ++i) {
        if (i) os << ", ";
        os << static_cast<float>(v[i]);
    }
    if (v.size() > 20) os << " ...";
    os << " }" << std::endl;
}

// The first time code of the TimeCodes tag, decoded at the clip's frame rate.
void timeCodeLine(std::ostream& os, const std::vector<uint8_t>& timeCodes, const srational& frameRate) {
    os << std::setw(24) << "tc" << "   = ";
    if (timeCodes.size() >= 8) os << cd_timeCode(timeCodes.data(), static_cast<float>(frameRate));
    os << std::endl;
}

}  // namespace

void cd_DNGTags::debugPrintTags(std::ostream& os) const {
    os << "Display of important tags: " << std::endl;
    scalarLine(os, "byteOrder", byteOrder);
    scalarLine(os, "newSubFileType", newSubFileType);
    scalarLine(os, "imageWidth", imageWidth);
    scalarLine(os, "imageHeight", imageHeight);
    scalarLine(os, "bitsPerSample", bitsPerSample);
    scalarLine(os, "compression", compression);
    scalarLine(os, "photometric", photometric);
    scalarLine(os, "fillOrder", fillOrder);
    scalarLine(os, "imageDescription", imageDescription);
    scalarLine(os, "make", make);
    scalarLine(os, "model", model);
    vectorLine(os, "stripOffsets", stripOffsets);
    scalarLine(os, "orientation", orientation);
    scalarLine(os, "samplesPerPixel", samplesPerPixel);
    scalarLine(os, "rowsPerStrip", rowsPerStrip);
    vectorLine(os, "stripByteCounts", stripByteCounts);
    scalarLine(os, "planarConfig", planarConfig);
    scalarLine(os, "tileWidth", tileWidth);
    scalarLine(os, "tileLength", tileLength);
    scalarLine(os, "software", software);
    scalarLine(os, "dateTime", dateTime);
    scalarLine(os, "artist", artist);
    vectorLine(os, "subIFDs", subIFDs);
    vectorLine(os, "CFARepeatPatternDim", CFARepeatPatternDim);
    vectorLine(os, "CFAPattern", CFAPattern);
    vectorLine(os, "timeZoneOffset", timeZoneOffset);
    scalarLine(os, "dateTimeOriginal", dateTimeOriginal);
    vectorLine(os, "shutterSpeedValue", shutterSpeedValue);
    vectorLine(os, "apertureValue", apertureValue);
    scalarLine(os, "lightSource", lightSource);
    vectorLine(os, "focalLength", focalLength);
    scalarLine(os, "imageNumber", imageNumber);
    scalarLine(os, "userComment", userComment);
    vectorLine(os, "dngVersion", dngVersion);
    vectorLine(os, "dngBackVersion", dngBackVersion);
    scalarLine(os, "cameraModel", cameraModel);
    scalarLine(os, "localizedCameraModel", localizedCameraModel);
    vectorLine(os, "CFAPlaneColor", CFAPlaneColor);
    scalarLine(os, "CFALayout", CFALayout);
    vectorLine(os, "linearizationTable", linearizationTable);
    vectorLine(os, "blackLevelRepeatDim", blackLevelRepeatDim);
    vectorLine(os, "blackLevel", blackLevel);
    vectorLine(os, "blackLevelH", blackLevelH);
    vectorLine(os, "blackLevelV", blackLevelV);
    vectorLine(os, "whiteLevel", whiteLevel);
    vectorLine(os, "defaultCropOrigin", defaultCropOrigin);
    vectorLine(os, "defaultCropSize", defaultCropSize);
    vectorLine(os, "xyz2rgbMatrix1", xyz2rgbMatrix1);
    vectorLine(os, "xyz2rgbMatrix2", xyz2rgbMatrix2);
    vectorLine(os, "cameraCalibration1", cameraCalibration1);
    vectorLine(os, "cameraCalibration2", cameraCalibration2);
    vectorLine(os, "asShotNeutral", asShotNeutral);
    scalarLine(os, "bayerGreenSplit", bayerGreenSplit);
    scalarLine(os, "cameraNumber", cameraNumber);
    vectorLine(os, "lensInfo", lensInfo);
    scalarLine(os, "calibrationIlluminant1", calibrationIlluminant1);
    scalarLine(os, "calibrationIlluminant2", calibrationIlluminant2);
    vectorLine(os, "activeArea", activeArea);
    vectorLine(os, "timeCodes", timeCodes);
    timeCodeLine(os, timeCodes, frameRate);
    scalarLine(os, "frameRate", frameRate);
    vectorLine(os, "tStop", tStop);
}

void cd_DNGTags::debugImageTags(std::ostream& os) const {
    os << "Display of image-specific tags: " << std::endl;
    scalarLine(os, "imageWidth", imageWidth);
    scalarLine(os, "imageHeight", imageHeight);
    scalarLine(os, "bitsPerSample", bitsPerSample);
    scalarLine(os, "samplesPerPixel", samplesPerPixel);
    scalarLine(os, "compression", compression);
    scalarLine(os, "photometric", photometric);
    vectorLine(os, "stripOffsets", stripOffsets);
    scalarLine(os, "rowsPerStrip", rowsPerStrip);
    vectorLine(os, "stripByteCounts", stripByteCounts);
    // The tags the per-frame refresh re-reads.
    scalarLine(os, "imageNumber", imageNumber);
    scalarLine(os, "dateTimeOriginal", dateTimeOriginal);
    vectorLine(os, "timeCodes", timeCodes);
    timeCodeLine(os, timeCodes, frameRate);
}

}  // namespace cinedng
