/// A program that a test starts. The system's parts are in linux_child_process.cpp and windows_child_process.cpp.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace test_support {

struct Finished {
    int status = -1;  ///< the exit status; -1 when a signal ended it
    int signal = 0;
    std::string output;
    std::string errors;
};

/// A request to stop a process, and the number by which the program identifies it.
struct StopRequest {
    const char* name;
    int systemsNumber;
    int number;
    bool isRepeatable;  ///< may be sent again before the process has ended
};

inline void PrintTo(const StopRequest& request, std::ostream* stream) {
    *stream << request.name;
}

/// The requests that this system supports.
std::vector<StopRequest> StopRequests();

/// False where no pseudo-terminal is available, as in a bare changed root.
bool SystemHasTerminals();

/// Values by name; a variable without a value is removed. Text is UTF-8.
using EnvironmentChanges = std::vector<std::pair<std::string, std::optional<std::string>>>;

/// One process with pipes on its three streams. The destructor kills it. Waits throw when a deadline passes. One thread
/// at a time.
class ChildProcess {
  public:
    struct Start {
        std::filesystem::path program = {};
        std::vector<std::string> arguments = {};  ///< UTF-8
        EnvironmentChanges environment = {};
        bool errorsToTerminal = false;     ///< a pseudo-terminal as standard error
        bool outputIsUnwritable = false;   ///< writes to standard output fail
        bool outputIsMissing = false;      ///< there is no standard output at all
        bool streamsAreInherited = false;  ///< the test's own instead of pipes
    };

    /// Throws std::system_error when the program cannot be started.
    explicit ChildProcess(const Start& start);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    std::int32_t Id() const { return id_; }

    void WriteInput(const std::string& bytes);
    void CloseInput();
    /// Closes the reading end of the process's standard output.
    void CloseOutput();
    void WaitForOutput(const std::string& text);
    void WaitForErrors(const std::string& text);
    void WaitUntilInputIsRead();
    void Stop(const StopRequest& request) const;
    /// Transfers what is ready on the three streams; waits briefly when nothing is.
    void PumpOnce();
    /// Reads everything until the process has ended. Closes its input first.
    Finished Wait();
    /// The same for a process that ends by itself.
    Finished WaitWithOpenInput();

    const std::string& Output() const { return finished_.output; }
    const std::string& Errors() const { return finished_.errors; }

  private:
    /// The operating system's handles of the process.
    struct System;

    /// The variables of this process as "name=value".
    static std::vector<std::string> OwnVariables();
    static std::vector<std::string> OwnVariablesWith(const EnvironmentChanges& changes);

    void WaitForText(const std::string& stream, const std::string& text, const char* what);
    void Pump(const std::function<bool()>& isDone, const char* what);
    bool StreamsHaveEnded() const;
    /// Records the end of the process without waiting for it.
    bool HasEnded();

    std::unique_ptr<System> system_;
    std::int32_t id_ = 0;
    bool hasEnded_ = false;
    std::string pendingInput_;
    Finished finished_;
};

}  // namespace test_support
