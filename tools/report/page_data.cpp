#include "tools/report/page_data.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>

#include "tools/report/confusion.h"
#include "tools/report/plate_events.h"

namespace report {
namespace {

using recording::Json;

constexpr std::uint64_t shortestStepMs = 200;
constexpr std::size_t maximumTrackPlaces = 40;

/// Other characters would end the element that contains the picture.
bool IsBase64(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
               (character >= '0' && character <= '9') || character == '+' || character == '/' || character == '=';
    });
}

const char* NameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Right:
            return "right";
        case Outcome::Wrong:
            return "wrong";
        case Outcome::Twice:
            return "twice";
        case Outcome::OfNone:
            return "none";
        case Outcome::Uncounted:
            return "uncounted";
        case Outcome::Missed:
            break;
    }
    return "missed";
}

/// Milliseconds, to a thousandth.
double Milliseconds(std::uint64_t microseconds, std::uint64_t count) {
    return std::round(static_cast<double>(microseconds) / static_cast<double>(count)) / 1000;
}

Json JsonOf(const Plot& plot) {
    Json rates = Json::array();
    Json means = Json::array();
    Json longest = Json::array();
    for (const PlotPoint& point : plot.points) {
        rates.push_back(point.microseconds == 0 ? Json()
                                                : Json(std::round(1e7 * static_cast<double>(point.frames) /
                                                                  static_cast<double>(point.microseconds)) /
                                                       10));
        means.push_back(point.engineCalls == 0 ? Json()
                                               : Json(Milliseconds(point.engineMicroseconds, point.engineCalls)));
        longest.push_back(point.engineCalls == 0 ? Json() : Json(Milliseconds(point.longestMicroseconds, 1)));
    }
    return {{"first", plot.firstMs},
            {"step", plot.stepMs},
            {"frames_per_second", std::move(rates)},
            {"engine_mean", std::move(means)},
            {"engine_longest", std::move(longest)}};
}

/// At most maximumTrackPlaces of them, the first and the last included: x, y, x, y, ...
Json PlacesOf(const std::vector<TrackPlace>& track) {
    Json places = Json::array();
    const std::size_t count = std::min(track.size(), maximumTrackPlaces);
    for (std::size_t index = 0; index < count; ++index) {
        const TrackPlace& place = track[count < 2 ? 0 : index * (track.size() - 1) / (count - 1)];
        places.push_back(place.x);
        places.push_back(place.y);
    }
    return places;
}

Json JsonOf(const PlateEvent& event, std::vector<std::string_view>& pictures) {
    Json value = {{"channel", event.channel}, {"time", event.timeMs}, {"text", event.text}};
    if (event.name != "event") {
        value["name"] = event.name;
    }
    if (!event.country.empty()) {
        value["country"] = event.country;
    }
    if (event.confidence) {
        value["confidence"] = *event.confidence;
    }
    value["frame"] = {event.frameWidth, event.frameHeight};
    if (event.plate) {
        value["plate"] = {event.plate->left, event.plate->top, event.plate->right, event.plate->bottom};
    }
    if (!event.track.empty()) {
        value["readings"] = event.track.size();
        value["from"] = event.firstMs;
        value["to"] = event.lastMs;
        value["track"] = PlacesOf(event.track);
    }
    if (event.crop != nullptr && event.crop->width != 0 && event.crop->height != 0 &&
        IsBase64(event.crop->jpegBase64)) {
        value["crop"] = {event.crop->left, event.crop->top, event.crop->width, event.crop->height};
        value["picture"] = pictures.size();
        pictures.emplace_back(event.crop->jpegBase64);
    }
    return value;
}

Json ChannelsOf(const recording::Recording& recording, const std::vector<PlateEvent>& events) {
    struct Counts {
        const recording::Channel* channel = nullptr;
        std::uint64_t frames = 0;
        std::uint64_t failed = 0;
        std::uint64_t events = 0;
        std::uint32_t width = 0;
        std::uint32_t height = 0;
    };
    std::map<int, Counts> channels;
    for (const recording::Channel& channel : recording.channels) {
        channels[channel.number].channel = &channel;
    }
    for (const recording::Frame& frame : recording.frames) {
        Counts& counts = channels[frame.channel];
        ++counts.frames;
        counts.failed += frame.code != 0;
        if (counts.width == 0) {
            counts.width = frame.width;
            counts.height = frame.height;
        }
    }
    for (const PlateEvent& event : events) {
        ++channels[event.channel].events;
    }
    Json values = Json::array();
    for (const auto& [number, counts] : channels) {
        Json value = {{"number", number},
                      {"frames", counts.frames},
                      {"failed", counts.failed},
                      {"events", counts.events},
                      {"size", {counts.width, counts.height}},
                      {"settings", Json::array()}};
        if (counts.channel != nullptr) {
            for (const auto& [key, text] : counts.channel->settings) {
                value["settings"].push_back({key, text});
            }
            if (counts.channel->singleArea) {
                value["area"] = *counts.channel->singleArea;
            }
        }
        values.push_back(std::move(value));
    }
    return values;
}

Json JsonOf(const std::map<std::string, std::uint64_t>& counts) {
    Json values = Json::array();
    for (const auto& [text, count] : counts) {
        values.push_back({text, count});
    }
    return values;
}

Json RunOf(const recording::Recording& recording) {
    std::uint64_t afterVideo = 0;
    std::uint64_t failed = 0;
    std::uint64_t engineCalls = 0;
    std::uint64_t engineMicroseconds = 0;
    std::uint64_t lastMs = 0;
    std::uint64_t events = 0;
    for (const recording::Frame& frame : recording.frames) {
        failed += frame.code != 0;
        events += frame.events.size();
        if (frame.isAfterVideo) {
            ++afterVideo;
        } else {
            lastMs = std::max(lastMs, frame.timeMs);
        }
        for (const recording::EngineCall& call : frame.engineCalls) {
            ++engineCalls;
            engineMicroseconds += call.microseconds;
        }
    }
    const recording::Run& run = recording.run;
    Json value = {{"video", run.video},
                  {"library", run.library},
                  {"engine", run.engine},
                  {"system", run.system},
                  {"recorder", run.recorder},
                  {"start_time", run.startTime},
                  {"frames", recording.frames.size()},
                  {"frames_after_video", afterVideo},
                  {"frames_failed", failed},
                  {"events", events},
                  {"video_ms", lastMs}};
    if (engineCalls != 0) {
        value["engine_ms"] = Milliseconds(engineMicroseconds, engineCalls);
    }
    if (recording.end) {
        value["seconds"] = recording.end->seconds;
    }
    return value;
}

Json LedgerOf(const std::vector<LedgerSection>& sections) {
    Json values = Json::array();
    for (const LedgerSection& section : sections) {
        Json value = {{"title", section.title}, {"lines", Json::array()}};
        for (const LedgerLine& line : section.lines) {
            value["lines"].push_back({line.label, line.count});
        }
        if (section.sumsClose) {
            value["closes"] = *section.sumsClose;
        }
        values.push_back(std::move(value));
    }
    return values;
}

Json TruthOf(const Confusion& confusion) {
    Json value = {{"vehicles", confusion.vehicles}, {"exact", confusion.exact}, {"alike", confusion.alike},
                  {"missed", confusion.missed},     {"twice", confusion.twice}, {"of_none", confusion.ofNone}};
    if (confusion.meanDelayMs) {
        value["mean_delay"] = std::round(*confusion.meanDelayMs);
    }
    Json& matches = value["matches"] = Json::array();
    for (const Match& match : confusion.matches) {
        Json entry = {{"outcome", NameOf(match.outcome)}};
        if (match.event) {
            entry["event"] = *match.event;
        }
        if (match.vehicle) {
            entry["plate"] = match.vehicle->plate;
            entry["channel"] = match.vehicle->channel.value_or(0);
            entry["from"] = match.vehicle->firstMs;
            entry["to"] = match.vehicle->lastMs;
        }
        matches.push_back(std::move(entry));
    }
    return value;
}

}  // namespace

Plot PlotOf(const std::vector<recording::Frame>& frames) {
    Plot plot;
    if (frames.empty()) {
        return plot;
    }
    const auto [first, last] = std::minmax_element(
        frames.begin(), frames.end(),
        [](const recording::Frame& left, const recording::Frame& right) { return left.timeMs < right.timeMs; });
    const std::uint64_t span = last->timeMs - first->timeMs;
    plot.firstMs = first->timeMs;
    plot.stepMs = std::max(shortestStepMs, span / maximumPlotPoints + 1);
    plot.points.resize(span / plot.stepMs + 1);
    for (const recording::Frame& frame : frames) {
        PlotPoint& point = plot.points[(frame.timeMs - plot.firstMs) / plot.stepMs];
        ++point.frames;
        point.microseconds += frame.microseconds;
        for (const recording::EngineCall& call : frame.engineCalls) {
            ++point.engineCalls;
            point.engineMicroseconds += call.microseconds;
            point.longestMicroseconds = std::max(point.longestMicroseconds, call.microseconds);
        }
    }
    return plot;
}

PageData PageDataOf(const recording::Recording& recording, const ReportExtras& extras) {
    std::map<std::string, std::uint64_t> errors;
    std::map<std::string, std::uint64_t> failedEvents;
    for (const recording::Frame& frame : recording.frames) {
        if (frame.code != 0) {
            ++errors[frame.error.empty() ? "error " + std::to_string(frame.code) : frame.error];
        }
        for (const std::string& step : frame.failedEvents) {
            ++failedEvents[step];
        }
    }
    const std::vector<PlateEvent> events = PlateEventsOf(recording);

    PageData data;
    data.value = {{"run", RunOf(recording)},
                  {"channels", ChannelsOf(recording, events)},
                  {"errors", JsonOf(errors)},
                  {"failed_events", JsonOf(failedEvents)},
                  {"ledger", LedgerOf(extras.ledger)},
                  {"notes", extras.notes},
                  {"plot", JsonOf(PlotOf(recording.frames))}};
    Json& values = data.value["events"] = Json::array();
    for (const PlateEvent& event : events) {
        values.push_back(JsonOf(event, data.pictures));
    }
    if (!extras.truth.empty()) {
        std::vector<int> channels;
        for (const Json& channel : data.value["channels"]) {
            channels.push_back(channel["number"].get<int>());
        }
        data.value["truth"] = TruthOf(Compare(events, extras.truth, channels));
    }
    return data;
}

}  // namespace report
