#pragma once
// Background operations for the host: an operation object whose main() a queue runs on a worker
// thread, with a failure state that keeps an error object, and the queue that runs them.
//
// This is the one place of the library with threads and locks. An operation is run once; the host
// adds it to a KUOperationQueue, waits (waitUntilFinished on the operation or
// waitUntilAllOperationsAreFinished on the queue) and then reads its results: the wait orders every
// write of main() before the host's reads. Properties that main() reads are set before the operation
// is added to a queue.
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cinedng/KSError.h"
#include "cinedng/KSLog.h"

namespace cinedng {

class KUOperationQueue;

class KUOperation {
public:
    KUOperation() = default;
    virtual ~KUOperation();
    KUOperation(const KUOperation&) = delete;
    KUOperation& operator=(const KUOperation&) = delete;

    // The work of the operation; run by start() (and by a queue on one of its threads).
    virtual void main() = 0;

    // Runs main() on the calling thread, once; an exception escaping main() fails the operation with
    // domain "KUOperation", code -1 and the exception's message. Marks the operation finished.
    void start();

    // Marks the operation as failed and keeps the error (the first one, if called more than once).
    void fail(std::shared_ptr<KSError> error);

    bool isFinished() const;
    bool isFailed() const;
    std::shared_ptr<KSError> error() const;
    void waitUntilFinished() const;

    // An error whose localized description is the formatted text (KSFormat: printf with %@).
    template <typename... Args>
    static std::shared_ptr<KSError> errorWithDomain(const std::string& domain, long code, const std::string& reasonFormat,
                                                    const Args&... args) {
        return KSError::errorWithDomain(domain, code, KSFormat(reasonFormat, args...));
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable finishedCondition_;
    bool started_ = false;
    bool finished_ = false;
    bool failed_ = false;
    std::shared_ptr<KSError> error_;
};

class KUOperationQueue {
public:
    // At most maxConcurrentOperationCount operations run at the same time (0: one per hardware
    // thread). Worker threads are started on demand.
    explicit KUOperationQueue(int maxConcurrentOperationCount = 0);
    // Waits for every queued operation, then stops the workers.
    ~KUOperationQueue();
    KUOperationQueue(const KUOperationQueue&) = delete;
    KUOperationQueue& operator=(const KUOperationQueue&) = delete;

    // The queue keeps the operation alive until it has run.
    void addOperation(std::shared_ptr<KUOperation> operation);
    void waitUntilAllOperationsAreFinished();
    // Operations queued or running.
    size_t operationCount() const;
    int maxConcurrentOperationCount() const { return maxConcurrent_; }

private:
    void workerLoop();

    int maxConcurrent_;
    mutable std::mutex mutex_;
    std::condition_variable workAvailable_;
    std::condition_variable allDone_;
    std::deque<std::shared_ptr<KUOperation>> pending_;
    std::vector<std::thread> workers_;
    size_t running_ = 0;
    size_t idleWorkers_ = 0;
    bool stopping_ = false;
};

}  // namespace cinedng
