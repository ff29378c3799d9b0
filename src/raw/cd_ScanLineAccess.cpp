#include "cinedng/cd_ScanLineAccess.h"

#include "cinedng/cd_assert.h"

namespace cinedng {

int cd_ScanLineAccess::configure(std::vector<unsigned char*>& newRows) {
    cd_timing timer;
    if (&newRows != &rows) rows = newRows;
    imageHeight = static_cast<uint32_t>(rows.size());
    frameBegin_ = nullptr;
    frameSize_ = 0;
    stats_.timeConfigure += timer.time();
    return 0;
}

int cd_ScanLineAccess::configure(std::vector<unsigned char*>& newRows, const unsigned char* begin, uint64_t size) {
    const int status = configure(newRows);
    frameBegin_ = begin;
    frameSize_ = begin ? size : 0;
    return status;
}

unsigned char* cd_ScanLineAccess::getRow(unsigned int row) {
    cd_timing timer;
    CD_ASSERT(imageHeight > 0);
    CD_ASSERT(row < imageHeight);
    // The table is public; never index past it even if it was shortened behind our back.
    if (row >= rows.size()) throw cd_exception("cd_ScanLineAccess - row table is shorter than imageHeight");
    unsigned char* p = rows[row];
    stats_.timeDataProcessing += timer.time();
    return p;
}

}  // namespace cinedng
