#include "tools/host/snapshots.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include "sdk/plate_events.h"
#include "tools/host/failure.h"
#include "tools/host/files.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

namespace PlateKey = OKM8::Analytics::PlateKey;

constexpr std::size_t maxTextLength = 32;

std::optional<std::int32_t> NumberOf(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_number_integer()) {
        return std::nullopt;
    }
    return found->get<std::int32_t>();
}

std::string TextOf(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || !found->is_string() ? std::string() : found->get<std::string>();
}

std::optional<SnapshotBox> PlateOf(const Json& arguments) {
    const std::optional<std::int32_t> left = NumberOf(arguments, PlateKey::Left);
    const std::optional<std::int32_t> top = NumberOf(arguments, PlateKey::Top);
    const std::optional<std::int32_t> right = NumberOf(arguments, PlateKey::Right);
    const std::optional<std::int32_t> bottom = NumberOf(arguments, PlateKey::Bottom);
    if (!left || !top || !right || !bottom) {
        return std::nullopt;
    }
    return SnapshotBox{*left, *top, *right, *bottom};
}

std::int32_t MiddleOf(std::int32_t start, std::int32_t extent) {
    using Limits = std::numeric_limits<std::int32_t>;
    const std::int64_t middle = std::int64_t{start} + extent / 2;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(middle, Limits::min(), Limits::max()));
}

std::vector<SnapshotPoint> TrackOf(const Json& track) {
    std::vector<SnapshotPoint> points;
    for (const Json& point : track) {
        points.push_back({MiddleOf(point.at("x").get<std::int32_t>(), point.at("width").get<std::int32_t>()),
                          MiddleOf(point.at("y").get<std::int32_t>(), point.at("height").get<std::int32_t>())});
    }
    return points;
}

// Labels and file names must be valid UTF-8: dumping the text as JSON puts replacement characters for other bytes.
std::string ReplacedUtf8(const std::string& text) {
    return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace)).get<std::string>();
}

std::string PaddedNumber(std::uint64_t number, int digits) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%0*llu", digits, static_cast<unsigned long long>(number));
    return text.data();
}

bool IsAllowedInName(unsigned char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z') || character == '-';
}

std::string TextForName(const std::string& text) {
    std::string name;
    for (const char character : ReplacedUtf8(text)) {
        const auto byte = static_cast<unsigned char>(character);
        const bool isContinuation = (byte & 0xC0U) == 0x80U;  // of a character of several bytes
        if (!isContinuation && name.size() < maxTextLength) {
            name.push_back(IsAllowedInName(byte) ? character : '_');
        }
    }
    return name;
}

void WriteFile(const std::string& path, const std::string& bytes) {
    errno = 0;
    std::ofstream file(ToOpenPath(path), std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (file.fail()) {
        throw Failure("cannot write \"" + path + "\": " + std::generic_category().message(errno));
    }
}

}  // namespace

std::vector<SnapshotTarget> SnapshotTargetsOf(const EventRecord& event) {
    std::vector<SnapshotTarget> targets;
    for (const TargetRecord& record : event.targets) {
        SnapshotTarget target;
        target.label = OneLine(ReplacedUtf8(TextOf(record.arguments, PlateKey::Text)));
        if (const std::optional<std::int32_t> confidence = NumberOf(record.arguments, PlateKey::Confidence)) {
            target.label += (target.label.empty() ? "" : "  ") + std::to_string(*confidence) + " %";
        }
        target.plate = PlateOf(record.arguments);
        target.track = TrackOf(record.track);
        if (!target.label.empty() || target.plate || !target.track.empty()) {
            targets.push_back(std::move(target));
        }
    }
    return targets;
}

std::string SnapshotNameOf(const EventRecord& event, std::uint64_t number) {
    constexpr int numberDigits = 4;
    constexpr int timeDigits = 9;
    const std::string text =
        event.targets.empty() ? std::string() : TextOf(event.targets.front().arguments, PlateKey::Text);
    const std::uint64_t time = event.timeMs < 0 ? 0 : static_cast<std::uint64_t>(event.timeMs);
    return "channel" + std::to_string(event.channel) + "_" + PaddedNumber(number, numberDigits) + "_" +
           PaddedNumber(time, timeDigits) + "ms_" + TextForName(text.empty() ? event.name : text) + ".png";
}

SnapshotSink::SnapshotSink(std::string folder, EventSink& next, const HeldFrames& heldFrames, Console& console)
    : folder_(std::move(folder)), next_(next), heldFrames_(heldFrames), console_(console) {
    RequireSnapshotSupport();
    CreateFolder(folder_, "snapshots");
}

void SnapshotSink::OnEvent(const EventRecord& event) {
    next_.OnEvent(event);
    try {
        const std::optional<Picture> picture =
            event.timeMs < 0 ? std::nullopt : heldFrames_.Copy(event.channel, static_cast<std::uint64_t>(event.timeMs));
        const std::lock_guard lock(mutex_);
        const std::uint64_t number = ++numbers_[event.channel];
        if (!picture) {
            ++counts_.withoutFrame;
            return;
        }
        const std::string path = ToText(ToPath(folder_) / SnapshotNameOf(event, number));
        WriteFile(path, DrawSnapshot(*picture, SnapshotTargetsOf(event)));
        ++counts_.written;
    } catch (const std::exception& failure) {
        Fail(OneLine(failure.what()));
    }
}

void SnapshotSink::Fail(const std::string& error) {
    const std::lock_guard lock(mutex_);
    if (++counts_.failed == 1) {
        counts_.error = error;
        console_.Line("plate-host: " + error);
    }
}

SnapshotCounts SnapshotSink::Counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

}  // namespace plate_host
