// A library without one of the three exports.
#include <cstdint>

#include "tests/host/export.h"

extern "C" HOST_TEST_EXPORT std::int32_t InitializeModule(void*) {
    return 0;
}

extern "C" HOST_TEST_EXPORT void FinalizeModule() {}
