/// The host program as a process under the test's control. One file per system knows how.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace host_test {

struct Finished {
    int status = -1;  ///< the exit status; -1 when a signal ended it
    int signal = 0;
    std::string output;
    std::string errors;
};

/// A way in which a process is asked to stop, and the number that the program knows it by.
struct StopRequest {
    const char* name;
    int systemsNumber;
    int number;
    bool mayComeAgain;  ///< before the process has ended
};

inline void PrintTo(const StopRequest& request, std::ostream* stream) {
    *stream << request.name;
}

/// The ways that this system has.
std::vector<StopRequest> StopRequests();

/// False where no pseudo-terminal can be had, as in a bare changed root.
bool SystemHasTerminals();

/// One process with pipes on its three streams. Waits end with a thrown exception when a deadline passes.
class HostProcess {
  public:
    struct Start {
        std::string program = PLATE_HOST_PROGRAM;
        std::vector<std::string> arguments = {};
        std::vector<std::pair<std::string, std::optional<std::string>>> environment =
            {};                           ///< without a value: taken out
        bool errorsToTerminal = false;    ///< a pseudo-terminal as standard error
        bool outputIsUnwritable = false;  ///< standard output refuses every byte
        bool outputIsMissing = false;     ///< there is no standard output at all
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
    void Stop(const StopRequest& request) const;
    /// Moves what is ready on the three streams, and waits a moment when nothing is.
    void PumpOnce();
    /// Reads everything until the process has ended. Closes its input first.
    Finished Wait();
    /// The same for a process that ends by itself.
    Finished WaitWithOpenInput();

    const std::string& Output() const { return output_; }
    const std::string& Errors() const { return errors_; }

  private:
    /// What the operating system knows of the process.
    struct System;

    void WaitForText(const std::string& stream, const std::string& text, const char* what);
    void Pump(const std::function<bool()>& isDone, const char* what);
    bool StreamsHaveEnded() const;
    /// Fills in how the process has ended; false while it runs.
    bool HasEnded(Finished& finished);

    std::unique_ptr<System> system_;
    std::string pendingInput_;
    std::string output_;
    std::string errors_;
};

enum class LeaksAllowed { No, Yes };

/// Runs the program to its end, with that input.
Finished RunHost(const std::vector<std::string>& arguments, const std::string& input = {},
                 LeaksAllowed leaks = LeaksAllowed::No);

/// A pipe with a name that a file could have.
class NamedPipe {
  public:
    NamedPipe();
    NamedPipe(const NamedPipe&) = delete;
    NamedPipe& operator=(const NamedPipe&) = delete;
    ~NamedPipe();

    const std::string& Path() const { return path_; }
    /// Writes all of it, once a reader is there, and ends the stream.
    void Write(const std::string& bytes);

  private:
    struct System;

    std::unique_ptr<System> system_;
    std::string path_;
};

/// A folder of the test's own, removed with everything in it. Names are in UTF-8.
class TemporaryFolder {
  public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    std::string Path(const std::string& name) const;
    std::string Write(const std::string& name, const std::string& bytes) const;
    std::string MakeFolder(const std::string& name) const;
    /// Copies a file to here.
    std::string Copy(const std::string& from, const std::string& name) const;

  private:
    std::string path_;
};

void RemoveFile(const std::string& path);

/// What this system says of a thing that goes wrong.
namespace SystemText {
std::string NoSuchFile();
std::string Folder();
std::string UnwritableOutput();
/// Of a file that has the given bytes and is loaded as a library.
std::string NoLibrary(const std::string& path);
std::string ShortLibrary(const std::string& path);
/// Of a library that needs an engine where there is none.
std::string LibraryWithoutEngine();
}  // namespace SystemText

}  // namespace host_test
