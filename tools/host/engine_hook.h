/// A place between the library and the engine, to record the calls or to take the engine's place.
#pragma once

#include "engine/engine_records.h"

namespace plate_host {

/// The functions of a loaded engine.
struct EngineFunctions {
    decltype(::Recognize2)* recognise = nullptr;
    decltype(::SetPlateRange)* setRange = nullptr;
};

/// Called instead of the engine's functions, on the thread that calls them; several threads at once. `engine` is the
/// real one; its functions are null when none is loaded. An exception of the engine passes through to the library; on
/// Windows one of another compiler does not run the destructors on its way.
class EngineHook {
  public:
    virtual ~EngineHook() = default;
    virtual int Recognise(const EngineFunctions& engine, IMG* image, tagRECT* region, RPLATE* plates, int flags) = 0;
    virtual bool SetRange(const EngineFunctions& engine, int minimumWidth, int maximumWidth) = 0;
};

}  // namespace plate_host
