/// The clip that is built in: a car comes towards the camera for three seconds and leaves the picture.
#pragma once

#include "tools/host/picture.h"

namespace plate_host {

inline constexpr int clipFrameCount = 75;
inline constexpr int clipFrameMs = 40;
inline constexpr int clipWidth = 640;
inline constexpr int clipHeight = 480;
inline constexpr char clipPlateText[] = "UD243BA";

/// Draws a frame with colour planes. REQUIRES: 0 <= number < clipFrameCount.
Picture DrawClipFrame(int number);

}  // namespace plate_host
