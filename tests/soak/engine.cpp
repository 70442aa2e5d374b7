#include "tests/soak/engine.h"

// The export list contains only the functions of every engine; this one is exported in the source.
#ifdef _WIN32
#define SOAK_EXPORT __declspec(dllexport)
#else
#define SOAK_EXPORT
#endif

namespace {

soak::EngineCalls engineCalls = {};

}  // namespace

int Recognize2(YUV420_IMG*, IMG* image, tagRECT*, RPLATE* plates, int) {
    return engineCalls.recognize(*image, plates);
}

bool SetPlateRange(int, int) {
    return engineCalls.setPlateRange();
}

extern "C" SOAK_EXPORT void SetEngineCalls(const soak::EngineCalls* calls) {
    engineCalls = *calls;
}
