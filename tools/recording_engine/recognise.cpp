// The engine's two functions.

#include <atomic>

#include "engine/engine_records.h"
#include "tools/recording_engine/engine_tap.h"

#ifdef _WIN32
#define RECORDING_ENGINE_EXPORT __declspec(dllexport)
#else
#define RECORDING_ENGINE_EXPORT
#endif

namespace {

std::atomic<const EngineTap*> installedTap = nullptr;

}  // namespace

extern "C" RECORDING_ENGINE_EXPORT void SetEngineTap(const EngineTap* tap) {
    installedTap = tap;
}

int Recognize2(YUV420_IMG*, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
    const EngineTap* const tap = installedTap;
    return tap == nullptr ? 0 : tap->recognise(tap->context, image, region, plates, flags);
}

bool SetPlateRange(int minimumWidth, int maximumWidth) {
    const EngineTap* const tap = installedTap;
    return tap == nullptr || tap->setRange(tap->context, minimumWidth, maximumWidth);
}
