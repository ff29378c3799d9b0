#pragma once
// Row location: for every frame of a clip, re-parses the frame, checks that its core layout matches
// the clip's, refreshes the per-frame metadata (image number, date, time code) and lays out the
// rows of its strips as pointers into the frame buffer, handed to a cd_ScanLineAccess. No pixel is
// copied. Only uncompressed, strip-organised frames are laid out; every row of a strip is taken to
// occupy the same number of bytes, given by the first strip.
#include <cstdint>
#include <vector>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_ScanLineAccess.h"
#include "cinedng/cd_genericStructs.h"
#include "cinedng/cd_parseTiff.h"

namespace cinedng {

class cd_locateRows {
public:
    // The clip's core layout, copied from the clip's tag record.
    uint32_t imageHeight = 0;
    uint32_t imageWidth = 0;
    uint32_t bitsPerSample = 0;
    uint32_t compression = 0;
    uint32_t photometric = 0;
    uint32_t byteOrder = 0;
    cd_parseTiff tiffReader;
    cd_DNGTags dngTags;
    IOstats stats_;

    int configure(cd_DNGTags& tags);
    int locateRows(const char* buffer, unsigned long long bufferSize, cd_ScanLineAccess& access,
                   DynamicMetadata& meta);
    IOstats stats() const { return stats_; }

private:
    std::vector<unsigned char*> rows_;
};

}  // namespace cinedng
