// An engine that returns any number and writes all bytes of its records, and whose functions throw when the environment
// says so.

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "engine/engine_records.h"
#ifdef _WIN32
#include "tests/support/microsoft_exception.h"
#endif

namespace {

// The variable's value is the kind of the exception.
void ThrowIf(const char* variable) {
    const char* const kind = std::getenv(variable);
    if (kind == nullptr) {
        return;
    }
    if (std::strcmp(kind, "exception") == 0) {
        throw std::runtime_error("the engine has failed");
    }
    if (std::strcmp(kind, "int") == 0) {
        throw 7;
    }
#ifdef _WIN32
    static int destroyed = 0;
    microsoft_exception::Throw(&destroyed);
#endif
}

}  // namespace

int Recognize2(YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
    ThrowIf("TEST_ENGINE_RECOGNISE");
    if (unused == nullptr) {
        return -1;
    }
    for (int plate = 0; plate < engineRecordCount; ++plate) {
        std::memset(&plates[plate], flags + plate + static_cast<int>(image->width), sizeof(RPLATE));
    }
    if (region != nullptr) {
        ++region->bottom;  // an engine may use it as its own
    }
    constexpr int results[] = {0, 1, 5, 7, 2000, -1};
    return results[flags % 6];
}

bool SetPlateRange(int minimumWidth, int maximumWidth) {
    ThrowIf("TEST_ENGINE_RANGE");
    return (minimumWidth + maximumWidth) % 8 < 4;
}
