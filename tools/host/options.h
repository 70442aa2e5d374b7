/// The command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sdk/detector.h"
#include "tools/host/plugin.h"
#include "tools/host/settings.h"

namespace plate_host {

struct PlayOptions {
    std::string video;
    PluginPaths paths;
    std::vector<Setting> settings;
    int channels = 1;
    std::optional<OKM8::FrameArea> singleArea;  ///< frames are passed to ReceiveSingle with this area
    bool realtime = false;
    std::uint64_t frames = 0;    ///< 0 for all
    bool reconnect = true;       ///< an address is opened again when its connection breaks off
    bool drain = true;           ///< empty frames follow the video, so that vehicles in view at its end are reported
    std::string snapshots;       ///< a folder for snapshots of the events; empty for none
    std::string recording;       ///< a file for the recording of the run; empty for none
    bool keepsFrames = false;    ///< beside the recording, as the video's packets
    std::string report;          ///< a folder for the report; empty for none
    std::string truth;           ///< for the report: a table of the vehicles in the video; empty for none
    bool printsSummary = false;  ///< as a last line of JSON, to standard output
};

struct InfoOptions {
    PluginPaths paths;
};

struct ReplayOptions {
    std::string recording;
    PluginPaths paths;
    std::vector<Setting> settings;  ///< after the recorded ones
    int times = 1;
    int copies = 1;      ///< of each channel, at the same time
    std::string output;  ///< a file for a recording of the first replay; empty for none
    bool printsEvents = false;
    bool json = false;
};

struct ExplainOptions {
    std::string recording;
    std::optional<double> seconds;  ///< when the vehicle was in view
    std::string plate;              ///< empty for any
    std::optional<int> channel;
    std::string output;  ///< for cut: the new recording
};

struct ReportOptions {
    std::string recording;
    std::string truth;   ///< a table of the vehicles in the video; empty for none
    std::string output;  ///< a file, or a folder; empty for a file beside the recording
};

struct CheckOptions {
    PluginPaths paths;
    bool json = false;
    int timeout = 54;       ///< of the whole check, in seconds; a third of it for each step
    bool isInside = false;  ///< makes the checks that load the library, for another process that prints them
};

struct ValidateOptions {
    PluginPaths paths;
    int level = 1;
    std::uint64_t seed = 1;
    double minutes = 60;
    int timeLimit = 20;  ///< of one case, in seconds
    std::string pattern;
    bool json = false;
    bool list = false;
    std::string runCase;     ///< in the process of one case, its sentence; empty otherwise
    std::string caseFolder;  ///< of that case
};

enum class Command { None, Play, Info, Check, Validate, Replay, Explain, Cut, Report };

struct Options {
    Command command = Command::None;  ///< None after help or version has been printed
    PlayOptions play;
    InfoOptions info;
    ReplayOptions replay;
    ExplainOptions explain;  ///< of explain and cut
    ReportOptions report;
    CheckOptions check;
    ValidateOptions validate;
};

/// Parses the arguments after the program's name; prints help and version. Throws Failure.
Options ParseOptions(const std::vector<std::string>& words);

/// Parses "x,y,width,height". Throws Failure.
OKM8::FrameArea ParseArea(const std::string& text);

}  // namespace plate_host
