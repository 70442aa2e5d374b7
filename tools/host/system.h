/// What the host asks the operating system for. One file per system answers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace plate_host {

/// Called once, first of all, on the main thread: requests to stop are noted from then on, a second one ends the
/// process at once, a broken pipe is an error of the write and no signal, and the standard streams are open.
void PrepareProcess();

/// The number of the signal that asked the run to stop; 0 for none. Any thread.
int Interruption();

/// True when standard error is a terminal.
bool ErrorsGoToTerminal();

/// The file names that the library and the engine bear on this system.
const char* LibraryFileName();
const char* EngineFileName();

/// True when a loaded library answers to the name under which the library asks for its engine.
bool EngineIsBound();

/// The places where the library looks for its debug level, in its order, one text each.
std::vector<std::string> DebugLevelPlaces();

/// A stream of bytes from a file, a pipe or standard input. Used by one thread at a time.
class ByteSource {
  public:
    virtual ~ByteSource() = default;
    /// Reads at least one byte; 0 at the end, after an error and when the run is asked to stop.
    virtual std::size_t Read(void* buffer, std::size_t size) = 0;
    /// The system's text for a failed read; empty when there was none.
    virtual std::string Error() const = 0;
    /// The number of bytes, where that is known.
    virtual std::optional<std::uint64_t> Size() const = 0;
};

/// Opens a file, or standard input for "-". Throws Failure.
std::unique_ptr<ByteSource> OpenByteSource(const std::string& path);

}  // namespace plate_host
