#include "tools/recording/recording.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace recording {
namespace {

// Bytes that are not UTF-8 become replacement characters.
std::string Dump(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string HexOf(std::string_view bytes) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        text += {digits[byte / 16], digits[byte % 16]};
    }
    return text;
}

// Fills `bytes` to its end. Throws std::runtime_error.
void BytesFromHex(const std::string& text, char* bytes, std::size_t size) {
    if (text.size() != 2 * size) {
        throw std::runtime_error("expected " + std::to_string(2 * size) + " hexadecimal digits");
    }
    for (std::size_t index = 0; index < size; ++index) {
        unsigned value = 0;
        const char* const digits = text.data() + 2 * index;
        if (std::from_chars(digits, digits + 2, value, 16).ptr != digits + 2) {
            throw std::runtime_error("\"" + text + "\" is not hexadecimal");
        }
        bytes[index] = static_cast<char>(value);
    }
}

// The text if it is printable ASCII and NULs follow it to the end of the field.
std::optional<std::string> PlainText(std::string_view field) {
    const std::string_view text = field.substr(0, field.find('\0'));
    const bool isPlain = std::all_of(text.begin(), text.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
    if (!isPlain || field.find_first_not_of('\0', text.size()) != std::string_view::npos) {
        return std::nullopt;
    }
    return std::string(text);
}

void AddField(Json& value, const char* textKey, const char* bytesKey, std::string_view field) {
    if (const std::optional<std::string> text = PlainText(field)) {
        value[textKey] = *text;
    } else {
        value[bytesKey] = HexOf(field);
    }
}

void ReadField(const Json& value, const char* textKey, const char* bytesKey, char* field, std::size_t size) {
    if (const auto text = value.find(textKey); text != value.end()) {
        const auto& plain = text->get_ref<const std::string&>();
        if (plain.size() > size) {
            throw std::runtime_error(std::string(textKey) + " is longer than its field");
        }
        plain.copy(field, size);
    } else if (const auto bytes = value.find(bytesKey); bytes != value.end()) {
        BytesFromHex(bytes->get_ref<const std::string&>(), field, size);
    }
}

Json JsonOf(const RPLATE& plate) {
    Json value = Json::object();
    AddField(value, "text", "bytes", {plate.text, sizeof plate.text});
    if (plate.country[0] != '\0' || PlainText({plate.country, sizeof plate.country}) == std::nullopt) {
        AddField(value, "country", "country_bytes", {plate.country, sizeof plate.country});
    }
    // JSON has no infinities, and a bit pattern without a number must come back as it was.
    if (const double sum = ConfidenceSumOf(plate); std::isfinite(sum)) {
        value["confidence"] = sum;
    } else {
        value["confidence_bytes"] = HexOf({reinterpret_cast<const char*>(plate.confidenceSum), sizeof(double)});
    }
    Json corners = Json::array();
    for (const EngineCorner& corner : {plate.corner1, plate.corner2, plate.corner3, plate.corner4}) {
        corners.push_back(Json::array({corner.x, corner.y}));
    }
    value["corners"] = std::move(corners);
    return value;
}

RPLATE PlateOf(const Json& value) {
    RPLATE plate = {};
    ReadField(value, "text", "bytes", plate.text, sizeof plate.text);
    ReadField(value, "country", "country_bytes", plate.country, sizeof plate.country);
    if (const auto bytes = value.find("confidence_bytes"); bytes != value.end()) {
        BytesFromHex(bytes->get_ref<const std::string&>(), reinterpret_cast<char*>(plate.confidenceSum),
                     sizeof(double));
    } else {
        SetConfidenceSum(plate, value.at("confidence").get<double>());
    }
    const Json& corners = value.at("corners");
    std::size_t index = 0;
    for (EngineCorner* const corner : {&plate.corner1, &plate.corner2, &plate.corner3, &plate.corner4}) {
        corners.at(index).at(0).get_to(corner->x);
        corners.at(index).at(1).get_to(corner->y);
        ++index;
    }
    return plate;
}

Json JsonOf(const EngineCall& call) {
    Json value = {{"image", {call.width, call.height}}};
    if (call.region) {
        value["region"] = {call.region->left, call.region->top, call.region->right, call.region->bottom};
    }
    value["count"] = call.count;
    value["us"] = call.microseconds;
    if (call.hasThrown) {
        value["threw"] = true;
    }
    if (!call.plates.empty()) {
        Json& plates = value["plates"] = Json::array();
        for (const RPLATE& plate : call.plates) {
            plates.push_back(JsonOf(plate));
        }
    }
    return value;
}

EngineCall EngineCallOf(const Json& value) {
    EngineCall call;
    value.at("image").at(0).get_to(call.width);
    value.at("image").at(1).get_to(call.height);
    if (const auto region = value.find("region"); region != value.end()) {
        call.region = tagRECT{region->at(0).get<std::int32_t>(), region->at(1).get<std::int32_t>(),
                              region->at(2).get<std::int32_t>(), region->at(3).get<std::int32_t>()};
    }
    value.at("count").get_to(call.count);
    value.at("us").get_to(call.microseconds);
    call.hasThrown = value.value("threw", false);
    if (const auto plates = value.find("plates"); plates != value.end()) {
        for (const Json& plate : *plates) {
            call.plates.push_back(PlateOf(plate));
        }
        if (call.plates.size() > engineRecordCount) {
            throw std::runtime_error("an engine call has more than " + std::to_string(engineRecordCount) + " plates");
        }
    }
    return call;
}

Json JsonOf(const Event& event) {
    Json value = {{"event", event.value}};
    if (event.crop) {
        value["crop"] = {{"rectangle", {event.crop->left, event.crop->top, event.crop->width, event.crop->height}},
                         {"jpeg", event.crop->jpegBase64}};
    }
    return value;
}

Event EventOf(const Json& value) {
    Event event;
    event.value = value.at("event");
    if (const auto crop = value.find("crop"); crop != value.end()) {
        const Json& rectangle = crop->at("rectangle");
        event.crop = Crop{rectangle.at(0).get<std::uint32_t>(), rectangle.at(1).get<std::uint32_t>(),
                          rectangle.at(2).get<std::uint32_t>(), rectangle.at(3).get<std::uint32_t>(),
                          crop->at("jpeg").get<std::string>()};
    }
    return event;
}

Run RunOf(const Json& value) {
    Run run;
    if (const int version = value.at("recording").get<int>(); version < 1 || version > formatVersion) {
        throw std::runtime_error("the recording has format " + std::to_string(version) + "; this program reads up to " +
                                 std::to_string(formatVersion));
    }
    run.recorder = value.value("recorder", "");
    run.system = value.value("system", "");
    run.library = value.value("library", "");
    run.engine = value.value("engine", "");
    run.video = value.value("video", "");
    run.startTime = value.value("start_time", "");
    return run;
}

Channel ChannelOf(const Json& value) {
    Channel channel;
    value.at("channel").get_to(channel.number);
    value.at("settings").get_to(channel.settings);
    if (const auto area = value.find("single_area"); area != value.end()) {
        channel.singleArea = area->get<std::vector<std::int32_t>>();
        if (channel.singleArea->size() != 4) {
            throw std::runtime_error("single_area does not have four numbers");
        }
    }
    return channel;
}

Frame FrameOf(const Json& value) {
    Frame frame;
    value.at("frame").get_to(frame.number);
    value.at("channel").get_to(frame.channel);
    value.at("time_ms").get_to(frame.timeMs);
    frame.isAfterVideo = value.value("after_video", false);
    value.at("size").at(0).get_to(frame.width);
    value.at("size").at(1).get_to(frame.height);
    value.at("size").at(2).get_to(frame.size);
    if (const auto checksum = value.find("checksum"); checksum != value.end()) {
        const auto& digits = checksum->get_ref<const std::string&>();
        if (std::from_chars(digits.data(), digits.data() + digits.size(), frame.checksum, 16).ptr !=
            digits.data() + digits.size()) {
            throw std::runtime_error("\"" + digits + "\" is not a checksum");
        }
    }
    for (const Json& range : value.value("ranges", Json::array())) {
        frame.ranges.push_back({range.at(0).get<int>(), range.at(1).get<int>(), range.at(2).get<bool>()});
    }
    for (const Json& call : value.value("engine", Json::array())) {
        frame.engineCalls.push_back(EngineCallOf(call));
    }
    frame.code = value.value("code", 0);
    frame.error = value.value("error", "");
    value.at("us").get_to(frame.microseconds);
    for (const Json& event : value.value("events", Json::array())) {
        frame.events.push_back(EventOf(event));
    }
    frame.failedEvents = value.value("failed_events", std::vector<std::string>());
    return frame;
}

void ReadLine(const std::string& line, Recording& recording, bool isFirst) {
    const Json value = Json::parse(line);
    if (isFirst) {
        recording.run = RunOf(value);
    } else if (value.contains("frame")) {
        recording.frames.push_back(FrameOf(value));
    } else if (value.contains("channel")) {
        recording.channels.push_back(ChannelOf(value));
    } else if (const auto end = value.find("end"); end != value.end()) {
        recording.end = End{end->at("frames").get<std::uint64_t>(), end->at("events").get<std::uint64_t>(),
                            end->at("seconds").get<double>()};
    }
    // A later version of the same format may have other lines.
}

std::string NameOf(const std::filesystem::path& file) {
    const std::u8string text = file.u8string();
    return "\"" + std::string(text.begin(), text.end()) + "\"";
}

}  // namespace

Recording ReadRecording(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot open the recording " + NameOf(file));
    }
    Recording recording;
    std::size_t number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        // Without its line end, the last line was being written when the recorder was cut off.
        if (stream.eof()) {
            break;
        }
        try {
            ReadLine(line, recording, number == 1);
        } catch (const std::exception& error) {
            throw std::runtime_error(NameOf(file) + " is not a recording: line " + std::to_string(number) + ": " +
                                     error.what());
        }
    }
    if (number == 0 || recording.run.recorder.empty()) {
        throw std::runtime_error(NameOf(file) + " is not a recording: it has no first line");
    }
    return recording;
}

std::uint64_t ChecksumOf(const void* data, std::size_t size) {
    return XXH3_64bits(data, size);
}

std::string LineOf(const Run& run) {
    return Dump({{"recording", formatVersion},
                 {"recorder", run.recorder},
                 {"system", run.system},
                 {"library", run.library},
                 {"engine", run.engine},
                 {"video", run.video},
                 {"start_time", run.startTime}});
}

std::string LineOf(const Channel& channel) {
    Json value = {{"channel", channel.number}};
    Json& settings = value["settings"] = Json::array();
    for (const auto& [key, text] : channel.settings) {
        settings.push_back(Json::array({key, text}));
    }
    if (channel.singleArea) {
        value["single_area"] = *channel.singleArea;
    }
    return Dump(value);
}

std::string LineOf(const Frame& frame) {
    Json value = {{"frame", frame.number}, {"channel", frame.channel}, {"time_ms", frame.timeMs}};
    if (frame.isAfterVideo) {
        value["after_video"] = true;
    }
    value["size"] = {frame.width, frame.height, frame.size};
    if (frame.checksum != 0) {
        std::array<char, 17> digits{};
        std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(frame.checksum));
        value["checksum"] = digits.data();
    }
    const auto addList = [&value](const char* key, const auto& items, const auto& toJson) {
        if (!items.empty()) {
            Json& list = value[key] = Json::array();
            for (const auto& item : items) {
                list.push_back(toJson(item));
            }
        }
    };
    addList("ranges", frame.ranges, [](const RangeCall& range) {
        return Json::array({range.minimumWidth, range.maximumWidth, range.isAccepted});
    });
    addList("engine", frame.engineCalls, [](const EngineCall& call) { return JsonOf(call); });
    if (frame.code != 0) {
        value["code"] = frame.code;
        value["error"] = frame.error;
    }
    value["us"] = frame.microseconds;
    addList("events", frame.events, [](const Event& event) { return JsonOf(event); });
    addList("failed_events", frame.failedEvents, [](const std::string& step) { return Json(step); });
    return Dump(value);
}

std::string LineOf(const End& end) {
    return Dump({{"end", {{"frames", end.frames}, {"events", end.events}, {"seconds", end.seconds}}}});
}

}  // namespace recording
