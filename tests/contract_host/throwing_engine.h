/// Declarations shared by the throwing engine and the host that drives it.
#pragma once

#include <stdint.h>

namespace contract_host {

enum class EngineFunction : int32_t { None, Recognize, SetRange };

struct ThrowingEngine {
    EngineFunction thrower;  ///< throws a Microsoft compiler's exception at each call
    bool isStationary;       ///< the plate is the same in every frame; otherwise every frame has another vehicle
    int32_t thrown;
    int32_t destroyed;
};

/// The name of the exported ThrowingEngine variable.
inline constexpr char throwingEngineName[] = "throwingEngine";

}  // namespace contract_host
