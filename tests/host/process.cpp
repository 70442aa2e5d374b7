#include "tests/host/process.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <system_error>

#include "tools/host/system.h"

namespace host_test {
namespace {

constexpr std::chrono::seconds deadline{120};

}  // namespace

void HostProcess::Pump(const std::function<bool()>& isDone, const char* what) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!isDone()) {
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error(std::string("no ") + what + "; output: " + output_ + "; errors: " + errors_);
        }
        PumpOnce();
    }
}

void HostProcess::WriteInput(const std::string& bytes) {
    pendingInput_ += bytes;
    Pump([this] { return pendingInput_.empty(); }, "room for the input");
}

// A process that has closed its streams says nothing more, however long the wait.
void HostProcess::WaitForText(const std::string& stream, const std::string& text, const char* what) {
    const auto isThere = [&stream, &text] { return stream.find(text) != std::string::npos; };
    Pump([&] { return isThere() || StreamsHaveEnded(); }, what);
    if (!isThere()) {
        throw std::runtime_error(std::string("no ") + what + "; output: " + output_ + "; errors: " + errors_);
    }
}

void HostProcess::WaitForOutput(const std::string& text) {
    WaitForText(output_, text, "output");
}

void HostProcess::WaitForErrors(const std::string& text) {
    WaitForText(errors_, text, "line on standard error");
}

Finished HostProcess::Wait() {
    CloseInput();
    return WaitWithOpenInput();
}

Finished HostProcess::WaitWithOpenInput() {
    Finished finished;
    Pump([this, &finished] { return HasEnded(finished); }, "end of the process");
    Pump([this] { return StreamsHaveEnded(); }, "end of the streams");
    finished.output = output_;
    finished.errors = errors_;
    return finished;
}

Finished RunHost(const std::vector<std::string>& arguments, const std::string& input, LeaksAllowed leaks) {
    HostProcess::Start start{.arguments = arguments};
    if (leaks == LeaksAllowed::Yes) {
        start.environment.emplace_back("ASAN_OPTIONS", "detect_leaks=0");
    }
    HostProcess process(start);
    process.WriteInput(input);
    return process.Wait();
}

TemporaryFolder::TemporaryFolder() {
    std::random_device random;
    std::filesystem::path folder;
    do {
        folder = std::filesystem::temp_directory_path() / ("plate_host_test_" + std::to_string(random()));
    } while (!std::filesystem::create_directory(folder));
    path_ = plate_host::ToText(folder);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(plate_host::ToPath(path_), ignored);
}

std::string TemporaryFolder::Path(const std::string& name) const {
    return plate_host::ToText((plate_host::ToPath(path_) / plate_host::ToPath(name)).make_preferred());
}

std::string TemporaryFolder::Write(const std::string& name, const std::string& bytes) const {
    std::ofstream file(plate_host::ToOpenPath(Path(name)), std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (file.fail()) {
        throw std::runtime_error("cannot write " + Path(name));
    }
    return Path(name);
}

std::string TemporaryFolder::MakeFolder(const std::string& name) const {
    std::filesystem::create_directory(plate_host::ToPath(Path(name)));
    return Path(name);
}

std::string TemporaryFolder::Copy(const std::string& from, const std::string& name) const {
    std::filesystem::copy_file(plate_host::ToPath(from), plate_host::ToPath(Path(name)));
    return Path(name);
}

}  // namespace host_test
