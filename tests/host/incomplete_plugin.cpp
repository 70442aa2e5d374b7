// A library without one of the three exports.
#include <cstdint>

extern "C" __attribute__((visibility("default"))) std::int32_t InitializeModule(void*) {
    return 0;
}

extern "C" __attribute__((visibility("default"))) void FinalizeModule() {}
