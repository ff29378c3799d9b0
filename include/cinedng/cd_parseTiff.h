#pragma once
// cd_parseTiff: reads tags out of one DNG frame held in memory as a single contiguous buffer.
//
// The parser never reads a file and never copies the frame. configure() validates the TIFF header
// and picks the IFD that describes the full-resolution raw image (IFD 0, or the first sub-IFD whose
// NewSubFileType is 0); getTag() answers typed queries, converting between TIFF field types where
// that makes sense and refusing where it does not.
//
// Failures of structure (bad header, no main image, a tag of an unacceptable type, an IFD or a
// value that lies outside the frame buffer) are raised as cd_exception whose what() is the message.
// A missing tag or a scalar query on a multi-valued tag is a status, not an exception.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cinedng/cd_genericStructs.h"

namespace cinedng {

// Tag codes the system queries (names from the TIFF, EXIF, DNG and CinemaDNG documents).
enum class tiffTagCodes : uint16_t {
    NewSubFileType = 254,
    ImageWidth = 256,
    ImageLength = 257,
    BitsPerSample = 258,
    Compression = 259,
    PhotometricInterpretation = 262,
    FillOrder = 266,
    ImageDescription = 270,
    Make = 271,
    Model = 272,
    StripOffsets = 273,
    Orientation = 274,
    SamplesPerPixel = 277,
    RowsPerStrip = 278,
    StripByteCounts = 279,
    PlanarConfiguration = 284,
    Software = 305,
    DateTime = 306,
    Artist = 315,
    TileWidth = 322,
    TileLength = 323,
    SubIFDs = 330,
    CFARepeatPatternDim = 33421,
    CFAPattern = 33422,
    Copyright = 33432,
    ExposureTime = 33434,
    FNumber = 33437,
    TimeZoneOffset = 34858,
    DateTimeOriginal = 36867,
    ShutterSpeedValue = 37377,
    ApertureValue = 37378,
    LightSource = 37384,
    FocalLength = 37386,
    ImageNumber = 37393,
    UserComment = 37510,
    ExposureIndex = 41493,
    DNGVersion = 50706,
    DNGBackwardVersion = 50707,
    UniqueCameraModel = 50708,
    LocalizedCameraModel = 50709,
    CFAPlaneColor = 50710,
    CFALayout = 50711,
    LinearizationTable = 50712,
    BlackLevelRepeatDim = 50713,
    BlackLevel = 50714,
    BlackLevelDeltaH = 50715,
    BlackLevelDeltaV = 50716,
    WhiteLevel = 50717,
    DefaultCropOrigin = 50719,
    DefaultCropSize = 50720,
    ColorMatrix1 = 50721,
    ColorMatrix2 = 50722,
    CameraCalibration1 = 50723,
    CameraCalibration2 = 50724,
    AsShotNeutral = 50728,
    BaselineExposure = 50730,
    BayerGreenSplit = 50733,
    CameraSerialNumber = 50735,
    LensInfo = 50736,
    DNGPrivateData = 50740,
    CalibrationIlluminant1 = 50778,
    CalibrationIlluminant2 = 50779,
    ActiveArea = 50829,
    TimeCodes = 51043,
    FrameRate = 51044,
    TStop = 51058,
};

// TIFF field types, indexed as in the typeSize table.
enum tiffFieldTypes : uint16_t {
    TIFF_NOTYPE = 0,
    TIFF_BYTE = 1,
    TIFF_ASCII = 2,
    TIFF_SHORT = 3,
    TIFF_LONG = 4,
    TIFF_RATIONAL = 5,
    TIFF_SBYTE = 6,
    TIFF_UNDEFINED = 7,
    TIFF_SSHORT = 8,
    TIFF_SLONG = 9,
    TIFF_SRATIONAL = 10,
    TIFF_FLOAT = 11,
    TIFF_DOUBLE = 12,
    TIFF_IFD = 13,
};
constexpr int TIFF_TYPE_COUNT = 14;

// Statuses of the parser (stored in `status` and returned, except TIFF_STATUS_NOT_BYTES which is
// only returned by the byte-vector query).
enum tiffStatusCodes : int {
    TIFF_STATUS_OK = 0,
    TIFF_STATUS_NOT_BYTES = 5,         // byte-vector query on a tag of a non-byte type
    TIFF_STATUS_ZERO_SIZE = 1003,      // the located entry has a field size of 0
    TIFF_STATUS_NOT_FOUND = 1010,      // the tag is in neither the sub-IFD nor IFD 0
    TIFF_STATUS_NOT_SCALAR = 1011,     // a scalar query found a tag whose count is not exactly 1
};

// An IFD inside the frame buffer: a 16-bit entry count followed by 12-byte entries.
using IFD = unsigned char;

class cd_parseTiff {
public:
    // ---- state (public, in this order) ----
    const char* imageBuffer = nullptr;       // first byte of the frame (not owned)
    uint64_t imageBufferSize = 0;            // size of the frame in bytes
    const IFD* ifd0 = nullptr;               // IFD 0 inside the buffer
    const IFD* subIFD = nullptr;             // chosen sub-IFD, or null when IFD 0 is the main image
    localIFDEntry tag;                       // the tag most recently located
    std::array<int, TIFF_TYPE_COUNT> typeSize{};  // size of one value of each field type
    IOstats stats_;
    int32_t status = 0;                      // result of the most recent operation
    uint16_t byteOrder = 0;                  // 0x4949 ("II") or 0x4D4D ("MM"), as read
    bool swapBytes = false;                  // frame byte order differs from the machine's

    cd_parseTiff();

    // Validates the header and selects the main-image IFD. Returns the status; failures raise.
    int configure(const char* imageBuffer, unsigned long long imageBufferSize);

    // 0x4949 on little-endian machines, 0x4D4D on big-endian ones.
    static uint16_t getNativeByteOrder();

    // The value unchanged when swapBytes is false, else with its bytes reversed.
    unsigned short byteSwap(unsigned short v) const;
    unsigned int byteSwap(unsigned int v) const;
    double byteSwap(double v) const;

    // Value readers, given a pointer into the buffer. They do not check bounds: the typed queries
    // check the whole value range before they call them.
    unsigned char getBYTE(const unsigned char* p) const;
    unsigned char getASCII(const unsigned char* p) const;
    unsigned char getSBYTE(const unsigned char* p) const;
    unsigned char getUNDEFINED(const unsigned char* p) const;
    unsigned short getSHORT(const unsigned char* p) const;
    unsigned int getLONG(const unsigned char* p) const;
    unsigned int getOFFSET(const unsigned char* p) const;
    short getSSHORT(const unsigned char* p) const;
    int getSLONG(const unsigned char* p) const;
    float getFLOAT(const unsigned char* p) const;
    double getDOUBLE(const unsigned char* p) const;
    // Numerator then denominator; a zero denominator is repaired to 1 with a warning on stderr.
    urational getRATIONAL(const unsigned char* p) const;
    srational getSRATIONAL(const unsigned char* p) const;

    // Pointer to the 12-byte entry with that tag in that IFD (first match), or null (also for a
    // null IFD). The scan raises when it reaches an entry that runs past the end of the buffer.
    const unsigned char* searchIFD(int tag, const IFD* ifd) const;
    // Searches the sub-IFD first, then IFD 0. Sets status to 0, or 1010 when the tag is absent.
    const unsigned char* locateTag(int tag);
    // Locates the tag and fills `tag` (Tag, Type, Count, FieldSize, pValue, validBytes).
    // Returns the status (0, 1003 for a zero field size, 1010 when absent). An out-of-line value
    // whose offset lies past the end of the buffer gets a null pValue; reading it raises.
    int getlocalIFDEntry(int tag);

    // Typed queries. Each returns the status; vectors and strings are emptied when the tag cannot
    // be read, scalars are set to zero (0/1 for rationals).
    int getTag(tiffTagCodes code, std::vector<unsigned char>* out);
    int getTag(tiffTagCodes code, std::vector<unsigned short>* out);
    int getTag(tiffTagCodes code, std::vector<unsigned int>* out);
    int getTag(tiffTagCodes code, std::vector<short>* out);
    int getTag(tiffTagCodes code, std::vector<int>* out);
    int getTag(tiffTagCodes code, std::vector<urational>* out);
    int getTag(tiffTagCodes code, std::vector<srational>* out);
    int getTag(tiffTagCodes code, std::vector<float>* out);
    int getTag(tiffTagCodes code, std::vector<double>* out);
    int getTag(tiffTagCodes code, std::string* out);
    int getTag(tiffTagCodes code, unsigned short* out);
    int getTag(tiffTagCodes code, unsigned int* out);
    int getTag(tiffTagCodes code, short* out);
    int getTag(tiffTagCodes code, int* out);
    int getTag(tiffTagCodes code, urational* out);
    int getTag(tiffTagCodes code, srational* out);
    int getTag(tiffTagCodes code, float* out);
    int getTag(tiffTagCodes code, double* out);

    IOstats stats() const { return stats_; }

private:
    const unsigned char* buf() const { return reinterpret_cast<const unsigned char*>(imageBuffer); }
    const IFD* ifdAt(uint64_t offset, const char* what) const;
    void printTypeDiagnostics() const;
    void checkValueRange() const;
    template <typename T, typename Conv>
    int readVector(tiffTagCodes code, std::vector<T>* out, const char* typeMessage, const char* sizeMessage,
                   Conv&& conv);
    template <typename T>
    int readScalar(tiffTagCodes code, T* out, T zero);
};

}  // namespace cinedng
