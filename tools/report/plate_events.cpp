#include "tools/report/plate_events.h"

#include <algorithm>
#include <limits>

#include "sdk/plate_events.h"

namespace report {
namespace {

using recording::Json;
namespace PlateKey = OKM8::Analytics::PlateKey;

const Json& MemberOf(const Json& object, const char* key) {
    static const Json none;
    if (!object.is_object()) {
        return none;
    }
    const auto found = object.find(key);
    return found == object.end() ? none : *found;
}

std::string TextOf(const Json& object, const char* key) {
    const Json& member = MemberOf(object, key);
    return member.is_string() ? member.get<std::string>() : std::string();
}

std::optional<std::int64_t> NumberOf(const Json& object, const char* key) {
    const Json& member = MemberOf(object, key);
    if (!member.is_number_integer()) {
        return std::nullopt;
    }
    return member.get<std::int64_t>();
}

std::optional<std::int32_t> PixelOf(const Json& object, const char* key) {
    using Limits = std::numeric_limits<std::int32_t>;
    const std::optional<std::int64_t> number = NumberOf(object, key);
    if (!number || *number < Limits::min() || *number > Limits::max()) {
        return std::nullopt;
    }
    return static_cast<std::int32_t>(*number);
}

std::optional<PlateBox> PlateOf(const Json& arguments) {
    const std::optional<std::int32_t> left = PixelOf(arguments, PlateKey::Left);
    const std::optional<std::int32_t> top = PixelOf(arguments, PlateKey::Top);
    const std::optional<std::int32_t> right = PixelOf(arguments, PlateKey::Right);
    const std::optional<std::int32_t> bottom = PixelOf(arguments, PlateKey::Bottom);
    if (!left || !top || !right || !bottom) {
        return std::nullopt;
    }
    return PlateBox{*left, *top, *right, *bottom};
}

void AddTrack(PlateEvent& event, const Json& track) {
    std::optional<std::int64_t> first;
    std::optional<std::int64_t> last;
    for (const Json& point : track) {
        const std::optional<std::int32_t> x = PixelOf(point, "x");
        const std::optional<std::int32_t> y = PixelOf(point, "y");
        if (x && y) {
            event.track.push_back({std::int64_t{*x} + PixelOf(point, "width").value_or(0) / 2,
                                   std::int64_t{*y} + PixelOf(point, "height").value_or(0) / 2});
        }
        // The time may also be missing or a text, "infinity".
        if (const std::optional<std::int64_t> time = NumberOf(point, "time")) {
            first = std::min(first.value_or(*time), *time);
            last = std::max(last.value_or(*time), *time);
        }
    }
    event.firstMs = first.value_or(event.timeMs);
    event.lastMs = last.value_or(event.timeMs);
}

}  // namespace

std::vector<PlateEvent> PlateEventsOf(const recording::Recording& recording) {
    std::vector<PlateEvent> events;
    for (const recording::Frame& frame : recording.frames) {
        for (const recording::Event& recorded : frame.events) {
            const Json& arguments = MemberOf(recorded.value, "arguments");
            PlateEvent event;
            event.channel = frame.channel;
            event.name = TextOf(recorded.value, "event");
            event.timeMs = NumberOf(recorded.value, "time").value_or(static_cast<std::int64_t>(frame.timeMs));
            event.text = TextOf(arguments, PlateKey::Text);
            event.country = TextOf(arguments, PlateKey::Country);
            event.confidence = NumberOf(arguments, PlateKey::Confidence);
            event.plate = PlateOf(arguments);
            AddTrack(event, MemberOf(recorded.value, "track"));
            event.frameWidth = frame.width;
            event.frameHeight = frame.height;
            event.crop = recorded.crop ? &*recorded.crop : nullptr;
            events.push_back(std::move(event));
        }
    }
    return events;
}

}  // namespace report
