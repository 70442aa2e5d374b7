/// The checked cast from a target to its binary setter.
#pragma once

#include "sdk/events.h"

namespace plate_recognition {

/// Null when the target is null or its object has no such base. The answer is part of the target. Any thread.
OKM8::IBinaryAdjuster* BinaryAdjusterOf(OKM8::Analytics::ITargetAdjuster* target);

}  // namespace plate_recognition
