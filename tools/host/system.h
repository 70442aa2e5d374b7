/// Operating system services for the host. One file per system. All texts are in UTF-8; where file names are bytes,
/// they are passed unchanged.
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

#include "platform/registry.h"

namespace plate_host {

/// Must be called once, before all else, on the main thread. After it, requests to stop are recorded, and a second one
/// ends the process at once; a broken pipe is a write error and not a signal; the standard streams are open; and a
/// library that this thread cannot load opens no message box.
void PrepareProcess();

/// The arguments after the program's name. Takes the arguments of main.
std::vector<std::string> CommandLine(int argumentCount, const char* const* arguments);

/// The signal that requested the run to stop: 2 from the keyboard, 15 from the system; 0 for none. Any thread.
int Interruption();

/// True when the system ends the process within seconds of its request to stop. Any thread.
bool MustEndQuickly();

/// Returns true when standard error is a terminal that supports control sequences, and enables them.
bool ErrorsGoToTerminal();

enum class StandardStream { Output, Errors };

struct WriteResult {
    bool isWritten = true;
    std::string error;  ///< why the write failed; empty when the stream's reader closed it
};

/// Writes the whole text, its line ends unchanged. Any thread.
WriteResult WriteStandard(StandardStream stream, std::string_view text);

/// Adds a folder to the end of the search path for programs. REQUIRES: no other thread reads the environment.
void AddToSearchPath(const std::filesystem::path& folder);

/// The file names of the library and the engine on this system.
const char* LibraryFileName();
/// "linux" or "windows".
const char* SystemName();
const char* EngineFileName();

/// The path of this program.
std::filesystem::path ProgramFile();

/// Converts between texts and file names.
std::filesystem::path ToPath(std::string_view text);
std::string ToText(const std::filesystem::path& path);

/// Converts to a file name that the system opens regardless of its length.
std::filesystem::path ToOpenPath(std::string_view text);

/// True for a file that can be read from its start more than once.
bool IsRegularFile(const std::string& path);

/// Why a library could not be loaded: the loader's message, or a plainer one.
std::string LoadErrorText(const std::system_error& error);

/// The system's handle of the loaded library to which the plug-in binds its engine's functions, by the engine's name;
/// null for none.
void* LoadedEngine();

/// The place from which the library reads its debug level in a hive; empty if the environment defines none.
std::string DebugLevelPlace(platform::RegistryHive hive);

/// These places in the library's order, one text each.
std::vector<std::string> DebugLevelPlaces();

/// A stream of bytes from a file, a pipe or standard input. Used by one thread at a time.
class ByteSource {
  public:
    virtual ~ByteSource() = default;
    /// Reads at least one byte; returns 0 at the end, after an error and on a request to stop.
    virtual std::size_t Read(void* buffer, std::size_t size) = 0;
    /// The system's text for a failed read; empty when there was none.
    virtual std::string Error() const = 0;
    /// The number of bytes, if known.
    virtual std::optional<std::uint64_t> Size() const = 0;
};

/// Opens a file, or standard input for "-". Throws Failure.
std::unique_ptr<ByteSource> OpenByteSource(const std::string& path);

}  // namespace plate_host
