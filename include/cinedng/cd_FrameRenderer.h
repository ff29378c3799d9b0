#pragma once
// cd_FrameRenderer: the rendering loop of the batch command. Takes every frame of a clip through
// load, row location, linearisation, the CFA debayer (over the default crop) and the EXR writer, so
// that one EXR file per frame is written.
//
// renderClip() spreads the frames over worker processes in the same interleaving as the clip
// converter (worker w takes frames w, w + k, w + 2k, ...). The calling process only watches: every
// worker reports each frame (done or failed, with the reason) and, at its end, its stage statistics
// through a pipe, so that a failing frame never stops the others, a worker that dies is noticed,
// and a progress line can be kept up to date.
#include <cstdint>
#include <string>
#include <vector>

#include "cinedng/cd_DNGProcessor.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_ScanLineAccess.h"
#include "cinedng/cd_genericStructs.h"
#include "cinedng/cd_zeroedFloats.h"

namespace cinedng {

// What a rendering run reports back.
struct cd_RenderResult {
    int workers = 0;
    int framesWritten = 0;
    std::vector<cd_FrameFailure> failures;   // in frame order
    std::vector<int> frameWorker;            // per frame: the worker that reported it, -1 if none
    std::vector<int> frameReports;           // per frame: how many reports arrived (1 when all is well)
    std::vector<int64_t> frameImageNumbers;  // per frame written: its ImageNumber (names its file); -1 otherwise
    std::vector<int> workerPids;             // process id of each worker
    // Statistics of worker 0, in the order loader, row locator, linearizer, debayer, writer.
    IOstats mainStats[5];
};

class cd_FrameRenderer {
public:
    // Stages of the clip (from the converter's record, which must have its stage pointers set) and
    // the clip's tag record. Configures the linearizer into the renderer's own raw image and the
    // debayer over the default crop into the renderer's row buffer. The loader and the writer must
    // already be configured. Returns 0; a clip the debayer cannot take (no 2 x 2 colour filter
    // pattern) raises.
    int configure(const MetaConvertClip& stages, cd_DNGTags& tags);

    // Renders frame i in this process and writes its EXR file. Failures raise a cd_exception whose
    // text says what went wrong; returns 0.
    int renderFrame(int i);

    // Renders frames 0 .. names.size() - 1 with `workers` worker processes. names are the frame
    // names (for the failure reports). progress: keep one updating line on standard error.
    cd_RenderResult renderClip(const std::vector<std::string>& names, int workers, bool progress);

    // The progress line for done of total frames after `elapsed` seconds, e.g.
    // "  12/40 frames   23.5 fps   0:01 left".
    static std::string progressLine(int done, int total, double elapsed);

    // The raw image of the last frame rendered (inputRows x inputCols floats).
    const float* rawImage() const { return rawImage_.get(); }

private:
    void statsOf(IOstats out[5]) const;

    MetaConvertClip stages_;
    int inputRows_ = 0;
    int outputRows_ = 0;
    cd_zeroedFloats rawImage_;
    std::vector<float> rgbRow_;
    cd_ScanLineAccess access_;
    DynamicMetadata meta_;
};

}  // namespace cinedng
