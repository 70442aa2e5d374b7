#include "tests/reference/engine/windows_unload.h"

#include <windows.h>

#include <stdexcept>

namespace reading_engine_test {

OtherEngine::OtherEngine() : library_(LoadLibraryW(VEXLANE_OTHER_ENGINE)) {
    const FARPROC found =
        library_ == nullptr ? nullptr : GetProcAddress(static_cast<HMODULE>(library_), "?SetPlateRange@@YA_NHH@Z");
    if (found == nullptr) {
        throw std::runtime_error("the engine cannot be loaded");
    }
    setRange_ = reinterpret_cast<bool (*)(int, int)>(reinterpret_cast<void*>(found));
}

void OtherEngine::Unload() const {
    FreeLibrary(static_cast<HMODULE>(library_));
}

}  // namespace reading_engine_test
