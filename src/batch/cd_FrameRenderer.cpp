#include "cinedng/cd_FrameRenderer.h"
#include "cinedng/cd_ClipConverter.h"

#include <poll.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>

#include "cinedng/cd_Debayer.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_locateRows.h"
#include "cinedng/cd_openEXRWriter.h"

namespace cinedng {

namespace {

// Messages on the pipe between the workers and the watching process. Each message is written with
// one write() of at most PIPE_BUF bytes, so messages of different workers never interleave.
enum MessageKind : int32_t { frameDone = 1, frameFailed = 2, workerStats = 3 };

struct MessageHeader {
    int32_t kind;
    int32_t frame;
    int32_t worker;
    uint32_t payloadSize;
};

constexpr size_t kMaxReason = 1024;

void writeMessage(int fd, MessageKind kind, int frame, int worker, const void* payload, size_t size) {
    unsigned char buf[sizeof(MessageHeader) + kMaxReason + sizeof(IOstats) * 5];
    size = payload == nullptr ? 0 : std::min(size, sizeof(buf) - sizeof(MessageHeader));
    MessageHeader h{kind, frame, worker, static_cast<uint32_t>(size)};
    std::memcpy(buf, &h, sizeof h);
    if (size > 0) std::memcpy(buf + sizeof h, payload, size);
    const size_t total = sizeof h + size;
    size_t done = 0;
    while (done < total) {
        const ssize_t n = ::write(fd, buf + done, total - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;  // the watcher is gone; nothing left to tell
        }
        done += static_cast<size_t>(n);
    }
}

std::string statusText(const char* what, int status) {
    std::ostringstream os;
    os << "cd_FrameRenderer - " << what << " (status " << status << ")";
    return os.str();
}

void clearProgress(bool progress) {
    if (progress) std::cerr << "\r\033[K" << std::flush;
}

}  // namespace

int cd_FrameRenderer::configure(const MetaConvertClip& stages, cd_DNGTags& tags) {
    if (stages.loader == nullptr || stages.rowLocator == nullptr || stages.linearizer == nullptr ||
        stages.debayer == nullptr || stages.writer == nullptr)
        throw cd_exception("cd_FrameRenderer - every stage of the clip must be given");
    // Samples are read as they are stored: a compressed frame would render as noise. Every frame of
    // the clip repeats the look source's compression (the row locator checks it), so one test suffices.
    if (tags.compression != 1)
        throw cd_exception("cd_FrameRenderer - compressed frames cannot be rendered (Compression " +
                           std::to_string(tags.compression) + ")");
    // The debayer interpolates over a 2 x 2 colour filter pattern only; refuse anything else here
    // rather than letting the debayer's own checks stop the process.
    const bool cfa2x2 = tags.CFARepeatPatternDim.size() == 2 && tags.CFARepeatPatternDim[0] == 2 &&
                        tags.CFARepeatPatternDim[1] == 2 && tags.CFAPattern.size() >= 4 &&
                        std::all_of(tags.CFAPattern.begin(), tags.CFAPattern.begin() + 4,
                                    [](uint8_t c) { return c < 3; });
    if (!cfa2x2) throw cd_exception("cd_FrameRenderer - rendering needs a 2 x 2 colour filter pattern");
    if (tags.inputRows < 1 || tags.inputCols < 1 || tags.outputRows < 1 || tags.outputCols < 1)
        throw cd_exception("cd_FrameRenderer - the image dimensions are invalid");

    stages_ = stages;
    inputRows_ = tags.inputRows;
    outputRows_ = tags.outputRows;
    rawImage_ = cd_zeroedFloats(static_cast<size_t>(tags.inputRows) * static_cast<size_t>(tags.inputCols));
    rgbRow_.assign(static_cast<size_t>(tags.outputCols) * 3, 0.0f);

    linearParams lp = cd_ClipConverter::linearParamsFromTags(tags, rawImage_.get());
    stages_.linearizer->configure(lp);

    debayerParams dp;
    dp.inputRows = tags.inputRows;
    dp.inputCols = tags.inputCols;
    dp.pRawImagePixels = rawImage_.get();
    dp.rowOffset = tags.cropOriginRow;
    dp.colOffset = tags.cropOriginCol;
    dp.outputRows = tags.outputRows;
    dp.outputCols = tags.outputCols;
    dp.pOutputRowData = rgbRow_.data();
    dp.cfaRepeatPatternDim = tags.CFARepeatPatternDim;
    dp.cfaPattern.assign(tags.CFAPattern.begin(), tags.CFAPattern.begin() + 4);
    return stages_.debayer->configure(dp);
}

int cd_FrameRenderer::renderFrame(int i) {
    cd_imageLoader& loader = *stages_.loader;
    int status = loader.getImageObject(i);
    if (status == cd_imageLoader::kStatusOpenFailed) throw cd_exception(statusText("the frame file could not be opened", status));
    if (status != 0) throw cd_exception(statusText("the frame file is larger than the read buffer", status));

    status = stages_.rowLocator->locateRows(reinterpret_cast<const char*>(loader.buffer()), loader.imageSize(),
                                            access_, meta_);
    if (status != 0) throw cd_exception(statusText("the rows of the frame could not be located", status));

    for (int r = 0; r < inputRows_; ++r) stages_.linearizer->getRow(access_, r);

    cd_openEXRWriter& writer = *stages_.writer;
    status = writer.newImageObject(meta_);
    if (status != 0) throw cd_exception(statusText("the output image could not be started", status));
    for (int r = 0; r < outputRows_; ++r) {
        stages_.debayer->getRow(r);
        writer.storeImageRow(rgbRow_.data(), r);
    }
    status = writer.saveImageObject();
    if (status != 0)
        throw cd_exception(statusText(("the output file " + writer.currentFilename() + " could not be written").c_str(),
                                      status));
    return 0;
}

void cd_FrameRenderer::statsOf(IOstats out[5]) const {
    out[0] = stages_.loader->stats();
    out[1] = stages_.rowLocator->stats();
    out[2] = stages_.linearizer->stats();
    out[3] = stages_.debayer->stats();
    out[4] = stages_.writer->stats();
}

std::string cd_FrameRenderer::progressLine(int done, int total, double elapsed) {
    char line[128];
    const double fps = elapsed > 0.0 ? done / elapsed : 0.0;
    std::string left = "--:--";
    if (fps > 0.0) {
        const long secs = std::lround(std::max(0, total - done) / fps);
        char buf[32];
        if (secs >= 3600)
            std::snprintf(buf, sizeof buf, "%ld:%02ld:%02ld", secs / 3600, (secs / 60) % 60, secs % 60);
        else
            std::snprintf(buf, sizeof buf, "%ld:%02ld", secs / 60, secs % 60);
        left = buf;
    }
    std::snprintf(line, sizeof line, "%4d/%d frames  %6.1f fps  %s left", done, total, fps, left.c_str());
    return line;
}

cd_RenderResult cd_FrameRenderer::renderClip(const std::vector<std::string>& names, int workers, bool progress) {
    const int total = static_cast<int>(names.size());
    cd_RenderResult result;
    result.workers = std::max(1, workers);
    result.frameWorker.assign(total, -1);
    result.frameReports.assign(total, 0);
    result.frameImageNumbers.assign(total, -1);
    std::vector<std::string> reasons(total);
    std::vector<char> failed(total, 0);

    int fds[2];
    if (::pipe(fds) != 0) throw cd_exception("cd_FrameRenderer - the worker pipe could not be created");

    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);

    for (int w = 0; w < result.workers; ++w) {
        const pid_t pid = ::fork();
        if (pid < 0) {
            std::cerr << "can't fork, error " << errno << std::endl;
            result.workerPids.push_back(-1);
            continue;
        }
        if (pid == 0) {
            // Worker w: frames w, w + k, w + 2k, ...
            ::close(fds[0]);
            bool anyFailed = false;
            for (int i = w; i < total; i += result.workers) {
                try {
                    renderFrame(i);
                    const uint32_t imageNumber = meta_.imageNumber;
                    writeMessage(fds[1], frameDone, i, w, &imageNumber, sizeof imageNumber);
                } catch (const std::exception& e) {
                    anyFailed = true;
                    const std::string reason = e.what();
                    writeMessage(fds[1], frameFailed, i, w, reason.data(), std::min(reason.size(), kMaxReason));
                }
            }
            IOstats s[5];
            statsOf(s);
            writeMessage(fds[1], workerStats, -1, w, s, sizeof s);
            ::close(fds[1]);
            std::cout.flush();
            std::cerr.flush();
            std::fflush(nullptr);
            ::_exit(anyFailed ? 1 : 0);
        }
        result.workerPids.push_back(pid);
    }
    ::close(fds[1]);

    // Watch: read the messages until every worker has closed its end of the pipe.
    const auto start = std::chrono::steady_clock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    int done = 0;
    std::vector<unsigned char> pending;
    unsigned char chunk[8192];
    bool open = true;
    while (open) {
        pollfd p{fds[0], POLLIN, 0};
        const int ready = ::poll(&p, 1, progress ? 250 : -1);
        if (ready < 0 && errno != EINTR) break;
        if (ready > 0) {
            const ssize_t n = ::read(fds[0], chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                open = false;
            } else {
                pending.insert(pending.end(), chunk, chunk + n);
            }
        }
        size_t at = 0;
        while (pending.size() - at >= sizeof(MessageHeader)) {
            MessageHeader h;
            std::memcpy(&h, pending.data() + at, sizeof h);
            if (pending.size() - at - sizeof h < h.payloadSize) break;
            const unsigned char* payload = pending.data() + at + sizeof h;
            if (h.kind == workerStats) {
                if (h.worker == 0 && h.payloadSize == sizeof(IOstats) * 5)
                    std::memcpy(static_cast<void*>(result.mainStats), payload, sizeof(IOstats) * 5);
            } else if (h.frame >= 0 && h.frame < total) {
                ++result.frameReports[h.frame];
                result.frameWorker[h.frame] = h.worker;
                failed[h.frame] = h.kind == frameFailed;
                if (h.kind == frameFailed) {
                    reasons[h.frame].assign(reinterpret_cast<const char*>(payload), h.payloadSize);
                } else if (h.payloadSize == sizeof(uint32_t)) {
                    uint32_t imageNumber;
                    std::memcpy(&imageNumber, payload, sizeof imageNumber);
                    result.frameImageNumbers[h.frame] = imageNumber;
                }
                ++done;
            }
            at += sizeof h + h.payloadSize;
        }
        pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(at));
        if (progress) std::cerr << "\r\033[K" << progressLine(done, total, elapsed()) << std::flush;
    }
    ::close(fds[0]);
    clearProgress(progress);

    // Collect the workers; a worker that ended abnormally leaves its unreported frames failed.
    std::vector<std::string> workerEnd(result.workers);
    for (int w = 0; w < result.workers; ++w) {
        const pid_t pid = result.workerPids[w];
        if (pid < 0) {
            workerEnd[w] = "cd_FrameRenderer - the worker process could not be started";
            continue;
        }
        int st = 0;
        while (::waitpid(pid, &st, 0) < 0 && errno == EINTR) {
        }
        if (WIFSIGNALED(st)) {
            std::ostringstream os;
            os << "cd_FrameRenderer - worker " << w << " ended by signal " << WTERMSIG(st);
            workerEnd[w] = os.str();
        } else {
            workerEnd[w] = "cd_FrameRenderer - worker " + std::to_string(w) + " ended before rendering the frame";
        }
    }

    for (int i = 0; i < total; ++i) {
        if (result.frameReports[i] == 0) {
            result.failures.push_back({i, names[i], workerEnd[i % result.workers]});
        } else if (failed[i]) {
            result.failures.push_back({i, names[i], reasons[i]});
        } else {
            ++result.framesWritten;
        }
    }
    return result;
}

}  // namespace cinedng
