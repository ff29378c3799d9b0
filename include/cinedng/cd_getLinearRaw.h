#pragma once
// The lineariser: turns one located raw row into normalised floats. It unpacks samples of 1 to 25
// bits (most significant bit first), crops to the active area, maps through the linearisation table,
// subtracts the black level (single value, repeating pattern, per-column and per-row deltas) and
// scales so that black is 0.0 and the white level 1.0. Values are not clipped.
#include <cstdint>
#include <vector>

#include "cinedng/cd_ScanLineAccess.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_getLinearRaw {
public:
    int configure(linearParams& params);
    // Writes output row `row` (inputCols floats at pRawImagePixels + row * inputCols).
    int getRow(cd_ScanLineAccess& access, int row);
    IOstats stats() const { return stats_; }

    // Configured values (copied from linearParams) and the values derived from them.
    int bits = 0;
    int top = 0;
    int left = 0;
    int rows = 0;
    int cols = 0;
    float* pRawImagePixels = nullptr;
    std::vector<uint16_t> linearizationTable;
    std::vector<uint16_t> blackLevelRepeatDim;
    std::vector<float> blackLevel;
    std::vector<float> blackLevelDeltaH;
    std::vector<float> blackLevelDeltaV;
    std::vector<uint32_t> whiteLevel;
    uint16_t byteOrder = 0x4949;

    uint32_t sampleMask = 0;
    int bitsPerByte = 8;
    int64_t leftByteOffset = 0;
    int leftBitSkip = 0;
    bool hasTable = false;
    uint32_t tableSize = 0;
    const uint16_t* table = nullptr;
    uint32_t tableMax = 0;
    double baseBlack = 0.0;
    double rowBlack = 0.0;
    bool hasBlackPattern = false;
    const float* blackPattern = nullptr;
    uint32_t patternRows = 0;
    uint32_t patternCols = 0;
    bool hasDeltaH = false;
    const float* deltaH = nullptr;
    bool hasDeltaV = false;
    const float* deltaV = nullptr;
    double normalizeRawFactor = 0.0;
    IOstats stats_;

    // Bytes of a stored row that one output row reads, starting at leftByteOffset.
    int64_t bytesPerActiveRow() const { return rowBytesNeeded_; }

private:
    void unpackRow(const unsigned char* src);
    void buildLookup();

    int64_t rowBytesNeeded_ = 0;
    bool useLookup_ = false;
    bool vectorRows_ = false;  // the AVX2 kernels take the row (checked per row: the black must be whole)
    std::vector<uint32_t> samples_;     // one unpacked row
    std::vector<unsigned char> rowCopy_;  // zero-padded copy of a row that ends past the frame
    std::vector<float> patternRow_;     // the black pattern expanded over one row
    std::vector<float> lookup_;         // sample -> output for widths up to 16 bits without per-row terms
};

}  // namespace cinedng
