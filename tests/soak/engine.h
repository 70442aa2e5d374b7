/// The engine of the soak: it asks the program that loads it for everything.
#pragma once

#include "engine/engine_records.h"

namespace soak {

/// What the engine's functions call.
struct EngineCalls {
    bool (*setPlateRange)();
    int (*recognize)(const IMG& image, RPLATE* plates);
};

/// The exported function that sets them, before frames run.
inline constexpr char setEngineCallsName[] = "SetEngineCalls";
using SetEngineCallsFunction = void(const EngineCalls* calls);

}  // namespace soak
