#include "cinedng/cd_clipProgress.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cinedng/cd_FrameRenderer.h"

namespace cinedng {

namespace {

// Reads a small /proc file into buf, zero-terminated also when the file cannot be opened (buf
// then holds the empty text); returns the bytes read, 0 on failure.
size_t readSmallFile(const char* path, char* buf, size_t size) {
    buf[0] = '\0';
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    size_t got = 0;
    while (got + 1 < size) {
        const ssize_t n = ::read(fd, buf + got, size - 1 - got);
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    ::close(fd);
    buf[got] = '\0';
    return got;
}

// The "rchar" counter of a /proc/<pid>/io text, or -1.
long long rcharOf(const char* text) {
    const char* p = std::strstr(text, "rchar:");
    return p == nullptr ? -1 : std::strtoll(p + 6, nullptr, 10);
}

void writeAll(int fd, const std::string& s) {
    size_t done = 0;
    while (done < s.size()) {
        const ssize_t n = ::write(fd, s.data() + done, s.size() - done);
        if (n <= 0) return;
        done += static_cast<size_t>(n);
    }
}

}  // namespace

cd_clipProgress::cd_clipProgress(int total, uint64_t frameBytes, int fd, int intervalMs)
    : total_(total),
      frameBytes_(std::max<uint64_t>(frameBytes, 1)),
      fd_(fd),
      intervalMs_(std::max(intervalMs, 1)),
      callerTid_(static_cast<long>(::syscall(SYS_gettid))) {
    thread_ = std::thread([this] { watch(); });
}

cd_clipProgress::~cd_clipProgress() { stop(); }

void cd_clipProgress::stop() {
    stop_.store(true);
    if (thread_.joinable()) thread_.join();
}

void cd_clipProgress::watch() {
    const auto start = std::chrono::steady_clock::now();
    char buf[4096];
    char path[96];
    // Bytes this process had read before the conversion, and the bytes the watcher itself reads
    // from /proc (they count as reads of this process too).
    long long ownRead = 0;
    const size_t n0 = readSmallFile("/proc/self/io", buf, sizeof buf);
    const long long baseline = rcharOf(buf);
    ownRead += static_cast<long long>(n0);
    // Worker processes seen so far with their last counter: a worker that has ended keeps counting.
    struct Worker {
        long pid;
        long long rchar;
    };
    Worker workers[1024];
    int workerCount = 0;

    for (bool last = false; !last;) {
        last = stop_.load();
        long long total = 0;
        // The counter read now includes the watcher's earlier reads, not this one.
        const long long ownBefore = ownRead;
        size_t n = readSmallFile("/proc/self/io", buf, sizeof buf);
        ownRead += static_cast<long long>(n);
        const long long self = rcharOf(buf);
        if (self >= 0 && baseline >= 0) total += self - baseline - ownBefore;

        std::snprintf(path, sizeof path, "/proc/self/task/%ld/children", callerTid_);
        n = readSmallFile(path, buf, sizeof buf);
        ownRead += static_cast<long long>(n);
        char list[4096];
        std::memcpy(list, buf, n + 1);
        for (char* p = list; *p != '\0';) {
            char* end = nullptr;
            const long pid = std::strtol(p, &end, 10);
            if (end == p) break;
            p = end;
            std::snprintf(path, sizeof path, "/proc/%ld/io", pid);
            const size_t m = readSmallFile(path, buf, sizeof buf);
            ownRead += static_cast<long long>(m);
            const long long r = m > 0 ? rcharOf(buf) : -1;
            if (r < 0) continue;
            int k = 0;
            while (k < workerCount && workers[k].pid != pid) ++k;
            if (k == workerCount) {
                if (workerCount == static_cast<int>(std::size(workers))) continue;
                workers[workerCount++] = {pid, r};
            } else {
                workers[k].rchar = std::max(workers[k].rchar, r);
            }
        }
        for (int k = 0; k < workerCount; ++k) total += workers[k].rchar;

        // Frame files differ a little in size: a frame counts as done within 1 % of the average.
        const long long bytes = static_cast<long long>(frameBytes_);
        const int done = static_cast<int>(std::clamp<long long>((total + bytes / 100) / bytes, 0, total_));
        done_.store(done);
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        writeAll(fd_, "\r\033[K" + cd_FrameRenderer::progressLine(done, total_, elapsed));
        if (!last) {
            for (int waited = 0; waited < intervalMs_ && !stop_.load(); waited += 10)
                std::this_thread::sleep_for(std::chrono::milliseconds(std::min(10, intervalMs_ - waited)));
        }
    }
    writeAll(fd_, "\r\033[K");
}

}  // namespace cinedng
