// A library that lacks FinalizeModule.

#include <cstdint>

#if defined(_WIN32)
#define EXPORT extern "C" __declspec(dllexport)
#else
#define EXPORT extern "C" __attribute__((visibility("default")))
#endif

EXPORT std::int32_t InitializeModule(void*);
EXPORT void* GetModule();

std::int32_t InitializeModule(void*) {
    return 0;
}

void* GetModule() {
    return nullptr;
}
