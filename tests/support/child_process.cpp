#include "tests/support/child_process.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace test_support {

namespace {

constexpr std::chrono::seconds deadline{120};

}  // namespace

void ChildProcess::Pump(const std::function<bool()>& isDone, const char* what) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!isDone()) {
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error(std::string("no ") + what + "; output: " + Output() + "; errors: " + Errors());
        }
        PumpOnce();
    }
}

void ChildProcess::WriteInput(const std::string& bytes) {
    pendingInput_ += bytes;
    Pump([this] { return pendingInput_.empty(); }, "room for the input");
}

// A process that has closed its streams writes nothing more.
void ChildProcess::WaitForText(const std::string& stream, const std::string& text, const char* what) {
    const auto isThere = [&stream, &text] { return stream.find(text) != std::string::npos; };
    Pump([&] { return isThere() || StreamsHaveEnded(); }, what);
    if (!isThere()) {
        throw std::runtime_error(std::string("no ") + what + "; output: " + Output() + "; errors: " + Errors());
    }
}

void ChildProcess::WaitForOutput(const std::string& text) {
    WaitForText(finished_.output, text, "output");
}

void ChildProcess::WaitForErrors(const std::string& text) {
    WaitForText(finished_.errors, text, "line on standard error");
}

Finished ChildProcess::Wait() {
    CloseInput();
    return WaitWithOpenInput();
}

Finished ChildProcess::WaitWithOpenInput() {
    Pump([this] { return HasEnded(); }, "end of the process");
    Pump([this] { return StreamsHaveEnded(); }, "end of the streams");
    return finished_;
}

std::vector<std::string> ChildProcess::OwnVariablesWith(const EnvironmentChanges& changes) {
    std::vector<std::string> variables = OwnVariables();
    for (const auto& [name, value] : changes) {
        std::erase_if(variables, [&start = name](const std::string& text) { return text.starts_with(start + "="); });
        if (value) {
            variables.push_back(name + "=" + *value);
        }
    }
    return variables;
}

}  // namespace test_support
