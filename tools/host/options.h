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
    std::uint64_t frames = 0;  ///< 0 for all
    bool reconnect = true;     ///< an address is opened again when its connection breaks off
    bool drain = true;         ///< empty frames follow the video, so that vehicles in view at its end are reported
    std::string snapshots;     ///< a folder for snapshots of the events; empty for none
};

struct InfoOptions {
    PluginPaths paths;
};

enum class Command { None, Play, Info };

struct Options {
    Command command = Command::None;  ///< None after help or version has been printed
    PlayOptions play;
    InfoOptions info;
};

/// Parses the arguments after the program's name; prints help and version. Throws Failure.
Options ParseOptions(const std::vector<std::string>& words);

/// Parses "x,y,width,height". Throws Failure.
OKM8::FrameArea ParseArea(const std::string& text);

}  // namespace plate_host
