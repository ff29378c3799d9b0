#pragma once
// Small value types shared by every stage (rationals, statistics, stop-watch, IFD entry) and the
// plain parameter records that configure the conversion stages.
#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace cinedng {

struct urational;

// Signed TIFF rational. The two-argument constructors force the denominator of a zero numerator
// to 1 and assert that the denominator is never 0.
struct srational {
    int32_t n;
    int32_t d;

    srational();
    srational(int n);
    srational(unsigned int n1);
    srational(int n, int d);
    srational(unsigned int n, unsigned int d);
    srational(urational u);
    // Spreads a float over a 32-bit rational. Only 0 survives the trip intact; the odd results for
    // other values (0.5 -> 0/-1, 1.0 -> -1/-1, 2.0 -> INT_MIN/INT_MIN) are the required behaviour.
    explicit srational(float F);

    operator float() const;
};

// Unsigned TIFF rational, same rules as srational.
struct urational {
    uint32_t n;
    uint32_t d;

    urational();
    urational(unsigned int n);
    urational(unsigned int n, unsigned int d);
    urational(srational s);
    explicit urational(float F);

    operator float() const;
};

std::ostream& operator<<(std::ostream& os, const srational& r);
std::ostream& operator<<(std::ostream& os, const urational& r);

// Statistics of one stage: bytes consumed or produced and the time spent in each phase (seconds).
struct IOstats {
    uint64_t bytesProcessed;
    float timeConfigure;
    float timeOpen;
    float timeDataProcessing;
    float timeClose;

    IOstats();
};
std::ostream& operator<<(std::ostream& os, const IOstats& s);

// Lap stop-watch: every time() measures since the previous call (or since construction).
class cd_timing {
public:
    cd_timing();
    static double current_time();
    float time();
    float time(const std::string& label);

private:
    double mark_;
};

struct v2f {
    float x;
    float y;
    v2f() : x(0.0f), y(0.0f) {}
    v2f(float x_, float y_) : x(x_), y(y_) {}
};
std::ostream& operator<<(std::ostream& os, const v2f& v);

// One TIFF IFD entry as located in a frame buffer. pValue points into a buffer the entry does not
// own. validBytes is the number of bytes that may be read from pValue before the end of that buffer
// (the printed form shows a fixed 32 bytes and prints 0 for any that lie beyond it).
struct localIFDEntry {
    uint16_t Tag = 0;
    uint16_t Type = 0;
    uint32_t Count = 0;
    uint32_t FieldSize = 0;
    const unsigned char* pValue = nullptr;
    uint64_t validBytes = 0;
};
std::ostream& operator<<(std::ostream& os, const localIFDEntry& e);

class cd_changeCase {
public:
    static std::string toLowerCase(const std::string& s);
};

// ---- conversion parameter records ------------------------------------------------------------

class cd_imageLoader;
class cd_locateRows;
class cd_getLinearRaw;
class cd_Debayer;
class cd_openEXRWriter;

// Options of a batch run.
struct cd_CommandLineOptions {
    bool VerboseMode;
    int PreferredWidth;
    int SkipFrames;
    int Threads;
    int MaxDuration;
    std::string OutputFormat;
    std::string InputFolder;
    std::string OutputFolder;
    std::string LookFilename;
    std::string OutputFilenameTemplate;
    int BenchmarkRuns;

    cd_CommandLineOptions();
};
std::ostream& operator<<(std::ostream& os, const cd_CommandLineOptions& o);

// What the clip converter is configured with. The stages are owned by the caller.
struct MetaConvertClip {
    cd_imageLoader* loader = nullptr;
    cd_locateRows* rowLocator = nullptr;
    cd_getLinearRaw* linearizer = nullptr;
    cd_Debayer* debayer = nullptr;
    cd_openEXRWriter* writer = nullptr;
    int duration = 0;
    int threads = 0;
    int benchmarkRuns = 0;
};

// What the lineariser is configured with.
struct linearParams {
    int bitsPerSample = 0;
    int firstRow = 0;
    int firstCol = 0;
    int inputRows = 0;
    int inputCols = 0;
    float* pRawImagePixels = nullptr;
    std::vector<uint16_t> linearizationTable;
    std::vector<uint16_t> blackLevelRepeatDim;
    std::vector<float> blackLevel;
    std::vector<float> blackLevelDeltaH;
    std::vector<float> blackLevelDeltaV;
    std::vector<uint32_t> whiteLevel;
    // Byte order of the frames (0x4949 "II" or 0x4D4D "MM"): 16-bit samples are read in this order.
    uint16_t byteOrder = 0x4949;
};

// What the CFA debayer is configured with.
struct debayerParams {
    int inputRows = 0;
    int inputCols = 0;
    float* pRawImagePixels = nullptr;
    int rowOffset = 0;
    int colOffset = 0;
    int outputRows = 0;
    int outputCols = 0;
    int reserved = 0;
    float* pOutputRowData = nullptr;
    std::vector<uint16_t> cfaRepeatPatternDim;
    std::vector<uint8_t> cfaPattern;
};

// Per-frame values refreshed by the row locator for every frame.
struct DynamicMetadata {
    uint32_t imageNumber = 0;
    std::array<uint8_t, 8> timeCode{};
    std::string dateTimeOriginal;
};

}  // namespace cinedng
