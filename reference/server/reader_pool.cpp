#include "reference/server/reader_pool.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <utility>

namespace reading_service {

namespace {

// Interval after a failure to create a reader. If there is no reader at all, Take does not wait in this time.
constexpr std::chrono::seconds retryInterval{1};

}  // namespace

void LogError(const std::string& text) {
    std::fprintf(stderr, "plate-Server: %s\n", text.c_str());
}

ReaderPool::ReaderPool(std::size_t maxReaders, ReaderFactory factory)
    : maxReaders_(std::max<std::size_t>(maxReaders, 1)),
      factory_(std::move(factory)),
      maker_([this] { MakeReaders(); }) {}

ReaderPool::~ReaderPool() {
    Stop();
    maker_.join();
}

ReaderPool::Loan::Loan(Loan&& other) noexcept : pool_(std::exchange(other.pool_, nullptr)), reader_(other.reader_) {}

ReaderPool::Loan::~Loan() {
    if (pool_ != nullptr) {
        const std::lock_guard lock(pool_->mutex_);
        pool_->Assign(*reader_);
    }
}

std::optional<ReaderPool::Loan> ReaderPool::Take(transport::Deadline deadline) {
    std::unique_lock lock(mutex_);
    if (stopped_ || HasJustFailed()) {
        return std::nullopt;
    }
    if (!free_.empty()) {
        plate_reading::FrameReader* const reader = free_.back();
        free_.pop_back();
        return Loan(*this, *reader);
    }
    Waiter waiter;
    waiters_.push_back(&waiter);
    readerNeeded_.notify_one();
    waiter.changed.wait_until(lock, deadline, [&] { return waiter.reader != nullptr || waiter.refused; });
    if (waiter.reader == nullptr) {
        std::erase(waiters_, &waiter);
        return std::nullopt;
    }
    return Loan(*this, *waiter.reader);
}

std::size_t ReaderPool::Waiting() {
    const std::lock_guard lock(mutex_);
    return waiters_.size();
}

void ReaderPool::Stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    RefuseWaiters();
    readerNeeded_.notify_one();
}

void ReaderPool::MakeReaders() {
    std::unique_lock lock(mutex_);
    bool isFirstAttempt = true;
    while (readers_.size() < maxReaders_) {
        readerNeeded_.wait(lock, [&] { return stopped_ || isFirstAttempt || !waiters_.empty(); });
        if (readerNeeded_.wait_until(lock, nextAttempt_, [&] { return stopped_; })) {
            return;
        }
        isFirstAttempt = false;
        std::unique_ptr<plate_reading::FrameReader> made;
        std::string failure;
        lock.unlock();
        try {
            made = factory_();
            failure = "the factory returned null";
        } catch (const std::exception& error) {
            failure = error.what();
        } catch (...) {
            failure = "unknown error";
        }
        lock.lock();
        if (made != nullptr) {
            readers_.push_back(std::move(made));
            Assign(*readers_.back());
            continue;
        }
        LogError("cannot create a reader: " + failure);
        nextAttempt_ = transport::Clock::now() + retryInterval;
        if (readers_.empty()) {
            RefuseWaiters();
        }
    }
}

// Assigns a free reader to the caller that has waited longest. REQUIRES: mutex.
void ReaderPool::Assign(plate_reading::FrameReader& reader) {
    if (waiters_.empty()) {
        free_.push_back(&reader);
        return;
    }
    Waiter* const next = waiters_.front();
    waiters_.pop_front();
    next->reader = &reader;
    next->changed.notify_one();
}

// REQUIRES: mutex.
void ReaderPool::RefuseWaiters() {
    for (Waiter* const waiter : std::exchange(waiters_, {})) {
        waiter->refused = true;
        waiter->changed.notify_one();
    }
}

// REQUIRES: mutex.
bool ReaderPool::HasJustFailed() const {
    return readers_.empty() && transport::Clock::now() < nextAttempt_;
}

}  // namespace reading_service
