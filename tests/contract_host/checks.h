/// Checks that need no library.
#pragma once

#include "tests/contract_host/system.h"

namespace contract_host {

inline bool SameText(const char* one, const char* other) {
    if (one == nullptr || other == nullptr) {
        return one == other;
    }
    while (*one != '\0' && *one == *other) {
        ++one;
        ++other;
    }
    return *one == *other;
}

/// A copy of a text argument that outlives the call.
struct Text {
    char characters[128] = {};

    void operator=(const char* text) {
        unsigned length = 0;
        while (text != nullptr && text[length] != '\0' && length < sizeof characters - 1) {
            characters[length] = text[length];
            ++length;
        }
        characters[length] = '\0';
    }
};

/// Converts a value to a number to compare; pointers become their addresses.
template <class Value>
int64_t Number(Value value) {
    return static_cast<int64_t>(value);
}
template <class Object>
int64_t Number(Object* object) {
    return reinterpret_cast<int64_t>(object);
}
inline int64_t Number(decltype(nullptr)) {
    return 0;
}

template <class Actual, class Expected>
void Equal(const char* what, Actual actual, Expected expected) {
    ReportNumbers(what, Number(actual), Number(expected));
}
inline void Equal(const char* what, const char* actual, const char* expected) {
    ReportTexts(what, actual, expected);
}
inline void Equal(const char* what, const Text& actual, const char* expected) {
    ReportTexts(what, actual.characters, expected);
}

}  // namespace contract_host
