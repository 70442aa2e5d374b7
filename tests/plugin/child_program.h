/// A program that a test starts and whose end it awaits.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace plugin_test {

class ChildProgram {
  public:
    /// Throws std::exception when it cannot be started.
    ChildProgram(const std::filesystem::path& program, const std::string& argument);
    /// Ends it, if it has not ended.
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    /// The number that it writes first to its standard output; 0 when it ends without one. Once.
    std::int32_t ReadNumber();

    /// How it has ended, 0 for in good order; nothing while it runs.
    std::optional<std::int64_t> Status();

  private:
    std::intptr_t process_ = 0;
    std::intptr_t output_ = 0;
    std::optional<std::int64_t> status_;
};

}  // namespace plugin_test
