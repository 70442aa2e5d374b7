#include "tests/host/test_engine.h"

extern "C" __attribute__((visibility("default"))) const char* TestEngineName() {
    return TEST_ENGINE_NAME;
}
