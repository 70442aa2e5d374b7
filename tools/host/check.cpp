#include "tools/host/check.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tools/host/check_machine.h"
#include "tools/host/check_result.h"
#include "tools/host/check_system.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

using Clock = std::chrono::steady_clock;

// How long the inner process may take to end after its last result.
constexpr std::chrono::seconds endTimeout{5};

// How often a request to stop and the end of the inner process are looked for.
constexpr std::chrono::milliseconds pollInterval{50};

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

/// Prints the results of the checks that the process makes which loads the library.
class InnerChecks {
  public:
    InnerChecks(OwnProgram& program, int timeout, Printer& printer)
        : program_(program), timeout_(std::chrono::seconds(timeout)), printer_(printer) {}

    /// Prints a result for each check. Returns how the process ended; empty if it ended well.
    std::string Run() {
        std::string line;
        for (OwnProgram::Got got = Read(line); got != OwnProgram::Got::End; got = Read(line)) {
            if (Interruption() != 0) {
                program_.CloseOutput();  // it ends when it cannot write
                return program_.Wait(Clock::now() + endTimeout);
            }
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
        const Clock::time_point limit = std::min(start_ + timeout_, stepStart_ + timeout_ / 3);
        while (Clock::now() < limit && Interruption() == 0) {
            // Asked first, so that its last lines are read. A server that it has left may keep the pipe open.
            const bool hasEnded = program_.HasEnded();
            const OwnProgram::Got got = program_.ReadLine(line, Clock::now() + pollInterval);
            if (got != OwnProgram::Got::Nothing) {
                return got;
            }
            if (hasEnded) {
                return OwnProgram::Got::End;
            }
        }
        return OwnProgram::Got::Nothing;
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
    if (Interruption() != 0) {
        return 128 + Interruption();
    }
    printer.Print(CheckName::NothingLeft, CheckNothingLeft(servers, end));
    return printer.ExitStatus();
}

}  // namespace plate_host
