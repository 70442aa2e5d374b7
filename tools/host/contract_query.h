/// A helper for QueryContract of objects whose interfaces form a single inheritance chain.
#pragma once

#include <cstring>
#include <initializer_list>

namespace plate_host {

/// Returns true when the name is in the list; false for a null name.
inline bool IsOneOf(const char* contractName, std::initializer_list<const char*> names) {
    if (contractName == nullptr) {
        return false;
    }
    for (const char* name : names) {
        if (std::strcmp(contractName, name) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace plate_host
