// The engine's two functions.

#include <atomic>
#include <boost/dll/runtime_symbol_info.hpp>
#include <filesystem>

#include "engine/engine_records.h"
#include "tools/recording_engine/engine_tap.h"
#include "tools/recording_engine/forwarder.h"

#ifdef _WIN32
#define RECORDING_ENGINE_EXPORT __declspec(dllexport)
#else
#define RECORDING_ENGINE_EXPORT
#endif

namespace {

std::atomic<const EngineTap*> installedTap = nullptr;

// Created at the first call, because nothing may be loaded while this library is. Never destroyed, because other
// threads may call the engine until the process has ended.
recording_engine::Forwarder& TheForwarder() {
    static auto& forwarder =
        *new recording_engine::Forwarder(std::filesystem::absolute(boost::dll::this_line_location()));
    return forwarder;
}

}  // namespace

extern "C" RECORDING_ENGINE_EXPORT void SetEngineTap(const EngineTap* tap) {
    installedTap = tap;
}

int Recognize2(YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
    if (const EngineTap* const tap = installedTap) {
        return tap->recognise(tap->context, image, region, plates, flags);
    }
    return TheForwarder().Recognise(unused, image, region, plates, flags);
}

bool SetPlateRange(int minimumWidth, int maximumWidth) {
    if (const EngineTap* const tap = installedTap) {
        return tap->setRange(tap->context, minimumWidth, maximumWidth);
    }
    return TheForwarder().SetRange(minimumWidth, maximumWidth);
}
