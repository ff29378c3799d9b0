#pragma once
// Produces the filled DNG tag record of a clip: loads one frame (from the look file named by the
// options, or from memory), parses its TIFF structure, reads every tag and lets the colour decoding
// derive the geometry and the colour model at the end of the record.
//
// A failing stage status is printed on the error stream and returned, leaving the caller's record
// untouched; failures raised by the stages (parser, tag reading, colour decoding) propagate.
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_getDNGParams {
public:
    // Frame 0 of the clip is the file options.LookFilename; the tag dump is printed when
    // options.VerboseMode is set. Returns 0 or the failing stage's status.
    static int getParams(cd_CommandLineOptions& options, cd_DNGTags& tags);
    // The same from one frame in memory (size bytes at data), without the tag dump.
    static int getParamsForImageData(unsigned char* data, long size, cd_DNGTags& tags);
};

}  // namespace cinedng
