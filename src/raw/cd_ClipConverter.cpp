#include "cinedng/cd_ClipConverter.h"

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_locateRows.h"

namespace cinedng {

int cd_ClipConverter::configure(MetaConvertClip& meta, cd_DNGTags& tags, bool verbose_) {
    status = 0;
    loader = meta.loader;
    rowLocator = meta.rowLocator;
    linearizer = meta.linearizer;
    debayer = meta.debayer;
    writer = meta.writer;
    benchmarkRuns = meta.benchmarkRuns;
    verbose = verbose_;
    duration = meta.duration;

    // One worker per ten frames, plus one; written back so that the caller sees the count in use.
    meta.threads = std::min(meta.threads, duration / 10 + 1);
    threads = meta.threads;

    inputRows = tags.inputRows;
    inputCols = tags.inputCols;
    outputRows = tags.outputRows;
    outputCols = tags.outputCols;
    const int64_t raw = static_cast<int64_t>(inputRows) * inputCols;
    const int64_t rgb = static_cast<int64_t>(outputCols) * 3;
    rawPixels = static_cast<int32_t>(std::clamp<int64_t>(raw, INT32_MIN, INT32_MAX));
    rgbPixels = static_cast<int32_t>(std::clamp<int64_t>(rgb, INT32_MIN, INT32_MAX));

    // The test is below 1 although the text says below 0.
    if (duration < 1) throw cd_exception("cd_ClipConverter - clip duration may not be < 0");
    if (inputRows < 1) throw cd_exception("cd_ClipConverter - input rows invalid");
    if (inputCols < 1) throw cd_exception("cd_ClipConverter - input cols invalid");
    if (outputRows < 1) throw cd_exception("cd_ClipConverter - output rows invalid");
    if (outputCols < 1) throw cd_exception("cd_ClipConverter - output cols invalid");
    if (threads < 0 || threads > duration) throw cd_exception("cd_ClipConverter - number of threads invalid");
    if (raw < 1 || static_cast<double>(raw) >= 5e7) throw cd_exception("cd_ClipConverter - number of raw pixels invalid");
    if (rgb < 1 || rgb >= 100000) throw cd_exception("cd_ClipConverter - number of RGB pixels invalid");

    linParams = linearParamsFromTags(tags, rawImagePixels_);

    if (linearizer == nullptr) throw cd_exception("cd_ClipConverter - the linearizer may not be null");
    status = linearizer->configure(linParams);
    return status;
}

int cd_ClipConverter::convertClip() {
    status = 0;
    int workerIndex = 0;
    // A worker count of 0 passes configure; it converts like a single worker.
    const int workers = std::max(threads, 1);
    std::vector<pid_t> children;

    if (workers > 1) {
        // Nothing buffered in the parent may be written a second time by a child.
        std::cout.flush();
        std::cerr.flush();
        std::fflush(nullptr);
        for (int k = 1; k < workers; ++k) {
            const pid_t pid = fork();
            if (pid < 0) {
                std::cerr << "can't fork, error " << errno << std::endl;
                std::exit(1);
            }
            if (pid == 0) {
                workerIndex = k;
                children.clear();
                break;
            }
            children.push_back(pid);
        }
    }

    // Worker w converts frames w, w + workers, w + 2 workers, ...
    for (int i = workerIndex; i < duration; i += workers) {
        try {
            status = convertImage(i);
        } catch (const std::exception& e) {
            std::cerr << e.what() << std::endl;
            status = -1;
        }
        if (status != 0) {
            std::cerr << "myThreadID = " << workerIndex << " Error =  " << status << std::endl;
            break;
        }
    }

    if (workers > 1) {
        if (workerIndex != 0) {
            std::cout.flush();
            std::cerr.flush();
            std::fflush(nullptr);
            _exit(status | workerIndex);
        }
        // The parent waits for every worker it started; their exit codes are not examined.
        for (pid_t pid : children) {
            while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    if (verbose) std::cout << "All threads exited successfully" << std::endl;
    return status;
}

int cd_ClipConverter::convertLocatedFrame(int frame) {
    const int runs = std::max(benchmarkRuns, 1);
    for (int run = 0; run < runs; ++run) {
        convertImageObjectAsync(&handle_, frame, access_);
        status = finishConversion(&handle_);
        if (status != 0) break;
    }
    return status;
}

int cd_ClipConverter::convertImage(int i) {
    if (loader == nullptr || rowLocator == nullptr)
        throw cd_exception("cd_ClipConverter - the loader and the row locator may not be null");
    status = loader->getImageObject(i);
    if (status != 0) return status;
    status = rowLocator->locateRows(reinterpret_cast<const char*>(loader->buffer()), loader->imageSize(), access_,
                                    dynamicMetadata_);
    if (status != 0) return status;
    return convertLocatedFrame(i);
}

int cd_ClipConverter::convertImageFromImageDataWithIndex(int i) {
    if (loader == nullptr || rowLocator == nullptr)
        throw cd_exception("cd_ClipConverter - the loader and the row locator may not be null");
    const unsigned char* bytes = loader->getImageObjectFromDataBuffersWithIndex(i);
    status = rowLocator->locateRows(reinterpret_cast<const char*>(bytes), loader->imageSize(), access_,
                                    dynamicMetadata_);
    if (status != 0) return status;
    return convertLocatedFrame(i);
}

void* cd_ClipConverter::allocateConversionHandle() { return new cd_conversionHandle(); }

void cd_ClipConverter::releaseConversionHandle(void* handle) { delete static_cast<cd_conversionHandle*>(handle); }

int cd_ClipConverter::convertImageObjectAsync(void* handle, int frame, cd_ScanLineAccess& access) {
    if (handle == nullptr) throw cd_exception("cd_ClipConverter - conversion handle may not be null");
    if (rawImagePixels_ == nullptr) throw cd_exception("cd_ClipConverter - the raw image pixel pointer may not be null");
    if (linearizer == nullptr) throw cd_exception("cd_ClipConverter - the linearizer may not be null");
    cd_conversionHandle* h = static_cast<cd_conversionHandle*>(handle);
    h->frame = frame;
    h->status = -1;
    h->complete = false;
    h->context = nullptr;

    linParams.pRawImagePixels = rawImagePixels_;
    linearizer->pRawImagePixels = rawImagePixels_;
    int result = 0;
    for (int row = 0; row < inputRows && result == 0; ++row) result = linearizer->getRow(access, row);

    h->status = result;
    h->complete = true;
    return result;
}

bool cd_ClipConverter::isConversionComplete(void* handle, int* statusOut) {
    if (handle == nullptr) throw cd_exception("cd_ClipConverter - the conversion handle may not be null");
    const cd_conversionHandle* h = static_cast<const cd_conversionHandle*>(handle);
    if (statusOut != nullptr) *statusOut = h->status;
    return h->complete;
}

int cd_ClipConverter::finishConversion(void* handle) {
    if (handle == nullptr) throw cd_exception("cd_ClipConverter - conversion handle may not be null");
    const cd_conversionHandle* h = static_cast<const cd_conversionHandle*>(handle);
    // Conversions complete before convertImageObjectAsync returns, so this wait ends at once.
    while (!static_cast<const volatile bool&>(h->complete)) {
    }
    return h->status;
}

linearParams cd_ClipConverter::linearParamsFromTags(const cd_DNGTags& tags, float* pixels) {
    linearParams lp;
    lp.bitsPerSample = tags.bitsPerSample;
    lp.firstRow = tags.activeTop;
    lp.firstCol = tags.activeLeft;
    lp.inputRows = tags.inputRows;
    lp.inputCols = tags.inputCols;
    lp.pRawImagePixels = pixels;
    lp.linearizationTable = tags.linearizationTable;
    lp.blackLevelRepeatDim = tags.blackLevelRepeatDim;
    lp.blackLevel = tags.blackLevel;
    lp.blackLevelDeltaH = tags.blackLevelH;
    lp.blackLevelDeltaV = tags.blackLevelV;
    lp.whiteLevel = tags.whiteLevel;
    lp.byteOrder = tags.byteOrder;
    return lp;
}

}  // namespace cinedng
