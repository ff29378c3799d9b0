#pragma once
// The EXR output stage of a clip. Configured once with a MetaWriteClip; for every frame it builds
// the complete file in one preallocated buffer (newImageObject), receives the RGB rows one by one
// (storeImageRow) and writes the buffer to disk with a single write (saveImageObject).
#include <cstdint>
#include <memory>
#include <string>
#include <valarray>

#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_genericStructs.h"
#include "cinedng/cd_openEXRformatter.h"

namespace cinedng {

class cd_openEXRWriter {
public:
    cd_openEXRWriter();
    ~cd_openEXRWriter();
    cd_openEXRWriter(const cd_openEXRWriter&) = delete;
    cd_openEXRWriter& operator=(const cd_openEXRWriter&) = delete;

    // The default header record (ACES primaries, three half channels) for the caller to fill.
    openEXRHeaderInfo query();
    // Takes the clip's sizes, header, colour matrix and output names; removes the files of an
    // earlier run (from index 0 up to the first missing one) and allocates the output buffer.
    int configure(MetaWriteClip& m);
    // Starts a frame: per-frame header fields, the file name from the frame's image number, and
    // the header and offset table written into the buffer.
    int newImageObject(DynamicMetadata& d);
    // Converts row `row` (outputCols interleaved R, G, B floats) and stores it in the buffer.
    int storeImageRow(float* rgbData, int row);
    // Writes the frame's file in one piece: 0, 1005 (cannot open) or 1007 (write failed).
    int saveImageObject();
    IOstats stats() const { return stats_; }

    const std::string& currentFilename() const { return filename; }
    uint64_t currentFileSize() const { return outputFileSize; }
    uint64_t bufferSize() const { return outputBufferSize; }
    uint32_t rowsStoredForFrame() const { return rowsStored; }
    const char* outputBuffer() const { return pOutputBuffer.get(); }

private:
    // printf of the template with one frame index; the template was checked in configure.
    std::string formatName(unsigned int index);

    int outputRows = 0;
    int outputCols = 0;
    uint64_t outputBufferSize = 0;
    std::valarray<float> colorMatrixFromSourceRGBToOutputRGB;
    uint64_t outputFileSize = 0;
    uint32_t rowsStored = 0;
    IOstats stats_;
    openEXRHeaderInfo headerInfo;
    std::string outputFolder;
    std::string outputFilenameTemplate;
    char filenameBuffer[1000] = {};
    std::string filename;
    cd_openEXRformatter formatter;
    std::unique_ptr<char[]> pOutputBuffer;
    int status = 0;
};

}  // namespace cinedng
