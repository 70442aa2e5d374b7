/// The results of the checks, and the messages between the two processes that make them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace plate_host {

enum class CheckState { Ok, Warning, Fails };

struct CheckResult {
    CheckState state = CheckState::Ok;
    std::string found;
    std::string remedy;  ///< what to do; empty for Ok
};

/// The names of the checks.
namespace CheckName {
inline constexpr char Kernels[] = "kernels";
inline constexpr char DebugLevel[] = "debug level";
inline constexpr char DebugOutput[] = "debug output";
inline constexpr char OtherServers[] = "other servers";
inline constexpr char ServerProgram[] = "server program";
inline constexpr char Processes[] = "processes";
inline constexpr char Engine[] = "engine";
inline constexpr char EngineFunctions[] = "engine functions";
inline constexpr char Library[] = "library";
inline constexpr char LibraryVersion[] = "library version";
inline constexpr char LibraryExports[] = "library exports";
inline constexpr char LibraryStart[] = "library start";
inline constexpr char ServerStart[] = "server start";
inline constexpr char PlateRange[] = "plate range";
inline constexpr char Clip[] = "clip";
inline constexpr char ServerEnd[] = "server end";
inline constexpr char LibraryEnd[] = "library end";
inline constexpr char NothingLeft[] = "nothing left";

/// Those that load the library or the engine, in their order.
inline constexpr std::array Inside{Engine,      EngineFunctions, Library, LibraryVersion, LibraryExports, LibraryStart,
                                   ServerStart, PlateRange,      Clip,    ServerEnd,      LibraryEnd};
}  // namespace CheckName

inline constexpr char serverProgram[] = "plate-Server.exe";

/// The running processes of the server's name that the library would find.
std::vector<std::uint32_t> RunningServers();

/// "process 12" or "the processes 12, 34".
std::string ProcessesText(const std::vector<std::uint32_t>& processes);

/// The result of a check that depends on one that fails.
CheckResult NotTried(const std::string& reason);

/// One JSON object without a line end.
std::string ToJson(const std::string& check, const CheckResult& result);

/// What the inner process prints, one message a line: a check that begins, or one that has ended.
struct CheckMessage {
    std::string check;  ///< empty for a line that is no message
    bool hasEnded = false;
    CheckResult result;  ///< only if it has ended
};

std::string BeginMessage(const std::string& check);
CheckMessage ParseMessage(const std::string& line);

}  // namespace plate_host
