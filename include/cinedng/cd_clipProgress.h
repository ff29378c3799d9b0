#pragma once
// cd_clipProgress: the progress line of the plain batch run.
//
// The clip converter's workers report nothing while they run, but each of them reads every frame
// it converts from its file once. A watcher thread therefore counts the bytes that the calling
// process and the worker processes it forks have read (the kernel's per-process I/O counters in
// /proc) and turns them into frames done, at the average frame file size, a few times a second.
// It writes one updating line (cd_FrameRenderer::progressLine) to the given file descriptor with
// plain write calls and clears it when stopped. Where the counters cannot be read the line shows
// no frames.
#include <atomic>
#include <cstdint>
#include <thread>

namespace cinedng {

class cd_clipProgress {
public:
    // Starts watching: `total` frames of `frameBytes` bytes each on average, reported to `fd`
    // every `intervalMs` milliseconds.
    cd_clipProgress(int total, uint64_t frameBytes, int fd = 2, int intervalMs = 250);
    ~cd_clipProgress();
    cd_clipProgress(const cd_clipProgress&) = delete;
    cd_clipProgress& operator=(const cd_clipProgress&) = delete;

    // Writes a last line, then clears it; idempotent.
    void stop();

    // Frames done as last computed.
    int framesDone() const { return done_.load(); }

private:
    void watch();

    int total_;
    uint64_t frameBytes_;
    int fd_;
    int intervalMs_;
    long callerTid_;
    std::atomic<bool> stop_{false};
    std::atomic<int> done_{0};
    std::thread thread_;
};

}  // namespace cinedng
