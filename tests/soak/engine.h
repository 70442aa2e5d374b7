/// The engine of the soak, which forwards its calls to the program that loads it.
#pragma once

#include "engine/engine_records.h"

namespace soak {

/// The functions to which the engine forwards its calls.
struct EngineCalls {
    bool (*setPlateRange)();
    int (*recognize)(const IMG& image, RPLATE* plates);
};

/// The exported function that sets them. Must be called before the first frame.
inline constexpr char setEngineCallsName[] = "SetEngineCalls";
using SetEngineCallsFunction = void(const EngineCalls* calls);

}  // namespace soak
