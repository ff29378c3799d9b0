#pragma once
// In-memory model of one OpenEXR header: the small attribute value records, the descriptive
// attributes (HeaderInfo), the complete header with its ACES defaults (openEXRHeaderInfo), and the
// EXR output record of a clip (MetaWriteClip) that configures the writer.
#include <cstdint>
#include <ostream>
#include <string>
#include <valarray>
#include <vector>

#include "cinedng/cd_genericStructs.h"

namespace cinedng {

// Integer rectangle with inclusive bounds (data and display windows).
struct box2i {
    int32_t xMin = 0;
    int32_t yMin = 0;
    int32_t xMax = 0;
    int32_t yMax = 0;

    box2i() = default;
    box2i(int32_t xMin_, int32_t yMin_, int32_t xMax_, int32_t yMax_)
        : xMin(xMin_), yMin(yMin_), xMax(xMax_), yMax(yMax_) {}
};
std::ostream& operator<<(std::ostream& os, const box2i& b);

// CIE xy of the three primaries and of the white point.
struct chromaticities {
    float redX = 0.0f;
    float redY = 0.0f;
    float greenX = 0.0f;
    float greenY = 0.0f;
    float blueX = 0.0f;
    float blueY = 0.0f;
    float whiteX = 0.0f;
    float whiteY = 0.0f;

    chromaticities() = default;
    chromaticities(float rX, float rY, float gX, float gY, float bX, float bY, float wX, float wY)
        : redX(rX), redY(rY), greenX(gX), greenY(gY), blueX(bX), blueY(bY), whiteX(wX), whiteY(wY) {}
};
std::ostream& operator<<(std::ostream& os, const chromaticities& c);

// EXR compression code; only 0 (none) is ever written.
struct compression {
    uint8_t value = 0;

    compression() = default;
    explicit compression(uint8_t v) : value(v) {}
};

// EXR line order code; only 0 (increasing y) is ever written.
struct lineOrder {
    uint8_t value = 0;

    lineOrder() = default;
    explicit lineOrder(uint8_t v) : value(v) {}
};

// One entry of the channel list. pixelType: 0 unsigned int, 1 half, 2 float. pLinear holds the
// pLinear byte and the three reserved bytes of the file format in one word.
struct channelInfo {
    std::string name;
    int32_t pixelType = 1;
    uint32_t pLinear = 0;
    int32_t xSampling = 1;
    int32_t ySampling = 1;

    channelInfo() = default;
    explicit channelInfo(const std::string& name_) : name(name_) {}
};
std::ostream& operator<<(std::ostream& os, const channelInfo& c);

// Film key code.
struct keycode {
    int32_t filmMfcCode;
    int32_t filmType;
    int32_t prefix;
    int32_t count;
    int32_t perfOffset;
    int32_t perfsPerFrame;
    int32_t perfsPerCount;

    keycode();
    keycode(int filmMfcCode, int filmType, int prefix, int count, int perfOffset, int perfsPerFrame,
            int perfsPerCount);
};
std::ostream& operator<<(std::ostream& os, const keycode& k);

// EXR time code attribute value: the SMPTE time-and-flags word and the user-data word.
struct timecode {
    uint32_t timeAndFlags;
    uint32_t userData;

    timecode() : timeAndFlags(0), userData(0) {}
    timecode(unsigned int timeAndFlags_, unsigned int userData_)
        : timeAndFlags(timeAndFlags_), userData(userData_) {}
};
// Prints the time code decoded at 24 frames per second.
std::ostream& operator<<(std::ostream& os, const timecode& t);

// Descriptive header attributes. Numbers default to 0, strings to empty.
struct HeaderInfo {
    float whiteLuminance;
    v2f adoptedNeutral;
    std::string owner;
    std::string comments;
    std::string capDate;
    float utcOffset;
    float longitude;
    float latitude;
    float altitude;
    float focus;
    float expTime;
    float aperture;
    float isoSpeed;
    timecode timeCode;
    keycode keyCode;
    srational framesPerSecond;
    int32_t orientation;
    std::string artist;
    std::string make;
    std::string model;
    std::string software;
    std::string dateTime;
    std::string copyright;
    // Set by the writer for every frame; starts at 0.
    uint32_t imagenumber;

    HeaderInfo();
};
// One line, strings unquoted; imagenumber is not printed.
std::ostream& operator<<(std::ostream& os, const HeaderInfo& h);

// The complete header of an output file: the descriptive attributes followed by the structural
// ones. The defaults describe an ACES image of three half channels R, G, B.
struct openEXRHeaderInfo : public HeaderInfo {
    std::vector<channelInfo> channels;
    cinedng::compression compression;
    box2i dataWindow;
    box2i displayWindow;
    cinedng::lineOrder lineOrder;
    float pixelAspectRatio;
    v2f screenWindowCenter;
    float screenWindowWidth;
    std::string uuid;
    int32_t acesFlag;
    int32_t originalImageFlag;
    cinedng::chromaticities chromaticities;
    std::string lookModTransform;

    openEXRHeaderInfo();
};

// The EXR output record of a clip: what cd_openEXRWriter::configure takes.
struct MetaWriteClip {
    int frameCount = 0;
    int outputRows = 0;
    int outputCols = 0;
    openEXRHeaderInfo headerInfo;
    // Net colour matrix applied to every RGB pixel before it is written, row-major 3 x 3.
    std::valarray<float> colorMatrixFromSourceRGBToOutputRGB = std::valarray<float>(0.0f, 9);
    std::string outputFolder;
    std::string outputFilenameTemplate;
};

}  // namespace cinedng
