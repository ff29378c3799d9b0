#pragma once
// cd_DNGProcessor: the batch conversion of a folder of DNG frames.
//
// Constructing the object performs the whole run: list and select the frames, read the decoding
// parameters of the look source, set up every stage (row locator, EXR writer, clip converter),
// convert the clip with worker processes and print the statistics report on standard output.
// Messages that stop the run go to standard error; status() tells the caller how the run ended.
//
// The plain run converts every selected frame through load, row location and linearisation. With
// cd_BatchExtras::render set, a per-frame loop of its own (cd_FrameRenderer) also takes every frame
// through the CFA debayer and the EXR writer, so that one EXR file per frame is written.
#include <cstdint>
#include <string>
#include <vector>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

// Options of the command beyond the options record; the defaults give the plain run.
struct cd_BatchExtras {
    bool render = false;    // debayer and write one EXR file per frame
    bool progress = false;  // one updating progress line on standard error while the workers run
};

// One frame that failed while rendering.
struct cd_FrameFailure {
    int frame = 0;          // index in the selection
    std::string name;       // file name of the frame
    std::string reason;     // failure text
};

class cd_DNGProcessor {
public:
    // How the run ended.
    enum Status : int {
        ok = 0,
        noInputFiles = 1,      // "No dng files in input folder"
        lookSourceError = 2,   // the look source could not be read
        framesFailed = 3,      // rendering: at least one frame failed (the others were written)
        conversionError = 4,   // the conversion of the clip reported a non-zero status
    };

    // Runs the conversion described by the options (the plain run).
    explicit cd_DNGProcessor(cd_CommandLineOptions& options);
    // Runs it with the extras of the command.
    cd_DNGProcessor(cd_CommandLineOptions& options, const cd_BatchExtras& extras);

    int status() const { return status_; }
    // The frames of the input folder in sorted order, and the selected ones.
    const std::vector<std::string>& allFrames() const { return allFrames_; }
    const std::vector<std::string>& selectedFrames() const { return selected_; }
    // Worker processes used (the thread count after the clip converter lowered it).
    int workers() const { return workers_; }
    // F and T of the report.
    int frameCount() const { return frameCount_; }
    double clipSeconds() const { return clipSeconds_; }
    // The look source's tag record.
    const cd_DNGTags& lookTags() const { return look_; }
    // Frames that failed while rendering.
    const std::vector<cd_FrameFailure>& failures() const { return failures_; }
    // Frames written while rendering.
    int framesWritten() const { return framesWritten_; }
    // Rendering, per frame: the worker that reported it (-1: none) and how many reports arrived;
    // and the process id of every worker.
    const std::vector<int>& frameWorkers() const { return frameWorker_; }
    const std::vector<int>& frameReports() const { return frameReports_; }
    const std::vector<int>& workerPids() const { return workerPids_; }
    // Rendering: frames written whose ImageNumber an earlier frame of the selection already had, so
    // that their EXR file replaced the earlier one.
    const std::vector<std::string>& overwritingFrames() const { return overwriting_; }

    // Frame selection: from the sorted names take indices 0, skip + 1, 2 (skip + 1), ... and keep
    // the first maxDuration of them.
    static std::vector<std::string> selectFrames(const std::vector<std::string>& sortedNames, int skipFrames,
                                                 int maxDuration);

    // The names of the DNG frames of a folder, sorted in ascending byte order.
    static std::vector<std::string> listFrames(const std::string& folder);

private:
    void run(cd_CommandLineOptions& options);
    void printReport(const cd_CommandLineOptions& options, const IOstats stageStats[5], int benchmarkRuns);

    cd_BatchExtras extras_;
    int status_ = ok;
    std::vector<std::string> allFrames_;
    std::vector<std::string> selected_;
    int workers_ = 0;
    int frameCount_ = 0;
    double clipSeconds_ = 0.0;
    cd_DNGTags look_;
    std::vector<cd_FrameFailure> failures_;
    int framesWritten_ = 0;
    std::vector<int> frameWorker_;
    std::vector<int> frameReports_;
    std::vector<int> workerPids_;
    std::vector<std::string> overwriting_;
};

}  // namespace cinedng
