#include "tests/reference/engine/windows_unload.h"

#include <windows.h>

#include <stdexcept>

namespace reading_engine_test {

OtherEngine::OtherEngine() : library(LoadLibraryW(VEXLANE_OTHER_ENGINE)) {
    const FARPROC found =
        library == nullptr ? nullptr : GetProcAddress(static_cast<HMODULE>(library), "?SetPlateRange@@YA_NHH@Z");
    if (found == nullptr) {
        throw std::runtime_error("the engine cannot be loaded");
    }
    setRange = reinterpret_cast<bool (*)(int, int)>(reinterpret_cast<void*>(found));
}

void OtherEngine::Unload() const {
    FreeLibrary(static_cast<HMODULE>(library));
}

}  // namespace reading_engine_test
