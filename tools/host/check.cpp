#include "tools/host/check.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "image_transform/kernels/kernel.h"
#include "platform/registry.h"
#include "sdk/module.h"
#include "tools/host/check_result.h"
#include "tools/host/check_system.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

using Clock = std::chrono::steady_clock;
namespace kernels = image_transform::kernels;

// What a library that ends a server, and a system that ends a process, take for it at most; with a margin.
constexpr std::chrono::seconds endTimeout{3};

/// Prints the results as they are known.
class Printer {
  public:
    explicit Printer(bool json) : json_(json) {}

    void Print(const std::string& check, const CheckResult& result) {
        worst_ = std::max(worst_, result.state);
        const WriteResult written =
            WriteStandard(StandardStream::Output, json_ ? ToJson(check, result) + "\n" : LineOf(check, result));
        if (!written.isWritten) {
            throw Failure("cannot write: " + (written.error.empty() ? "the reader has ended" : written.error));
        }
    }

    int ExitStatus() const { return static_cast<int>(worst_); }

  private:
    static std::string LineOf(const std::string& check, const CheckResult& result) {
        constexpr std::size_t stateWidth = 9;
        constexpr std::size_t checkWidth = 18;
        std::string line = result.state == CheckState::Ok      ? "ok"
                           : result.state == CheckState::Fails ? "fails"
                                                               : "warning";
        line.resize(stateWidth, ' ');
        line += check;
        line.resize(stateWidth + checkWidth, ' ');
        line += OneLine(result.found);
        if (!result.remedy.empty()) {
            line += "; to do: " + OneLine(result.remedy);
        }
        return line + "\n";
    }

    const bool json_;
    CheckState worst_ = CheckState::Ok;
};

CheckResult CheckKernels() {
    std::string supported;
    for (const kernels::Kernel& kernel : kernels::AllKernels()) {
        if (kernel.isSupported()) {
            supported += (supported.empty() ? "" : ", ") + std::string(kernel.name);
        }
    }
    const char* const wanted = std::getenv("VEXLANE_KERNEL");
    const std::string chosen = kernels::ChooseKernel(wanted).name;
    const std::string found = chosen + " is used; this processor runs " + supported;
    if (wanted != nullptr && wanted != chosen) {
        return {CheckState::Warning, found + ", and VEXLANE_KERNEL is \"" + wanted + "\"",
                "unset VEXLANE_KERNEL, or set it to one of these"};
    }
    return {CheckState::Ok, found, ""};
}

/// One attempt to read the debug level from a hive.
struct StoredLevel {
    bool isOpen = false;
    bool isMissing = false;
    bool hasValue = false;
    std::string text;
};

StoredLevel ReadLevel(platform::RegistryHive hive) {
    constexpr std::uint32_t notFound = 2;        // the number of both systems
    constexpr std::uint32_t folderNotFound = 3;  // of Windows
    StoredLevel level;
    platform::RegistryHandle key = 0;
    const std::uint32_t error =
        platform::OpenRegistryKey(hive, OKM8::DebugLevelValue::Key, platform::registryAllAccess32BitView, key);
    level.isOpen = error == 0;
    level.isMissing = error == notFound || error == folderNotFound;
    if (level.isOpen) {
        std::vector<char> bytes(1024);
        auto size = static_cast<std::uint32_t>(bytes.size());
        level.hasValue = platform::QueryRegistryValue(key, OKM8::DebugLevelValue::Name, bytes.data(), size) == 0;
        if (level.hasValue) {
            level.text.assign(bytes.begin(), std::find(bytes.begin(), bytes.begin() + size, '\0'));
        }
        platform::CloseRegistryKey(key);
    }
    return level;
}

CheckResult CheckDebugLevel() {
    using platform::RegistryHive;
    const std::string machinePlace = DebugLevelPlace(RegistryHive::LocalMachine);
    const StoredLevel machine = ReadLevel(RegistryHive::LocalMachine);
    const StoredLevel level = machine.isOpen ? machine : ReadLevel(RegistryHive::CurrentUser);
    const std::string place = machine.isOpen ? machinePlace : DebugLevelPlace(RegistryHive::CurrentUser);
    std::string found;
    if (!level.isOpen) {
        found = "0, because its key does not exist yet; the library creates it";
    } else if (!level.hasValue) {
        found = "0, because there is no value " + place;
    } else {
        char* end = nullptr;
        const long long number = std::strtoll(level.text.c_str(), &end, 10);
        found = std::to_string(number) + (number == 0 ? ", no trace lines" : ", with trace lines") + ", from " + place;
        if (end == level.text.c_str()) {
            return {CheckState::Warning, found + ", which is not a number in a text",
                    "set it to the text (REG_SZ) 0 or 1"};
        }
    }
    if (!machine.isOpen && !machine.isMissing) {
        return {CheckState::Warning, found + "; the account may not open " + machinePlace + " with all rights",
                "set the level in the user's hive, or give the account the rights"};
    }
    return {CheckState::Ok, found, ""};
}

CheckResult CheckOtherServers(const std::vector<std::uint32_t>& servers) {
    if (servers.empty()) {
        return {CheckState::Ok, std::string("no ") + serverProgram + " runs", ""};
    }
    return {CheckState::Warning,
            ProcessesText(servers) + " of the name " + serverProgram +
                " already runs: the library will not start its own and will not end it",
            "end it, unless another host uses it"};
}

CheckResult CheckServerProgram() {
    const std::string path = FindProgram(serverProgram);
    if (path.empty()) {
        return {CheckState::Fails, std::string(serverProgram) + " that may be executed is not in " + ProgramPlaces(),
                std::string("put ") + serverProgram + " into the folder of the host's program"};
    }
    return {CheckState::Ok, path, ""};
}

// The server ends shortly after the library that started it.
CheckResult CheckNothingLeft(const std::vector<std::uint32_t>& before, const std::string& end) {
    std::vector<std::uint32_t> left;
    const Clock::time_point deadline = Clock::now() + endTimeout;
    do {
        left = RunningServers();
        std::erase_if(left, [&before](std::uint32_t process) {
            return std::find(before.begin(), before.end(), process) != before.end();
        });
        if (!left.empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    } while (!left.empty() && Clock::now() < deadline);
    if (!left.empty()) {
        return {CheckState::Fails, ProcessesText(left) + " of the name " + serverProgram + " still runs", "end it"};
    }
    if (!end.empty()) {
        return {CheckState::Fails, "no server is left, but the process that loaded the library " + end,
                "look for what ended it in the lines above"};
    }
    return {CheckState::Ok, "no server is left, and the process that loaded the library has ended", ""};
}

/// Prints the results of the checks that the process makes which loads the library.
class InnerChecks {
  public:
    InnerChecks(OwnProgram& program, int timeout, Printer& printer)
        : program_(program), timeout_(std::chrono::seconds(timeout)), printer_(printer) {}

    /// Prints a result for each check. Returns how the process ended; empty if it ended well.
    std::string Run() {
        std::string line;
        for (OwnProgram::Got got = Read(line); got != OwnProgram::Got::End; got = Read(line)) {
            if (got == OwnProgram::Got::Nothing) {
                return EndAtLimit();
            }
            Handle(ParseMessage(line));
        }
        const std::string end = program_.Wait(Clock::now() + endTimeout);
        if (!Current().empty()) {
            const std::string check = Current();
            Print({CheckState::Fails, "the process that loads the library " + (end.empty() ? "ended" : end),
                   "look for the fault in the library or the engine"});
            SkipTheRest("the check \"" + check + "\" ended the process");
        }
        return end;
    }

  private:
    OwnProgram::Got Read(std::string& line) {
        return program_.ReadLine(line, std::min(start_ + timeout_, stepStart_ + timeout_ / 3));
    }

    void Handle(const CheckMessage& message) {
        if (message.check == Current()) {  // else it is a line of the library or the engine
            stepStart_ = Clock::now();
            if (message.hasEnded) {
                Print(message.result);
            }
        }
    }

    std::string EndAtLimit() {
        program_.Wait(Clock::now());
        if (!Current().empty()) {
            const std::string check = Current();
            Print({CheckState::Fails, "it did not end in time, and its process was ended",
                   "increase --timeout, or look for what it waits for"});
            SkipTheRest("the check \"" + check + "\" did not end");
        }
        return "did not end in time";
    }

    void SkipTheRest(const std::string& reason) {
        while (!Current().empty()) {
            Print(NotTried(reason));
        }
    }

    // The check that comes next or is being made; empty after the last one.
    std::string Current() const { return next_ < CheckName::Inside.size() ? CheckName::Inside[next_] : ""; }

    void Print(const CheckResult& result) {
        printer_.Print(Current(), result);
        ++next_;
    }

    OwnProgram& program_;
    const std::chrono::milliseconds timeout_;
    Printer& printer_;
    std::size_t next_ = 0;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point stepStart_ = start_;
};

}  // namespace

int Check(const CheckOptions& options, Console&) {
    Printer printer(options.json);
    const PluginFiles files = FindPluginFiles(options.paths);
    const std::vector<std::uint32_t> servers = RunningServers();
    printer.Print(CheckName::Kernels, CheckKernels());
    printer.Print(CheckName::DebugLevel, CheckDebugLevel());
    printer.Print(CheckName::DebugOutput, CheckDebugOutput());
    printer.Print(CheckName::OtherServers, CheckOtherServers(servers));
    printer.Print(CheckName::ServerProgram, CheckServerProgram());
    std::unique_ptr<OwnProgram> program;
    std::string end;
    try {
        program = std::make_unique<OwnProgram>(std::vector<std::string>{"check", "--inside", "--plugin", files.library,
                                                                        "--engine", files.engine, "--timeout",
                                                                        std::to_string(options.timeout)});
    } catch (const Failure& failure) {
        printer.Print(CheckName::Processes, {CheckState::Fails, failure.what(), "give the account the rights"});
        for (const char* const check : CheckName::Inside) {
            printer.Print(check, NotTried("no process can be started"));
        }
    }
    if (program != nullptr) {
        printer.Print(CheckName::Processes, {CheckState::Ok, "the account may start processes", ""});
        end = InnerChecks(*program, options.timeout, printer).Run();
    }
    printer.Print(CheckName::NothingLeft, CheckNothingLeft(servers, end));
    return Interruption() == 0 ? printer.ExitStatus() : 128 + Interruption();
}

}  // namespace plate_host
