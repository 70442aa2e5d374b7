// An engine that finds nothing, and whose functions throw when the environment names them.

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "engine/engine_records.h"
#include "tests/plugin/throwing_engine.h"

namespace {

void ThrowIfSelected(const char* function) {
    const char* const thrower = std::getenv(throwing_engine::functionVariable);
    if (thrower == nullptr || std::strcmp(thrower, function) != 0) {
        return;
    }
    if (std::getenv(throwing_engine::otherVariable) != nullptr) {
        throw 1;
    }
    throw std::runtime_error(throwing_engine::thrownText);
}

}  // namespace

int Recognize2(YUV420_IMG*, IMG*, tagRECT*, RPLATE*, int) {
    ThrowIfSelected(throwing_engine::recognize);
    return 0;
}

bool SetPlateRange(int, int) {
    ThrowIfSelected(throwing_engine::setRange);
    return true;
}
