#include "cinedng/cd_DNGProcessor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <set>

#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_Debayer.h"
#include "cinedng/cd_FrameRenderer.h"
#include "cinedng/cd_assert.h"
#include "cinedng/cd_clipProgress.h"
#include "cinedng/cd_directory.h"
#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_fullColorMatrix.h"
#include "cinedng/cd_getDNGParams.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_locateRows.h"
#include "cinedng/cd_openEXRWriter.h"

namespace cinedng {

cd_DNGProcessor::cd_DNGProcessor(cd_CommandLineOptions& options) { run(options); }

cd_DNGProcessor::cd_DNGProcessor(cd_CommandLineOptions& options, const cd_BatchExtras& extras) : extras_(extras) {
    run(options);
}

std::vector<std::string> cd_DNGProcessor::listFrames(const std::string& folder) {
    std::vector<std::string> names = cd_directory::getAllFileNames(folder, ".dng");
    // std::string compares its characters as unsigned bytes: ascending byte order.
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> cd_DNGProcessor::selectFrames(const std::vector<std::string>& sortedNames, int skipFrames,
                                                       int maxDuration) {
    std::vector<std::string> selected;
    // A negative skip would walk backwards; every step takes at least one frame forward.
    const size_t step = static_cast<size_t>(std::max(0, skipFrames)) + 1;
    for (size_t i = 0; i < sortedNames.size(); i += step) selected.push_back(sortedNames[i]);
    if (static_cast<long long>(selected.size()) > maxDuration)
        selected.resize(static_cast<size_t>(std::max(0, maxDuration)));
    return selected;
}

void cd_DNGProcessor::run(cd_CommandLineOptions& options) {
    cd_timing timer;

    // 1. The frames of the input folder, sorted, and the selection.
    // Frame paths are the folder and the name joined as they stand: the folder needs its "/". An
    // empty folder stays empty (the listing refuses it) rather than becoming the root folder.
    std::string inputFolder = options.InputFolder;
    if (!inputFolder.empty()) cd_directory::cleanupFolderName(inputFolder);
    allFrames_ = listFrames(inputFolder);
    if (allFrames_.empty()) {
        std::cerr << "No dng files in input folder" << std::endl;
        status_ = noInputFiles;
        return;
    }
    selected_ = selectFrames(allFrames_, options.SkipFrames, options.MaxDuration);
    const int duration = static_cast<int>(selected_.size());

    // 2. The look source: the named frame, or the first selected one.
    cd_CommandLineOptions lookOptions = options;
    if (lookOptions.LookFilename == "")
        lookOptions.LookFilename = inputFolder + (selected_.empty() ? allFrames_.front() : selected_.front());
    cd_getDNGParams lookSource;
    cd_DNGTags& look = look_;
    const int lookStatus = lookSource.getParams(lookOptions, look);
    if (lookStatus != 0) {
        std::cerr << "error reading look source, lookSource.getParams returns " << lookStatus << std::endl;
        status_ = lookSourceError;
        return;
    }
    CD_ASSERT(look.outputRows > 0);
    CD_ASSERT(look.CameraToXYZMtx.sum() > 0);

    // 3. Row locator.
    cd_locateRows rowLocator;
    rowLocator.configure(look);

    // 4. EXR writer.
    cd_openEXRWriter writer;
    MetaWriteClip writeParams;
    writeParams.headerInfo = writer.query();
    determineNetColorMatrix(look, writeParams, options.VerboseMode);
    writeParams.frameCount = duration;
    writeParams.outputRows = look.outputRows;
    writeParams.outputCols = look.outputCols;
    writeParams.outputFolder = options.OutputFolder;
    if (!writeParams.outputFolder.empty()) cd_directory::cleanupFolderName(writeParams.outputFolder);
    writeParams.outputFilenameTemplate = options.OutputFilenameTemplate;
    writeParams.headerInfo.software = "DNGprocessor";
    writeParams.headerInfo.framesPerSecond = srational(25, 1);
    writer.configure(writeParams);

    // 5. Loader, linearizer, debayer and the clip converter.
    cd_imageLoader loader;
    loader.configure(inputFolder, selected_);
    cd_getLinearRaw linearizer;
    cd_Debayer debayer;
    MetaConvertClip convertParams;
    convertParams.loader = &loader;
    convertParams.rowLocator = &rowLocator;
    convertParams.linearizer = &linearizer;
    convertParams.debayer = &debayer;
    convertParams.writer = &writer;
    convertParams.duration = duration;
    convertParams.threads = options.Threads;
    convertParams.benchmarkRuns = options.BenchmarkRuns;
    cd_ClipConverter converter;
    const cd_zeroedFloats rawImage(static_cast<size_t>(std::max(0, look.inputRows)) *
                                                             static_cast<size_t>(std::max(0, look.inputCols)));
    converter.setRawImagePixels(rawImage.get());
    converter.configure(convertParams, look, options.VerboseMode);
    workers_ = convertParams.threads;

    cd_FrameRenderer renderer;
    if (extras_.render) renderer.configure(convertParams, look);

    // 6. The conversion, timed.
    timer.time("preparing conversion");
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    IOstats stageStats[5];
    if (extras_.render) {
        const cd_RenderResult result = renderer.renderClip(selected_, workers_, extras_.progress);
        failures_ = result.failures;
        framesWritten_ = result.framesWritten;
        frameWorker_ = result.frameWorker;
        frameReports_ = result.frameReports;
        workerPids_ = result.workerPids;
        std::set<int64_t> seen;
        for (size_t i = 0; i < result.frameImageNumbers.size(); ++i)
            if (result.frameImageNumbers[i] >= 0 && !seen.insert(result.frameImageNumbers[i]).second)
                overwriting_.push_back(selected_[i]);
        std::copy(result.mainStats, result.mainStats + 5, stageStats);
        if (!failures_.empty()) status_ = framesFailed;
    } else if (extras_.progress) {
        uint64_t bytes = 0;
        for (const std::string& name : selected_)
            bytes += static_cast<uint64_t>(std::max<int64_t>(0, cd_directory::getFileSize(inputFolder + name)));
        cd_clipProgress progress(duration, bytes / std::max<uint64_t>(1, selected_.size()));
        if (converter.convertClip() != 0) status_ = conversionError;
        progress.stop();
    } else {
        if (converter.convertClip() != 0) status_ = conversionError;
    }
    clipSeconds_ = timer.time("completing conversion");

    // 7. Statistics of every stage (of the worker that ran in this process).
    if (!extras_.render) {
        stageStats[0] = loader.stats();
        stageStats[1] = rowLocator.stats();
        stageStats[2] = linearizer.stats();
        stageStats[3] = debayer.stats();
        stageStats[4] = writer.stats();
    }

    // 8. Frame count.
    frameCount_ = extras_.render ? framesWritten_ : duration;
    if (options.BenchmarkRuns != 0) frameCount_ = options.BenchmarkRuns * workers_;

    // 9. The report.
    printReport(options, stageStats, options.BenchmarkRuns);
}

void cd_DNGProcessor::printReport(const cd_CommandLineOptions& options, const IOstats stageStats[5],
                                  int benchmarkRuns) {
    std::ostream& os = std::cout;
    const double F = frameCount_;
    const double T = clipSeconds_;
    const double N = std::floor(F / workers_ + 0.5);

    os << "\nSTATISTICS " << std::endl;
    os << "Frame rate (fps)        " << F / T << std::endl;
    os << "Clip Duration (frames)  " << frameCount_;
    if (benchmarkRuns != 0) os << " (1 Frame x " << benchmarkRuns << " Benchmark Passes)";
    os << std::endl;
    os << "Clip Duration (seconds) " << T << std::endl;
    os << "Image size W x H        " << look_.outputCols << " x " << look_.outputRows << std::endl;
    os << "Threads used            " << options.Threads << std::endl;
    if (!options.VerboseMode) return;

    const IOstats& in = stageStats[0];
    const IOstats& reader = stageStats[1];
    const IOstats& linear = stageStats[2];
    const IOstats& bayer = stageStats[3];
    const IOstats& out = stageStats[4];
    auto total = [](const IOstats& s) {
        return static_cast<double>(s.timeConfigure) + s.timeOpen + s.timeDataProcessing + s.timeClose;
    };
    const double allStages = total(in) + total(reader) + total(linear) + total(bayer) + total(out);
    const double readMB = in.bytesProcessed / 1e6;
    const double writtenMB = out.bytesProcessed / 1e6;

    os << "\nFor main thread: " << std::endl;
    os << "Bytes Read (MB)                  " << readMB << std::endl;
    os << "Bytes Written (MB)               " << writtenMB << std::endl;
    os << "I/O rate (MBps)\t\t\t\t  " << (readMB + writtenMB) / T << std::endl;
    os << "Frame duration (ms)\t\t\t  " << allStages * 1000.0 / N << std::endl;

    auto block = [&](const IOstats& s, const char* bytesLabel, const char* const timeLabels[5]) {
        os << bytesLabel << s.bytesProcessed / N / 1e6 << std::endl;
        os << timeLabels[0] << s.timeConfigure * 1000.0 / N << std::endl;
        os << timeLabels[1] << s.timeOpen * 1000.0 / N << std::endl;
        os << timeLabels[2] << s.timeDataProcessing * 1000.0 / N << std::endl;
        os << timeLabels[3] << s.timeClose * 1000.0 / N << std::endl;
        os << timeLabels[4] << total(s) * 1000.0 / N << std::endl;
    };

    static const char* const inputLabels[5] = {
        " Get input file size (ms)        ", " Open input file (ms)            ", " Read input file (ms)            ",
        " Close input file (ms)           ", " Input file total (ms)           "};
    static const char* const outputLabels[5] = {
        " Prepare for new file (ms)       ", " Create output file (ms)         ", " Process output file (ms)        ",
        " Close output file (ms)          ", " Output file total (ms)          "};
    static const char* const readerLabels[5] = {
        " Configure reader (ms)           ", " Open reader (ms)                ", " Process reader (ms)             ",
        " Close reader (ms)               ", " Reader total (ms)               "};
    static const char* const linearLabels[5] = {
        " Configure Linearizer (ms)       ", " Open Linearizer (ms)            ", " Process Linearizer (ms)         ",
        " Close Linearizer (ms)\t          ", " Linearizer total (ms)           "};
    static const char* const debayerLabels[5] = {
        " Configure Debayer (ms)          ", " Open Debayer (ms)               ", " Process Debayer (ms)            ",
        " Close Debayer (ms)              ", " Debayer total (ms)              "};

    os << "File operations (times per file) " << std::endl;
    block(in, " Input file size (MB)\t\t\t  ", inputLabels);
    block(out, " Output bytes processed (MB)     ", outputLabels);
    os << "Byte loading " << std::endl;
    block(reader, " Bytes read in (MB)              ", readerLabels);
    os << "Linearization " << std::endl;
    block(linear, " Bytes Linearized (MB)           ", linearLabels);
    os << "Debayering " << std::endl;
    block(bayer, " Bytes Debayered (MB)            ", debayerLabels);
}

}  // namespace cinedng
