#pragma once
// DNG frame builder (internal: tests, benchmarks and the demo clip; not part of the library API).
//
// Two levels:
//
// 1. TiffBuilder, the low-level writer. It assembles any TIFF structure in memory: "II" or "MM",
//    IFD 0 plus further top-level IFDs (chained through the next-IFD link) and sub-IFDs (listed in
//    the parent's SubIFDs tag, typed LONG or IFD), any tag with any of the 13 TIFF field types,
//    values placed inside the entry when they fit in 4 bytes and out of line otherwise (word
//    aligned), and strips of packed samples. Entries are written sorted by tag code (stable, so
//    duplicates keep their order) unless sorting is switched off. Odd frames: raw entries with any
//    type code and count, entries with a literal value field (e.g. an offset past the end of the
//    file), and explicit strip bytes.
//
//        TiffBuilder b(ByteOrder::MM);
//        int raw = b.addSubIFD(0);                       // IFD 0 lists it in its SubIFDs tag
//        b.addLongs(0, 254, {1});                        // IFD 0: a thumbnail
//        b.addLongs(raw, 254, {0});
//        b.setImage(raw, samples, 64, 32, 12, 16);       // 12-bit packed, strips of 16 rows
//        std::vector<uint8_t> frame = b.build();
//
// 2. RawFrameDesc + buildRawFrame(), the high-level helper: a complete CinemaDNG frame (the raw
//    image in IFD 0, or a thumbnail IFD 0 with the raw image in a sub-IFD) from a handful of fields
//    and a raster of stored sample values. makeRawFrameBuilder() returns the TiffBuilder before it
//    is built, so a test can add or override tags first.
//
// Sample packing (TiffBuilder::packRows): each row starts on a byte boundary; 8-bit samples are
// bytes; 16-bit samples are 16-bit words in the frame's byte order; every other width 1..32 is an
// MSB-first bit stream (the first sample in the high bits of the first byte), whatever the byte
// order. Values are masked to the bit depth.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cinedng::framebuilder {

enum class ByteOrder { II, MM };

// TIFF field type codes (same numbering as the parser's).
enum FieldType : uint16_t {
    BYTE = 1, ASCII = 2, SHORT = 3, LONG = 4, RATIONAL = 5, SBYTE = 6, UNDEFINED = 7,
    SSHORT = 8, SLONG = 9, SRATIONAL = 10, FLOAT = 11, DOUBLE = 12, IFDTYPE = 13,
};

// Size in bytes of one value of a field type (0 for codes outside 1..13).
int fieldTypeSize(uint16_t type);

class TiffBuilder {
public:
    explicit TiffBuilder(ByteOrder order = ByteOrder::II);

    ByteOrder byteOrder() const { return order_; }

    // IFD 0 exists from the start (index 0). A chained IFD follows the previous top-level IFD
    // through its next-IFD link. A sub-IFD is listed (in creation order) in the parent's SubIFDs
    // tag (330), which is created with the first sub-IFD and typed subIfdType (LONG or IFDTYPE).
    int addChainedIFD();
    int addSubIFD(int parent, uint16_t subIfdType = LONG);

    // Typed tags; `type` may name any compatible type (e.g. SSHORT for addShorts, SLONG or IFDTYPE
    // for addLongs, SRATIONAL for addRationals, SBYTE/UNDEFINED/ASCII for addBytes).
    void addBytes(int ifd, uint16_t tag, const std::vector<uint8_t>& v, uint16_t type = BYTE);
    void addAscii(int ifd, uint16_t tag, const std::string& s);  // appends the terminating zero
    void addShorts(int ifd, uint16_t tag, const std::vector<uint16_t>& v, uint16_t type = SHORT);
    void addLongs(int ifd, uint16_t tag, const std::vector<uint32_t>& v, uint16_t type = LONG);
    void addRationals(int ifd, uint16_t tag, const std::vector<std::pair<uint32_t, uint32_t>>& v,
                      uint16_t type = RATIONAL);
    void addFloats(int ifd, uint16_t tag, const std::vector<float>& v);
    void addDoubles(int ifd, uint16_t tag, const std::vector<double>& v);
    // Any numeric type from numbers: integers are truncated (signed types take negatives),
    // rationals are written as round(v * den) / den with den = `rationalDenominator`.
    void addNumbers(int ifd, uint16_t tag, uint16_t type, const std::vector<double>& v,
                    int32_t rationalDenominator = 10000);

    // Odd entries. addRawEntry: the payload (already in the frame's byte order) lies in the entry
    // when it has at most 4 bytes and out of line otherwise, whatever type and count say.
    // addLiteralEntry: the 4-byte value field is written as given (e.g. an offset past the end).
    void addRawEntry(int ifd, uint16_t tag, uint16_t type, uint32_t count, const std::vector<uint8_t>& payload);
    void addLiteralEntry(int ifd, uint16_t tag, uint16_t type, uint32_t count, uint32_t valueField);
    // Drops every entry of that tag from the IFD (to override what a helper wrote).
    void removeTag(int ifd, uint16_t tag);

    // Image data. setImage packs `samples` (width*height stored values, row-major) and splits the
    // rows into strips of rowsPerStrip rows (0: one strip; the last strip may be short). It adds
    // StripOffsets (typed offsetsType: LONG or SHORT), StripByteCounts (LONG) and, when
    // writeRowsPerStrip, RowsPerStrip (LONG). setStrips takes strip bytes as they are.
    void setImage(int ifd, const std::vector<uint32_t>& samples, uint32_t width, uint32_t height, int bits,
                  uint32_t rowsPerStrip = 0, bool writeRowsPerStrip = true, uint16_t offsetsType = LONG);
    void setStrips(int ifd, const std::vector<std::vector<uint8_t>>& strips, uint16_t offsetsType = LONG);

    // Entries sorted by tag code (default) or written in insertion order.
    void setSortTags(bool sort) { sortTags_ = sort; }

    std::vector<uint8_t> build() const;
    void writeFile(const std::string& path) const;

    // Packs rows of samples as described at the top of this file.
    static std::vector<uint8_t> packRows(const std::vector<uint32_t>& samples, uint32_t width, uint32_t height,
                                         int bits, ByteOrder order);
    static uint64_t rowBytes(uint32_t width, int bits) { return (static_cast<uint64_t>(width) * bits + 7) / 8; }

private:
    enum class Deferred { None, SubIFDs, StripOffsets };
    struct Entry {
        uint16_t tag = 0;
        uint16_t type = 0;
        uint32_t count = 0;
        std::vector<uint8_t> payload;
        bool literal = false;
        uint32_t valueField = 0;
        Deferred deferred = Deferred::None;
    };
    struct Ifd {
        std::vector<Entry> entries;
        std::vector<int> children;               // sub-IFDs, in SubIFDs order
        std::vector<std::vector<uint8_t>> strips;
        uint16_t offsetsType = LONG;
        bool topLevel = false;
    };

    void put16(std::vector<uint8_t>& out, uint16_t v) const;
    void put32(std::vector<uint8_t>& out, uint32_t v) const;
    void put64(std::vector<uint8_t>& out, uint64_t v) const;
    void addEntry(int ifd, Entry e);
    Ifd& at(int ifd);

    ByteOrder order_;
    std::vector<Ifd> ifds_;
    bool sortTags_ = true;
};

// ---- the high-level CinemaDNG frame --------------------------------------------------------------

struct RawFrameDesc {
    uint32_t width = 64;
    uint32_t height = 32;
    int bits = 12;
    ByteOrder byteOrder = ByteOrder::II;
    uint32_t rowsPerStrip = 0;            // 0: one strip holding every row
    bool writeRowsPerStrip = true;        // false: no RowsPerStrip tag
    bool useSubIFD = false;               // IFD 0 a 16x8 8-bit RGB thumbnail (NewSubFileType 1),
                                          // the raw image in its sub-IFD
    bool writeNewSubFileType = true;      // NewSubFileType 0 on the raw IFD
    uint16_t compression = 1;
    uint16_t photometric = 32803;         // CFA

    std::vector<uint16_t> cfaRepeatPatternDim = {2, 2};  // empty: tag omitted
    std::vector<uint8_t> cfaPattern = {0, 1, 1, 2};      // RGGB; empty: tag omitted
    std::vector<uint16_t> blackLevelRepeatDim;           // empty: omitted
    std::vector<uint32_t> blackLevel;                    // empty: omitted; SHORT when all fit, else LONG
    std::vector<uint32_t> whiteLevel;                    // empty: omitted; SHORT when all fit, else LONG
    std::vector<uint16_t> linearizationTable;            // empty: omitted
    std::vector<uint32_t> activeArea;                    // top, left, bottom, right; empty: omitted
    std::vector<uint32_t> defaultCropOrigin;             // empty: omitted (LONG)
    std::vector<uint32_t> defaultCropSize;               // empty: omitted (LONG)
    std::vector<double> colorMatrix1;                    // SRATIONAL /10000; empty: omitted
    std::vector<double> colorMatrix2;
    std::optional<uint16_t> calibrationIlluminant1;
    std::optional<uint16_t> calibrationIlluminant2;
    std::vector<double> asShotNeutral;                   // RATIONAL /10000; empty: omitted
    std::optional<double> baselineExposure;              // SRATIONAL /100
    std::vector<uint8_t> timeCodes;                      // BYTE (8 per time code); empty: omitted
    std::optional<std::pair<int32_t, int32_t>> frameRate;  // SRATIONAL n/d
    std::optional<uint32_t> imageNumber;                 // EXIF ImageNumber (LONG)
    std::string make = "cinedng";                        // strings: empty means omitted
    std::string model = "framebuilder";
    std::string uniqueCameraModel = "cinedng framebuilder";
    std::string dateTimeOriginal;
    std::vector<uint8_t> dngVersion = {1, 4, 0, 0};
    std::vector<double> blackLevelDeltaH;                // SRATIONAL /10000, one per column; empty: omitted
    std::vector<double> blackLevelDeltaV;                // SRATIONAL /10000, one per row; empty: omitted
    std::vector<double> cameraCalibration1;              // SRATIONAL /10000; empty: omitted
    std::vector<double> cameraCalibration2;
};

// Stored sample values width*height (row-major) for a frame: a deterministic ramp pattern within the
// bit depth, handy when a test does not care about the pixels.
std::vector<uint32_t> makeTestRaster(uint32_t width, uint32_t height, int bits, uint32_t salt = 0);

// The builder for a frame description and raster (raster empty: makeTestRaster). *rawIfd receives
// the index of the IFD that holds the raw image, for adding tags before build().
TiffBuilder makeRawFrameBuilder(const RawFrameDesc& desc, const std::vector<uint32_t>& samples, int* rawIfd = nullptr);
std::vector<uint8_t> buildRawFrame(const RawFrameDesc& desc, const std::vector<uint32_t>& samples = {});
void writeRawFrame(const std::string& path, const RawFrameDesc& desc, const std::vector<uint32_t>& samples = {});

}  // namespace cinedng::framebuilder
