/// The answer to QueryContract, for objects whose interfaces stand in one line.
#pragma once

#include <cstring>
#include <initializer_list>

namespace plate_host {

/// True when the name is one of those given; a null name is none.
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
