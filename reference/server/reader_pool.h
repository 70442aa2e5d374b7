/// The readers of a server, each of which reads one frame at a time.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "reference/reader/frame_reader.h"
#include "reference/transport/local_connection.h"

namespace reading_service {

/// Creates a reader, which may be slow. Throws std::exception. Called on one thread.
using ReaderFactory = std::function<std::unique_ptr<plate_reading::FrameReader>()>;

/// Writes one line to standard error. Any thread.
void LogError(const std::string& text);

/// Lends readers in the order of the requests. Creates the first reader at once and another whenever a caller has to
/// wait, up to a maximum; all on a thread of the pool. Any thread.
class ReaderPool {
  public:
    ReaderPool(std::size_t maxReaders, ReaderFactory factory);
    /// REQUIRES: all readers have been returned and no thread is in Take.
    ~ReaderPool();
    ReaderPool(const ReaderPool&) = delete;
    ReaderPool& operator=(const ReaderPool&) = delete;

    /// Returns its reader to the pool when destroyed.
    class Loan {
      public:
        Loan(Loan&& other) noexcept;
        Loan& operator=(Loan&&) = delete;
        ~Loan();

        plate_reading::FrameReader& Reader() const { return *reader_; }

      private:
        friend class ReaderPool;
        Loan(ReaderPool& owner, plate_reading::FrameReader& lent) : pool_(&owner), reader_(&lent) {}

        ReaderPool* pool_;
        plate_reading::FrameReader* reader_;
    };

    /// Waits for a reader. Returns nothing at the deadline, after Stop, and when there is no reader because creating
    /// one has just failed.
    std::optional<Loan> Take(transport::Deadline deadline);

    /// The number of callers that wait for a reader.
    std::size_t Waiting();

    /// Ends every wait, now and later.
    void Stop();

  private:
    struct Waiter {
        std::condition_variable changed;
        plate_reading::FrameReader* reader = nullptr;
        bool refused = false;
    };

    void MakeReaders();
    void Assign(plate_reading::FrameReader& reader);
    void RefuseWaiters();
    bool HasJustFailed() const;

    const std::size_t maxReaders_;
    const ReaderFactory factory_;

    std::mutex mutex_;  // guards all below
    std::condition_variable readerNeeded_;
    std::vector<std::unique_ptr<plate_reading::FrameReader>> readers_;
    std::vector<plate_reading::FrameReader*> free_;  // empty while a caller waits
    std::deque<Waiter*> waiters_;                    // the first has waited longest
    transport::Deadline nextAttempt_;
    bool stopped_ = false;

    std::thread maker_;
};

}  // namespace reading_service
