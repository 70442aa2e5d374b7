// A library that fails when it is initialised, as the environment variable HOST_TEST_FAULT says.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/process.h"
#include "tests/host/export.h"

extern "C" HOST_TEST_EXPORT std::int32_t InitializeModule(void*) {
    const char* const fault = std::getenv("HOST_TEST_FAULT");
    const auto is = [fault](const char* name) { return fault != nullptr && std::strcmp(fault, name) == 0; };
    if (is("print")) {
        std::fputs("{\"check\":\"library start\"}\nnull\n{\"begin\":7}\n{\"check\":1,\"state\":\"ok\"}\nno end",
                   stdout);
        std::fflush(stdout);
    }
    if (is("crash")) {
        volatile int* volatile nothing = nullptr;
        *nothing = 1;
    }
    while (is("hang")) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    platform::ProcessInformation server;
    if (is("leave a server") && !platform::StartProcess("plate-Server.exe", 0, 0, server)) {
        return 2;
    }
    return 1;
}

extern "C" HOST_TEST_EXPORT void* GetModule() {
    return nullptr;
}

extern "C" HOST_TEST_EXPORT void FinalizeModule() {}
