/// Writes a recording while it is made.
#pragma once

#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>

#include "tools/recording/recording.h"

namespace recording {

/// Every record is written and flushed as a whole, so that the file can be read after a crash. Any thread.
class RecordingWriter {
  public:
    /// Creates or replaces the file. Throws std::runtime_error.
    RecordingWriter(const std::filesystem::path& file, const Run& run);

    void Write(const Channel& channel) { WriteLine(LineOf(channel)); }
    void Write(const Frame& frame) { WriteLine(LineOf(frame)); }
    void Write(const End& end) { WriteLine(LineOf(end)); }

    /// Why a record could not be written; empty when all were. Nothing is written after the first failure.
    std::string Error() const;

  private:
    void WriteLine(const std::string& line);

    const std::filesystem::path file_;
    mutable std::mutex mutex_;
    std::ofstream stream_;  // guarded by mutex
    std::string error_;     // guarded by mutex
};

}  // namespace recording
