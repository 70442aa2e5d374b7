#include "tests/support/fake_processes.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "platform/clock.h"
#include "platform/last_error.h"
#include "platform/process.h"
#include "tests/support/allocation_count.h"

namespace fake_processes {

namespace {

constexpr std::uint64_t handleBase = 0x100000000;
constexpr std::uint32_t firstProcessId = 0x1234;
constexpr std::uint32_t invalidHandleError = 6;
constexpr std::uint32_t ownProcessId = 0x1000;
constexpr std::uint32_t forkedChildId = 0x1001;

struct State {
    std::mutex mutex;
    std::vector<platform::ProcessEntry> processes;
    std::string firstEntryName = "[System Process]";
    std::uint32_t nextProcessId = firstProcessId;
    std::uint32_t startError = 0;
    std::uint32_t terminateError = 0;
    std::uint32_t openError = 0;
    std::uint32_t listError = 0;
    std::vector<std::string> journal;
    std::function<void(const std::string&)> onOperation;
    std::atomic<std::uint32_t> currentProcess = ownProcessId;
    std::chrono::milliseconds clockAhead{0};
    std::function<void()> afterScan;
    int readingsLeft = 0;  // of the clock, until afterScan is called; 0 outside a scan
};

State& TheState() {
    // Never destroyed: the library's static destructors still end a process.
    static State& state = *new State;
    return state;
}

// Records an operation at once; calls the action and sets its error after the lock is released, because the release may
// clear the last error. Must therefore be declared before that lock.
class Operation {
  public:
    Operation() = default;
    ~Operation() {
        if (tell_) {
            tell_(line_);
        }
        if (error_ != 0) {
            platform::SetLastError(error_);
        }
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    void Note(State& state, std::string journalLine) {
        line_ = std::move(journalLine);
        state.journal.push_back(line_);
        tell_ = state.onOperation;
    }

    bool Fails(std::uint32_t withError) {
        error_ = withError;
        return error_ != 0;
    }

  private:
    allocation_count::WithoutFailure own_;
    std::uint32_t error_ = 0;
    std::string line_;
    std::function<void(const std::string&)> tell_;
};

bool Erase(State& state, std::uint32_t processId) {
    return std::erase_if(state.processes, [=](const auto& entry) { return entry.processId == processId; }) != 0;
}

}  // namespace

void Reset() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    state.processes.clear();
    state.firstEntryName = "[System Process]";
    state.nextProcessId = firstProcessId;
    state.startError = state.terminateError = state.openError = state.listError = 0;
    state.journal.clear();
    state.onOperation = nullptr;
    state.currentProcess = ownProcessId;
    state.clockAhead = {};
    state.afterScan = nullptr;
}

void SetForkedChild(bool isChild) {
    TheState().currentProcess = isChild ? forkedChildId : ownProcessId;
}

std::uint32_t AddForeignProcess(const std::string& name) {
    const std::lock_guard lock(TheState().mutex);
    TheState().processes.push_back({TheState().nextProcessId, name});
    return TheState().nextProcessId++;
}

void Kill(std::uint32_t processId) {
    const std::lock_guard lock(TheState().mutex);
    Erase(TheState(), processId);
}

void SetFirstEntryName(const std::string& name) {
    const std::lock_guard lock(TheState().mutex);
    TheState().firstEntryName = name;
}

void FailStart(std::uint32_t error) {
    const std::lock_guard lock(TheState().mutex);
    TheState().startError = error;
}

void FailTerminate(std::uint32_t error) {
    const std::lock_guard lock(TheState().mutex);
    TheState().terminateError = error;
}

void FailOpen(std::uint32_t error) {
    const std::lock_guard lock(TheState().mutex);
    TheState().openError = error;
}

void FailList(std::uint32_t error) {
    const std::lock_guard lock(TheState().mutex);
    TheState().listError = error;
}

std::vector<std::uint32_t> Running() {
    const std::lock_guard lock(TheState().mutex);
    std::vector<std::uint32_t> running;
    for (const auto& entry : TheState().processes) {
        running.push_back(entry.processId);
    }
    return running;
}

std::vector<std::string> Journal() {
    const std::lock_guard lock(TheState().mutex);
    return TheState().journal;
}

std::vector<std::string> JournalOf(const std::string& operation) {
    std::vector<std::string> matching = Journal();
    std::erase_if(matching, [&](const std::string& line) { return !line.starts_with(operation); });
    return matching;
}

void OnOperation(std::function<void(const std::string& line)> action) {
    const std::lock_guard lock(TheState().mutex);
    TheState().onOperation = std::move(action);
}

void SetClockAhead(std::chrono::milliseconds ahead) {
    const std::lock_guard lock(TheState().mutex);
    TheState().clockAhead = ahead;
}

void AfterNextScan(std::function<void()> action) {
    const std::lock_guard lock(TheState().mutex);
    TheState().afterScan = std::move(action);
    TheState().readingsLeft = 0;
}

}  // namespace fake_processes

namespace platform {

using fake_processes::Operation;
using fake_processes::State;
using fake_processes::TheState;

std::uint32_t CurrentProcessId() {
    return TheState().currentProcess;
}

bool StartProcess(const std::string& commandLine, std::uint32_t creationFlags, std::uint32_t showWindow,
                  ProcessInformation& started) {
    State& state = TheState();
    Operation operation;
    const std::lock_guard lock(state.mutex);
    operation.Note(state, "start " + commandLine + " flags=" + std::to_string(creationFlags) +
                              " show=" + std::to_string(showWindow));
    if (operation.Fails(state.startError)) {
        return false;
    }
    const std::uint32_t id = state.nextProcessId++;
    state.processes.push_back({id, commandLine});
    started = {fake_processes::handleBase + id, 0, id, 0};
    return true;
}

bool TerminateProcess(SystemHandle process, std::uint32_t exitCode) {
    State& state = TheState();
    Operation operation;
    const std::lock_guard lock(state.mutex);
    const auto id = static_cast<std::uint32_t>(process);
    operation.Note(state, "terminate " + std::to_string(id) + " code=" + std::to_string(exitCode));
    if (operation.Fails(state.terminateError)) {
        return false;
    }
    return (process != 0 && fake_processes::Erase(state, id)) || !operation.Fails(fake_processes::invalidHandleError);
}

SystemHandle OpenProcess(std::uint32_t access, bool inheritable, std::uint32_t processId) {
    State& state = TheState();
    Operation operation;
    const std::lock_guard lock(state.mutex);
    operation.Note(state, "open " + std::to_string(processId) + " access=" + std::to_string(access) +
                              " inherit=" + std::to_string(inheritable ? 1 : 0));
    state.readingsLeft = 2;
    return operation.Fails(state.openError) ? 0 : fake_processes::handleBase + processId;
}

std::vector<ProcessEntry> ListProcesses() {
    State& state = TheState();
    Operation operation;
    const std::lock_guard lock(state.mutex);
    operation.Note(state, "list");
    if (operation.Fails(state.listError)) {
        return {};
    }
    std::vector<ProcessEntry> list = {{0, state.firstEntryName}};
    list.insert(list.end(), state.processes.begin(), state.processes.end());
    return list;
}

std::int64_t MicrosecondsSinceEpoch() {
    const allocation_count::WithoutFailure own;
    State& state = TheState();
    std::function<void()> afterScan;
    {
        const std::lock_guard lock(state.mutex);
        if (state.readingsLeft != 0 && --state.readingsLeft == 0) {
            afterScan.swap(state.afterScan);
        }
    }
    if (afterScan) {
        afterScan();
    }
    const std::lock_guard lock(state.mutex);
    constexpr std::chrono::sys_days start = std::chrono::year(2020) / 2 / 29;
    return std::chrono::microseconds(start.time_since_epoch() + state.clockAhead).count();
}

boost::posix_time::ptime LocalTimeAt(std::int64_t microsecondsSinceEpoch) {
    return boost::posix_time::ptime({1970, 1, 1}) + boost::posix_time::microseconds(microsecondsSinceEpoch);
}

}  // namespace platform
