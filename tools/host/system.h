/// What the host needs of the operating system. One file per system. Texts are in UTF-8, those that go out and
/// those that come in; where file names are bytes, they pass through as they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace plate_host {

/// Called once, first of all, on the main thread: requests to stop are noted from then on, a second one ends the
/// process at once, a broken pipe is an error of the write and no signal, the standard streams are open, and a library
/// that cannot be loaded by this thread raises no window.
void PrepareProcess();

/// The words of the command line after the program's name. Takes what main was given.
std::vector<std::string> CommandLine(int argumentCount, const char* const* arguments);

/// The number of the signal that asked the run to stop, 2 from the keyboard and 15 from the system; 0 for none. Any
/// thread.
int Interruption();

/// True when standard error is a terminal that obeys control sequences, which it is prepared for.
bool ErrorsGoToTerminal();

enum class StandardStream { Output, Errors };

struct WriteResult {
    bool isWritten = true;
    std::string error;  ///< why it is not; empty when the stream's reader has gone
};

/// Writes the whole text, its line ends unchanged. Any thread.
WriteResult WriteStandard(StandardStream stream, std::string_view text);

/// The file names of the library and the engine on this system.
const char* LibraryFileName();
const char* EngineFileName();

/// Where this program lies.
std::filesystem::path ProgramFile();

/// A text as the name of a file, and the other way.
std::filesystem::path ToPath(std::string_view text);
std::string ToText(const std::filesystem::path& path);

/// The name in the form in which the system opens it whatever its length.
std::filesystem::path ToOpenPath(std::string_view text);

/// True for a file that can be read from its start more than once.
bool IsRegularFile(const std::string& path);

/// Why a library could not be loaded: the loader's own words, or plainer ones.
std::string LoadErrorText(const std::system_error& error);

/// True when a library is loaded under the name by which the plug-in asks for its engine.
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
