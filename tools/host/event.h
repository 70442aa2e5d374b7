/// An event as the library raised it, copied out of the library's memory.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sdk/plate_events.h"

namespace plate_host {

using Json = nlohmann::ordered_json;

/// The values of one target, in the order in which they were set.
struct TargetRecord {
    Json arguments = Json::object();
    Json track;  ///< an array of points; null without a track
};

struct EventRecord {
    int channel = 0;
    std::string name;
    std::int64_t timeMs = 0;
    std::vector<TargetRecord> targets;
    std::vector<std::string> otherObjects;  ///< names of attached objects other than the targets
};

/// Receives the events of all channels. Any thread.
class EventSink {
  public:
    virtual ~EventSink() = default;
    virtual void OnEvent(const EventRecord& event) = 0;
    /// Called for an event that the library began and discarded, with the step that was missing.
    virtual void OnFailedEvent(const std::string&) {}
};

/// Converts the points of a track to JSON; null for an invalid list.
Json TrackToJson(const OKM8::Analytics::TrackPointList& track);

/// Converts a time to milliseconds since 1970-01-01 00:00; a text for an infinite time, null for no time.
Json TrackTimeToJson(std::int64_t time);

/// Converts bytes to hexadecimal digits.
std::string ToHexadecimal(const void* data, std::uint32_t size);

/// Converts an event to what is printed.
Json ToJson(const EventRecord& event);

/// Returns one line with its line end. Bytes that are not valid UTF-8 become replacement characters.
std::string ToJsonLine(const EventRecord& event);

}  // namespace plate_host
