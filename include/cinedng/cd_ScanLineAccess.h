#pragma once
// Row access into one frame buffer: a table of pointers to the first byte of every stored raw row,
// filled by the row locator and read by the lineariser. Nothing is copied; the frame buffer must
// outlive the table.
//
// Besides the row pointers the table can know the frame buffer they point into. Then
// bytesAvailable() tells how many bytes may be read from a row pointer before the end of the frame,
// and the lineariser reads any byte beyond that end as zero instead of touching memory outside the
// frame. A table configured from row pointers alone has no such bound.
#include <cstdint>
#include <vector>

#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_ScanLineAccess {
public:
    std::vector<unsigned char*> rows;
    uint32_t imageHeight = 0;
    IOstats stats_;

    // Takes the row pointers; no frame bounds are known afterwards.
    int configure(std::vector<unsigned char*>& rows);
    // Takes the row pointers together with the frame buffer they point into.
    int configure(std::vector<unsigned char*>& rows, const unsigned char* frameBegin, uint64_t frameSize);

    unsigned char* getRow(unsigned int row);

    // True when the frame buffer is known.
    bool hasFrameBounds() const { return frameBegin_ != nullptr; }
    const unsigned char* frameBegin() const { return frameBegin_; }
    const unsigned char* frameEnd() const { return frameBegin_ + frameSize_; }
    uint64_t frameSize() const { return frameSize_; }

    IOstats stats() const { return stats_; }

private:
    const unsigned char* frameBegin_ = nullptr;
    uint64_t frameSize_ = 0;
};

}  // namespace cinedng
