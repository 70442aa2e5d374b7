/// The names of a detector's settings, for the setters of IAsyncAdjuster, each with its type; a value of another type
/// is refused with ErrorCode::RefusedSetting. Every number is accepted: ranges are not checked.
#pragma once

namespace OKM8 {
namespace Analytics {
namespace SettingKey {

constexpr char Id[] = "id";                        ///< text, shown in log lines
constexpr char Name[] = "name";                    ///< text, shown in log lines
constexpr char ZoneWidth[] = "zone_width";         ///< integer: largest plate width, percent of the frame's width
constexpr char ZoneWidthMin[] = "zone_width_min";  ///< integer: smallest plate width, percent of the frame's width
constexpr char UseArea[] = "use_area";             ///< boolean: search only the area below
constexpr char AreaLeft[] = "area_left";           ///< integer, percent of the frame; so are the next three
constexpr char AreaTop[] = "area_top";
constexpr char AreaRight[] = "area_right";
constexpr char AreaBottom[] = "area_bottom";
constexpr char ResultReady[] = "result_ready";         ///< boolean: report a vehicle before it leaves; see the next two
constexpr char ResultWaitTime[] = "result_wait_time";  ///< integer: seconds after which it is reported
constexpr char ResultRecCount[] = "result_rec_count";  ///< integer: readings after which it is reported
constexpr char UseHalfCadr[] = "use_half_cadr";        ///< boolean: the camera sends fields of half height

/// All of them.
constexpr const char* All[] = {UseHalfCadr,   Id,         Name,      UseArea,      AreaLeft,    AreaTop,
                               AreaRight,     AreaBottom, ZoneWidth, ZoneWidthMin, ResultReady, ResultWaitTime,
                               ResultRecCount};

}  // namespace SettingKey
}  // namespace Analytics
}  // namespace OKM8
