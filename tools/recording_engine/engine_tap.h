/// What the recording engine exports besides the engine's two functions, and the names of these in every engine.
#pragma once

#include "engine/engine_records.h"

/// Functions to call in place of an engine's; several threads may call them at once.
struct EngineTap {
    void* context;
    int (*recognise)(void* context, IMG* image, tagRECT* region, RPLATE* plates, int flags);
    bool (*setRange)(void* context, int minimumWidth, int maximumWidth);
};

/// Makes the recording engine pass every call to the tap and do nothing else; null ends that. The tap is not copied.
/// REQUIRES: no other thread calls the engine.
extern "C" void SetEngineTap(const EngineTap* tap);

namespace engine_names {

inline constexpr char setTap[] = "SetEngineTap";
#ifdef _WIN32
inline constexpr char recognise[] = "?Recognize2@@YAHPEAUYUV420_IMG@@PEAUIMG@@PEAUtagRECT@@PEAURPLATE@@H@Z";
inline constexpr char setRange[] = "?SetPlateRange@@YA_NHH@Z";
#else
inline constexpr char recognise[] = "_Z10Recognize2P10YUV420_IMGP3IMGP7tagRECTP6RPLATEi";
inline constexpr char setRange[] = "_Z13SetPlateRangeii";
#endif

}  // namespace engine_names
