#include "tools/host/event.h"

#include <functional>
#include <limits>

namespace plate_host {

using OKM8::Analytics::TrackPoint;
using OKM8::Analytics::TrackPointList;

Json TrackTimeToJson(std::int64_t time) {
    constexpr std::int64_t plusInfinity = std::numeric_limits<std::int64_t>::max();
    if (time == plusInfinity) {
        return "infinity";
    }
    if (time == plusInfinity - 1) {
        return nullptr;
    }
    if (time == std::numeric_limits<std::int64_t>::min()) {
        return "-infinity";
    }
    // Dividing before the subtraction prevents an overflow; the epoch is a whole number of milliseconds.
    const std::int64_t milliseconds = time / 1000 - (time % 1000 < 0 ? 1 : 0);
    return milliseconds - OKM8::Analytics::TrackTimeEpoch / 1000;
}

Json TrackToJson(const TrackPointList& track) {
    const std::less<const TrackPoint*> before;
    if (before(track.last, track.first) || before(track.storage, track.last)) {
        return nullptr;
    }
    Json points = Json::array();
    for (const TrackPoint* point = track.first; before(point, track.last); ++point) {
        points.push_back({{"x", point->x},
                          {"y", point->y},
                          {"width", point->width},
                          {"height", point->height},
                          {"time", TrackTimeToJson(point->time)}});
    }
    return points;
}

std::string ToHexadecimal(const void* data, std::uint32_t size) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    const auto* const bytes = static_cast<const unsigned char*>(data);
    for (std::uint32_t index = 0; index < size; ++index) {
        text.push_back(digits[bytes[index] >> 4]);
        text.push_back(digits[bytes[index] & 15u]);
    }
    return text;
}

Json ToJson(const EventRecord& event) {
    Json line;
    line["channel"] = event.channel;
    line["event"] = event.name;
    line["time"] = event.timeMs;
    line["arguments"] = event.targets.empty() ? Json::object() : event.targets.front().arguments;
    line["track"] = event.targets.empty() ? Json() : event.targets.front().track;
    for (std::size_t index = 1; index < event.targets.size(); ++index) {
        const TargetRecord& target = event.targets[index];
        line["more_targets"].push_back({{"arguments", target.arguments}, {"track", target.track}});
    }
    if (!event.otherObjects.empty()) {
        line["objects"] = event.otherObjects;
    }
    return line;
}

std::string ToJsonLine(const EventRecord& event) {
    return ToJson(event).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace plate_host
