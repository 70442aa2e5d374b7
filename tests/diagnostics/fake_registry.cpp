#include "tests/diagnostics/fake_registry.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>

#include "tests/support/allocation_count.h"

namespace fake_registry {

namespace {

using platform::RegistryHandle;
using platform::RegistryHive;

constexpr std::uint32_t notFound = 2;
constexpr std::uint32_t invalidHandle = 6;
constexpr std::uint32_t moreData = 234;

struct Hive {
    std::uint32_t blockedStatus = 0;
    std::set<std::string> keys;
    std::map<std::string, std::string> values;
};

struct State {
    Hive machine;
    Hive user;
    std::vector<std::string> journal;
};

State& TheState() {
    static State state;
    return state;
}

Hive& HiveOf(RegistryHive hive) {
    return hive == RegistryHive::LocalMachine ? TheState().machine : TheState().user;
}

const char* NameOf(RegistryHive hive) {
    return hive == RegistryHive::LocalMachine ? "machine" : "user";
}

// Handles: 1 is a key of the machine hive, 2 one of the user hive.
constexpr RegistryHandle machineKey = 1;
constexpr RegistryHandle userKey = 2;

RegistryHandle HandleOf(RegistryHive hive) {
    return hive == RegistryHive::LocalMachine ? machineKey : userKey;
}

const char* NameOf(RegistryHandle key) {
    return key == machineKey ? "machine" : key == userKey ? "user" : "none";
}

void Note(const char* operation, RegistryHive hive, const char* path, std::uint32_t access) {
    std::array<char, 16> mask = {};
    std::snprintf(mask.data(), mask.size(), "%X", static_cast<unsigned>(access));
    TheState().journal.push_back(std::string(operation) + " " + NameOf(hive) + " " + path + " " + mask.data());
}

}  // namespace

void Reset() {
    TheState() = {};
}

void AddKey(RegistryHive hive, const std::string& path) {
    HiveOf(hive).keys.insert(path);
}

void SetValue(RegistryHive hive, const std::string& name, const std::string& bytes) {
    HiveOf(hive).values[name] = bytes;
}

void Block(RegistryHive hive, std::uint32_t status) {
    HiveOf(hive).blockedStatus = status;
}

std::vector<std::string> Journal() {
    return TheState().journal;
}

}  // namespace fake_registry

namespace platform {

std::uint32_t OpenRegistryKey(RegistryHive hive, const char* path, std::uint32_t access, RegistryHandle& key) {
    const allocation_count::WithoutFailure own;
    using namespace fake_registry;
    Note("open", hive, path, access);
    const Hive& opened = HiveOf(hive);
    if (opened.blockedStatus != 0) {
        return opened.blockedStatus;
    }
    if (!opened.keys.contains(path)) {
        return notFound;
    }
    key = HandleOf(hive);
    return 0;
}

std::uint32_t CreateRegistryKey(RegistryHive hive, const char* path, std::uint32_t access, RegistryHandle& key) {
    const allocation_count::WithoutFailure own;
    using namespace fake_registry;
    Note("create", hive, path, access);
    Hive& made = HiveOf(hive);
    if (made.blockedStatus != 0) {
        return made.blockedStatus;
    }
    made.keys.insert(path);
    key = HandleOf(hive);
    return 0;
}

std::uint32_t QueryRegistryValue(RegistryHandle key, const char* name, void* buffer, std::uint32_t& size) {
    const allocation_count::WithoutFailure own;
    using namespace fake_registry;
    TheState().journal.push_back(std::string("query ") + NameOf(key) + " " + name + " " + std::to_string(size));
    if (key != machineKey && key != userKey) {
        return invalidHandle;
    }
    const auto& values = (key == machineKey ? TheState().machine : TheState().user).values;
    const auto found = values.find(name);
    if (found == values.end()) {
        return notFound;
    }
    const std::uint32_t capacity = size;
    size = static_cast<std::uint32_t>(found->second.size());
    if (size > capacity) {
        return moreData;
    }
    std::memcpy(buffer, found->second.data(), found->second.size());
    return 0;
}

void CloseRegistryKey(RegistryHandle key) {
    const allocation_count::WithoutFailure own;
    fake_registry::TheState().journal.push_back(std::string("close ") + fake_registry::NameOf(key));
}

}  // namespace platform
