#include "tests/host/test_engine.h"

#include "tests/host/export.h"

extern "C" HOST_TEST_EXPORT const char* TestEngineName() {
    return TEST_ENGINE_NAME;
}
