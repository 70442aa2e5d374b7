#include "reference/server/reader_pool.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <utility>

namespace reading_service {

namespace {

// Behind a failure; until then frames are not kept waiting for nothing.
constexpr std::chrono::seconds makingPause{1};

}  // namespace

void Complain(const std::string& text) {
    std::fprintf(stderr, "plate-Server: %s\n", text.c_str());
}

ReaderPool::ReaderPool(std::size_t mostReaders, ReaderFactory readerFactory)
    : most(std::max<std::size_t>(mostReaders, 1)),
      factory(std::move(readerFactory)),
      maker([this] { MakeReaders(); }) {}

ReaderPool::~ReaderPool() {
    Stop();
    maker.join();
}

ReaderPool::Loan::Loan(Loan&& other) noexcept : pool(std::exchange(other.pool, nullptr)), reader(other.reader) {}

ReaderPool::Loan::~Loan() {
    if (pool != nullptr) {
        const std::lock_guard lock(pool->mutex);
        pool->Hand(*reader);
    }
}

std::optional<ReaderPool::Loan> ReaderPool::Take(transport::Deadline deadline) {
    std::unique_lock lock(mutex);
    if (stopped || MakingHasJustFailed()) {
        return std::nullopt;
    }
    if (!free.empty()) {
        plate_reading::FrameReader* const reader = free.back();
        free.pop_back();
        return Loan(*this, *reader);
    }
    Waiter waiter;
    waiters.push_back(&waiter);
    isWanted.notify_one();
    waiter.changed.wait_until(lock, deadline, [&] { return waiter.reader != nullptr || waiter.refused; });
    if (waiter.reader == nullptr) {
        std::erase(waiters, &waiter);
        return std::nullopt;
    }
    return Loan(*this, *waiter.reader);
}

std::size_t ReaderPool::Waiting() {
    const std::lock_guard lock(mutex);
    return waiters.size();
}

void ReaderPool::Stop() {
    const std::lock_guard lock(mutex);
    stopped = true;
    RefuseWaiters();
    isWanted.notify_one();
}

void ReaderPool::MakeReaders() {
    std::unique_lock lock(mutex);
    bool isFirstAttempt = true;
    while (readers.size() < most) {
        isWanted.wait(lock, [&] { return stopped || isFirstAttempt || !waiters.empty(); });
        if (isWanted.wait_until(lock, nextAttempt, [&] { return stopped; })) {
            return;
        }
        isFirstAttempt = false;
        std::unique_ptr<plate_reading::FrameReader> made;
        std::string failure;
        lock.unlock();
        try {
            made = factory();
            failure = "there is none";
        } catch (const std::exception& error) {
            failure = error.what();
        } catch (...) {
            failure = "for no known reason";
        }
        lock.lock();
        if (made != nullptr) {
            readers.push_back(std::move(made));
            Hand(*readers.back());
            continue;
        }
        Complain("no reader can be made: " + failure);
        nextAttempt = transport::Clock::now() + makingPause;
        if (readers.empty()) {
            RefuseWaiters();
        }
    }
}

// Gives a free reader to whoever has waited longest. REQUIRES: mutex.
void ReaderPool::Hand(plate_reading::FrameReader& reader) {
    if (waiters.empty()) {
        free.push_back(&reader);
        return;
    }
    Waiter* const next = waiters.front();
    waiters.pop_front();
    next->reader = &reader;
    next->changed.notify_one();
}

// REQUIRES: mutex.
void ReaderPool::RefuseWaiters() {
    for (Waiter* const waiter : std::exchange(waiters, {})) {
        waiter->refused = true;
        waiter->changed.notify_one();
    }
}

// REQUIRES: mutex.
bool ReaderPool::MakingHasJustFailed() const {
    return readers.empty() && transport::Clock::now() < nextAttempt;
}

}  // namespace reading_service
