/// A recording: what a run gave to the library and the engine, and what both returned. README.md describes the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/engine_records.h"

namespace recording {

using Json = nlohmann::ordered_json;

/// Of the file's format; a reader refuses a higher one.
inline constexpr int formatVersion = 1;

/// The recorder of a recording that was made beside the engine, in a foreign host. It has no settings and no events.
inline constexpr const char* engineRecorder = "engine";

/// What was run. Paths and texts as the recorder knows them; empty where it does not.
struct Run {
    std::string recorder;   ///< "plate-host 1.2.3", or engineRecorder
    std::string system;     ///< "linux" or "windows"
    std::string library;    ///< path
    std::string engine;     ///< path
    std::string video;      ///< path or address
    std::string startTime;  ///< UTC, "2026-01-31T12:00:00Z"
};

/// A detector and its settings.
struct Channel {
    int number = 0;
    std::vector<std::pair<std::string, std::string>> settings;  ///< in the order in which they were set
    std::optional<std::vector<std::int32_t>> singleArea;        ///< x, y, width, height in percent, for single calls
};

/// A call of SetPlateRange.
struct RangeCall {
    int minimumWidth = 0;  ///< pixels
    int maximumWidth = 0;
    bool isAccepted = false;

    friend bool operator==(const RangeCall&, const RangeCall&) = default;
};

/// A call of Recognize2.
struct EngineCall {
    std::uint32_t width = 0;  ///< of the image, in pixels
    std::uint32_t height = 0;
    std::optional<tagRECT> region;
    int count = 0;                   ///< what the engine returned
    std::vector<RPLATE> plates;      ///< the records that it wrote; what is not read of a record is zero
    std::uint64_t microseconds = 0;  ///< how long the call took
    bool hasThrown = false;          ///< an exception left the engine
};

/// A part of the frame of an event, to show.
struct Crop {
    std::uint32_t left = 0;  ///< in pixels of the frame
    std::uint32_t top = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::string jpegBase64;  ///< a JPEG file
};

/// An event as the host prints it.
struct Event {
    Json value;  ///< "channel", "event", "time", "arguments", "track"
    std::optional<Crop> crop;
};

/// A frame that was passed to a detector, and all that came of it.
struct Frame {
    int channel = 0;
    std::uint64_t number = 0;   ///< among the channel's frames, from 0
    std::uint64_t timeMs = 0;   ///< its time stamp
    bool isAfterVideo = false;  ///< one of the empty frames that follow a video
    std::uint32_t width = 0;    ///< pixels
    std::uint32_t height = 0;
    std::uint32_t size = 0;      ///< of its data, in bytes
    std::uint64_t checksum = 0;  ///< XXH3, 64 bits, of its data; 0 where it is unknown
    std::vector<RangeCall> ranges;
    std::vector<EngineCall> engineCalls;  ///< none for a frame that the library refused
    std::int32_t code = 0;                ///< what the detector returned
    std::string error;                    ///< its text; empty without an error
    std::uint64_t microseconds = 0;       ///< how long the detector took, the engine included
    std::vector<Event> events;            ///< raised while the frame was handled
    std::vector<std::string>
        failedEvents;  ///< for each event that was begun and not raised: the step at which it failed
};

/// The sums at the end of a run.
struct End {
    std::uint64_t frames = 0;
    std::uint64_t events = 0;
    double seconds = 0.0;
};

struct Recording {
    Run run;
    std::vector<Channel> channels;
    std::vector<Frame> frames;  ///< in the order in which they were finished; those of a channel in their order
    std::optional<End> end;     ///< missing when the recorder was cut off; what was written before is complete
};

/// Reads a whole recording. A torn last line is left out. Throws std::runtime_error, whose text names the file and the
/// line.
Recording ReadRecording(const std::filesystem::path& file);

/// XXH3, 64 bits.
std::uint64_t ChecksumOf(const void* data, std::size_t size);

/// Conversion of the records of the file, one line each, without its end.
std::string LineOf(const Run& run);
std::string LineOf(const Channel& channel);
std::string LineOf(const Frame& frame);
std::string LineOf(const End& end);

}  // namespace recording
