#pragma once
// Lays out one uncompressed, single-part, scan-line OpenEXR file in a caller's memory buffer:
// sizes the scan lines, serialises magic, version, header and line offset table, and converts each
// incoming RGB row through the net colour matrix into a half-float scan-line block whose channels
// are stored B, G, R (the order readers expect after sorting the channel names).
#include <cstdint>
#include <valarray>
#include <vector>

#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_writeOpenEXRattributes.h"

namespace cinedng {

class cd_openEXRformatter : public cd_writeOpenEXRattributes {
public:
    cd_openEXRformatter();

    // Writes magic, version, header and line offset table into the start of pOutputBuffer and
    // returns the size of the whole file (header, offset table and all scan-line blocks).
    uint64_t writeAllButScanlines(openEXRHeaderInfo& hi, std::valarray<float>& colorMatrix, char* pOutputBuffer,
                                  uint64_t outputBufferSize);
    // Converts one row of interleaved R, G, B floats (cols pixels) and stores its block.
    void writeScanLine(const float* rgb, unsigned int row);

    // Half-float bits of v: mantissa truncated, finite values above the half range clamped to
    // 65504, infinities and NaN kept.
    static uint16_t floatToHalf(float v);
    // The colour matrix (row-major 3 x 3) applied to n interleaved RGB pixels, converted to half and
    // stored as three planes: B at b[0..n), G at g[0..n), R at r[0..n). The planes may be unaligned.
    static void convertRow(const float* rgb, const float* m, unsigned int n, unsigned char* b, unsigned char* g,
                           unsigned char* r);

    void getImageDimensions();
    void getSizes();
    void createLineOffsetTableAndOffsets();

    openEXRHeaderInfo headerInfo;
    uint64_t offsetToLineOffsetTable = 0;
    std::vector<uint64_t> lineOffsets;
    uint64_t offsetToScanLineArea = 0;
    uint64_t fileSize = 0;
    char* pOutputBuffer = nullptr;
    std::valarray<float> colorMatrix;
    uint32_t rows = 0;
    uint32_t cols = 0;
    uint32_t bytesPerPixel = 0;
    uint32_t scanLineDataSize = 0;
    uint32_t scanLineBlockSize = 0;
    uint32_t numberOfLineOffsets = 0;
    uint32_t lineOffsetTableSize = 0;
    int32_t firstY = 0;

private:
    uint64_t outputBufferSize_ = 0;
};

}  // namespace cinedng
