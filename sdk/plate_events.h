/// The events that a detector raises, the keys of their arguments, and the layout of the track of readings.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace OKM8 {
namespace Analytics {

namespace EventName {
constexpr char Plate[] = "event";
constexpr char PlateLost[] = "NUMBER_LOST";       ///< contains the same as "event"; not raised at present
constexpr char DebugFigures[] = "DEBUG_FIGURES";  ///< not raised at present
}  // namespace EventName

/// Arguments of the event itself, set as objects.
namespace EventKey {
constexpr char Targets[] = "targets";  ///< the list that CreateTargetEnumerator returned
constexpr char Image[] = "image";      ///< not set by this library
}  // namespace EventKey

/// Values of a plate event's target: texts (UTF-8) by SetStringValue, numbers by SetIntValue, "all_tracks" by
/// SetBinaryValue.
namespace PlateKey {
constexpr char Text[] = "lp_wnum";             ///< the plate's text
constexpr char CharacterCount[] = "char_num";  ///< number of UTF-16 units of the text
constexpr char Country[] = "country_code";     ///< ISO 3166-1 alpha-3; empty if the engine reports none
constexpr char Confidence[] = "confidence";    ///< 0 to 100
constexpr char Direction[] = "direction";      ///< always 0
constexpr char Left[] = "lpf_x1";              ///< pixels of the full frame; so are the next three
constexpr char Top[] = "lpf_y1";
constexpr char Right[] = "lpf_x3";
constexpr char Bottom[] = "lpf_y3";
constexpr char AreaLeft[] = "area_left";  ///< percent of the frame, only if an area is set; so are the next three
constexpr char AreaTop[] = "area_top";
constexpr char AreaRight[] = "area_right";
constexpr char AreaBottom[] = "area_bottom";
constexpr char AllTracks[] = "all_tracks";  ///< a TrackPointList
}  // namespace PlateKey

/// Values of a "DEBUG_FIGURES" target.
namespace FiguresKey {
constexpr char Figures[] = "figures";  ///< 32 bytes, by SetBinaryValue
constexpr char Key[] = "figures_key";  ///< text
}  // namespace FiguresKey

/// One reading of the reported plate.
struct TrackPoint {
    int32_t x;  ///< the plate's top left corner in pixels of the frame as received, also with "use_half_cadr"
    int32_t y;
    int32_t width;   ///< from that corner to the bottom left one: about 0 for an upright plate
    int32_t height;  ///< the vertical distance of these two corners
    /// Microseconds, UTC; 1970-01-01 00:00:00 is TrackTimeEpoch. Three values are not times: INT64_MAX is plus
    /// infinity, INT64_MIN minus infinity, INT64_MAX - 1 "no time".
    int64_t time;
    uint8_t flag;  ///< always 0
    uint8_t fill[7];
};

/// The value of "all_tracks": a view into the library's memory, valid until Raise returns.
struct TrackPointList {
    const TrackPoint* first;
    const TrackPoint* last;     ///< one past the last point
    const TrackPoint* storage;  ///< end of the list's storage
};

/// 1970-01-01 00:00:00 on the clock of TrackPoint::time, which counts from the start of the Julian day numbers:
/// day 2,440,588 in microseconds.
constexpr int64_t TrackTimeEpoch = INT64_C(2440588) * 86400 * 1000000;

static_assert(sizeof(TrackPoint) == 32, "entries of 32 bytes");
static_assert(offsetof(TrackPoint, time) == 16, "time after the rectangle");
static_assert(offsetof(TrackPoint, flag) == 24, "flag after the time");
static_assert(sizeof(TrackPointList) == 24, "three pointers");

}  // namespace Analytics
}  // namespace OKM8
