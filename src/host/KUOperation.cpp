#include "cinedng/KUOperation.h"

#include <exception>

namespace cinedng {

KUOperation::~KUOperation() = default;

void KUOperation::start() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (started_) return;
        started_ = true;
    }
    try {
        main();
    } catch (const std::exception& e) {
        fail(errorWithDomain("KUOperation", -1, "%s", e.what()));
    } catch (...) {
        fail(errorWithDomain("KUOperation", -1, "unknown exception"));
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        finished_ = true;
    }
    finishedCondition_.notify_all();
}

void KUOperation::fail(std::shared_ptr<KSError> error) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!failed_) error_ = std::move(error);
    failed_ = true;
}

bool KUOperation::isFinished() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return finished_;
}

bool KUOperation::isFailed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return failed_;
}

std::shared_ptr<KSError> KUOperation::error() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return error_;
}

void KUOperation::waitUntilFinished() const {
    std::unique_lock<std::mutex> lock(mutex_);
    finishedCondition_.wait(lock, [this] { return finished_; });
}

// ---- queue ---------------------------------------------------------------------------------------

KUOperationQueue::KUOperationQueue(int maxConcurrentOperationCount) : maxConcurrent_(maxConcurrentOperationCount) {
    if (maxConcurrent_ <= 0) {
        const unsigned hw = std::thread::hardware_concurrency();
        maxConcurrent_ = hw ? static_cast<int>(hw) : 1;
    }
}

KUOperationQueue::~KUOperationQueue() {
    waitUntilAllOperationsAreFinished();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    workAvailable_.notify_all();
    for (auto& t : workers_) t.join();
}

void KUOperationQueue::addOperation(std::shared_ptr<KUOperation> operation) {
    if (!operation) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pending_.push_back(std::move(operation));
        if (pending_.size() > idleWorkers_ && workers_.size() < static_cast<size_t>(maxConcurrent_))
            workers_.emplace_back([this] { workerLoop(); });
    }
    workAvailable_.notify_one();
}

void KUOperationQueue::waitUntilAllOperationsAreFinished() {
    std::unique_lock<std::mutex> lock(mutex_);
    allDone_.wait(lock, [this] { return pending_.empty() && running_ == 0; });
}

size_t KUOperationQueue::operationCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return pending_.size() + running_;
}

void KUOperationQueue::workerLoop() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        ++idleWorkers_;
        workAvailable_.wait(lock, [this] { return stopping_ || !pending_.empty(); });
        --idleWorkers_;
        if (pending_.empty()) return;  // stopping
        std::shared_ptr<KUOperation> op = std::move(pending_.front());
        pending_.pop_front();
        ++running_;
        lock.unlock();
        op->start();
        op.reset();
        lock.lock();
        --running_;
        if (pending_.empty() && running_ == 0) allDone_.notify_all();
    }
}

}  // namespace cinedng
