#include "tools/host/check_machine.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "image_transform/kernels/kernel.h"
#include "platform/registry.h"
#include "sdk/module.h"
#include "tools/host/check_system.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

using Clock = std::chrono::steady_clock;
namespace kernels = image_transform::kernels;

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

}  // namespace

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
            std::string(serverProgram) + " is running (" + ProcessesText(servers) +
                "): the library will not start its own and will not end it",
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
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(3);
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
        return {CheckState::Fails, std::string(serverProgram) + " is still running (" + ProcessesText(left) + ")",
                "end it"};
    }
    if (!end.empty()) {
        return {CheckState::Fails, "no server is left, but the process that loaded the library " + end,
                "look for what ended it in the lines above"};
    }
    return {CheckState::Ok, "no server is left, and the process that loaded the library has ended", ""};
}

}  // namespace plate_host
