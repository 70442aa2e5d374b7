/// A record of the calls to the engine, for tests.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "engine/engine_records.h"

namespace scripted_engine {

/// The position of a call among the calls of its function; all counted from 0.
struct CallNumber {
    std::uint64_t process;   ///< among the calls of the process
    std::uint64_t thread;    ///< the thread, in the order of their first calls
    std::uint64_t onThread;  ///< among the calls of the thread
};

/// Appends a line of JSON for every call. Any thread; lines do not mix.
class Journal {
  public:
    /// Records nothing when the path is empty or cannot be opened; reports the latter on standard error.
    explicit Journal(const std::filesystem::path& file);

    void WriteRecognition(const CallNumber& number, const IMG* image, const tagRECT* region, bool firstArgumentIsNull,
                          int flags, int result);
    void WriteRange(const CallNumber& number, int minimumWidth, int maximumWidth, bool accepted);

  private:
    std::mutex mutex_;
    std::ofstream stream_;  // guarded by mutex
    bool open_;
};

}  // namespace scripted_engine
