/// The host program as a process under the test's control.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace host_test {

struct Finished {
    int status = -1;  ///< the exit status; -1 when a signal or the deadline ended it
    int signal = 0;
    std::string output;
    std::string errors;
};

/// False where no pseudo-terminal can be had, as in a bare changed root.
bool SystemHasTerminals();

/// One process with pipes on its three streams. Waits end with a thrown exception when a deadline passes.
class HostProcess {
  public:
    struct Start {
        std::string program = PLATE_HOST_PROGRAM;
        std::vector<std::string> arguments;
        bool errorsToTerminal = false;  ///< a pseudo-terminal as standard error
    };

    explicit HostProcess(const Start& start);
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;
    ~HostProcess();

    void WriteInput(const std::string& bytes);
    void CloseInput();
    /// Closes the reading end of the process's standard output.
    void CloseOutput();
    void WaitForOutput(const std::string& text);
    void WaitForErrors(const std::string& text);
    void WaitUntilInputIsRead();
    void Signal(int signal) const;
    /// Moves what is ready on the three streams, and waits a moment when nothing is.
    void PumpOnce();
    /// Reads everything until the process has ended. Closes its input first.
    Finished Wait();

    const std::string& Output() const { return output; }
    const std::string& Errors() const { return errors; }

  private:
    void WaitForText(const std::string& stream, const std::string& text, const char* what);
    void Pump(const std::function<bool()>& isDone, const char* what);

    pid_t child = -1;
    int inputPipe = -1;
    int outputPipe = -1;
    int errorPipe = -1;
    std::string pendingInput;
    std::string output;
    std::string errors;
};

enum class LeaksAllowed { No, Yes };

/// Runs the program to its end, with that input.
Finished RunHost(const std::vector<std::string>& arguments, const std::string& input = {},
                 LeaksAllowed leaks = LeaksAllowed::No);

void MakeNamedPipe(const std::string& path);

/// Writes all of it, once a reader is there.
void WriteToNamedPipe(const std::string& path, const std::string& bytes);

/// A folder of the test's own, removed with everything in it.
class TemporaryFolder {
  public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    std::string Path(const std::string& name) const { return path + "/" + name; }
    std::string Write(const std::string& name, const std::string& bytes) const;

  private:
    std::string path;
};

}  // namespace host_test
