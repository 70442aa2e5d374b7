// An engine that returns its own name as the text of a plate.
#include <algorithm>
#include <string_view>

#include "engine/engine_records.h"
#include "tests/host/export.h"

HOST_TEST_EXPORT int Recognize2(YUV420_IMG*, IMG*, tagRECT*, RPLATE* plates, int) {
    constexpr std::string_view name = TEST_ENGINE_NAME;
    std::copy(name.begin(), name.end(), plates->text);
    return 1;
}

#ifndef TEST_ENGINE_IS_PARTIAL
HOST_TEST_EXPORT
#endif
bool SetPlateRange(int, int) {
    return true;
}
