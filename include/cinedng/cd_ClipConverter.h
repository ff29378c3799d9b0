#pragma once
// The clip converter drives the per-frame pipeline: load frame i, locate its rows, linearise every
// active row into the caller's float image. Single frames are converted on request (from files or
// from host-held buffers); convertClip converts a whole clip with worker processes that interleave
// the frames.
#include <cstdint>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_ScanLineAccess.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_imageLoader;
class cd_locateRows;
class cd_getLinearRaw;
class cd_Debayer;
class cd_openEXRWriter;

// One conversion: the frame it was started for, its status (-1 while it runs), whether it is
// complete, and an opaque context (unused, null).
struct cd_conversionHandle {
    int32_t frame = 0;
    int32_t status = 0;
    bool complete = false;
    void* context = nullptr;
};

class cd_ClipConverter {
public:
    cd_imageLoader* loader = nullptr;
    cd_locateRows* rowLocator = nullptr;
    cd_getLinearRaw* linearizer = nullptr;
    cd_Debayer* debayer = nullptr;      // carried for the batch driver, never called here
    cd_openEXRWriter* writer = nullptr;  // carried for the batch driver, never called here
    bool verbose = false;
    linearParams linParams;
    int32_t duration = 0;
    int32_t inputRows = 0;
    int32_t inputCols = 0;
    int32_t rawPixels = 0;
    int32_t outputRows = 0;
    int32_t outputCols = 0;
    int32_t rgbPixels = 0;
    int32_t threads = 0;
    int32_t benchmarkRuns = 0;
    int32_t status = 0;

    // Lowers meta.threads in place to min(threads, duration / 10 + 1).
    int configure(MetaConvertClip& meta, cd_DNGTags& tags, bool verbose);
    // The lineariser's record for a clip: bits, active area and the black and white data of the tag
    // record, linearising into `pixels` (inputRows x inputCols floats).
    static linearParams linearParamsFromTags(const cd_DNGTags& tags, float* pixels);

    int convertClip();
    int convertImage(int i);
    int convertImageFromImageDataWithIndex(int i);

    void* allocateConversionHandle();
    void releaseConversionHandle(void* handle);
    int convertImageObjectAsync(void* handle, int frame, cd_ScanLineAccess& access);
    bool isConversionComplete(void* handle, int* status);
    int finishConversion(void* handle);

    // The caller's float output image: inputRows x inputCols floats, set before any conversion.
    void setRawImagePixels(float* pixels) { rawImagePixels_ = pixels; }
    float* rawImagePixels() const { return rawImagePixels_; }

    // The row table and the per-frame metadata of the most recently located frame.
    cd_ScanLineAccess& scanLineAccess() { return access_; }
    const DynamicMetadata& dynamicMetadata() const { return dynamicMetadata_; }

private:
    int convertLocatedFrame(int frame);

    float* rawImagePixels_ = nullptr;
    cd_conversionHandle handle_;
    cd_ScanLineAccess access_;
    DynamicMetadata dynamicMetadata_;
};

}  // namespace cinedng
