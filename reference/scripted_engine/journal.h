/// What was asked of the engine, for tests to read.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "engine/engine_records.h"

namespace scripted_engine {

/// Where a call stands among the calls of its function; all counted from 0.
struct CallNumber {
    std::uint64_t process;   ///< among all of them
    std::uint64_t thread;    ///< which thread, in the order of their first calls
    std::uint64_t onThread;  ///< among those of the thread
};

/// Appends a line of JSON for every call. Any thread; lines stay whole.
class Journal {
  public:
    /// Keeps no journal when the path is empty or cannot be written; the latter is told on standard error.
    explicit Journal(const std::filesystem::path& file);

    void WriteRecognition(const CallNumber& number, const IMG* image, const tagRECT* region, bool firstArgumentIsNull,
                          int flags, int answer);
    void WriteRange(const CallNumber& number, int minimumWidth, int maximumWidth, bool accepted);

  private:
    std::mutex mutex_;
    std::ofstream stream_;  // guarded by mutex
    bool open_;
};

}  // namespace scripted_engine
