/// The checked cast from a target to its binary setter.
#pragma once

#include "sdk/events.h"

namespace plate_recognition {

/// Casts a target to IBinaryAdjuster. Returns null when the target is null or its object has no such base. The result
/// is part of the target's object. Any thread.
OKM8::IBinaryAdjuster* BinaryAdjusterOf(OKM8::Analytics::ITargetAdjuster* target);

}  // namespace plate_recognition
