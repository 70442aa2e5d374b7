#include "tests/sdk/slot_list.h"

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace sdk_test {

namespace {

struct Interface {
    std::string base;
    std::map<std::string, std::size_t> slots;
};

// "void *QueryContract(const char *) const" gives "QueryContract const".
std::string NameOf(const std::string& operation) {
    const std::size_t bracket = operation.find('(');
    if (bracket == std::string::npos) {
        return operation;
    }
    const std::size_t before = operation.find_last_of(" *", bracket);
    std::string name = operation.substr(before + 1, bracket - before - 1);
    if (operation.ends_with(" const")) {
        name += " const";
    }
    return name;
}

std::map<std::string, Interface> Read() {
    std::ifstream file(SDK_TEST_SLOT_LIST);
    if (!file) {
        throw std::runtime_error(std::string("cannot read ") + SDK_TEST_SLOT_LIST);
    }
    std::map<std::string, Interface> interfaces;
    Interface* current = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream words(line);
        std::string first;
        words >> first;
        if (first == "interface") {
            std::string name;
            std::string colon;
            words >> name;
            current = &interfaces[name];
            words >> colon >> current->base;
        } else if (first != "then" && current != nullptr) {
            std::string operation;
            std::getline(words >> std::ws, operation);
            current->slots[NameOf(operation)] = std::stoul(first);
        }
    }
    return interfaces;
}

const Interface& Find(const std::string& name) {
    static const std::map<std::string, Interface> interfaces = Read();
    return interfaces.at(name);
}

}  // namespace

std::size_t Slot(const std::string& interfaceName, const std::string& operation) {
    for (std::string name = interfaceName; !name.empty(); name = Find(name).base) {
        const auto& slots = Find(name).slots;
        if (const auto found = slots.find(operation); found != slots.end()) {
            return found->second;
        }
    }
    throw std::runtime_error(interfaceName + " has no slot " + operation);
}

std::size_t SlotCount(const std::string& interfaceName) {
    std::size_t count = 0;
    for (std::string name = interfaceName; !name.empty(); name = Find(name).base) {
        count += Find(name).slots.size();
    }
    return count;
}

}  // namespace sdk_test
