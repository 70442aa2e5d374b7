// road-clip: draws a video of a road, and writes the true plates and simulated readings of an engine.

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/clip/drawing.h"
#include "tools/clip/readings.h"
#include "tools/clip/traffic.h"
#include "tools/clip/video_writer.h"

namespace {

using nlohmann::ordered_json;
using namespace road_clip;

struct Options {
    std::filesystem::path folder;
    double seconds = roundSeconds;
    std::uint64_t seed = 1;
    int width = 1280;
    int height = 720;
    int framesPerSecond = 25;
    int still = -1;
    bool withoutVideo = false;
};

const char* Describe(Manner manner) {
    switch (manner) {
        case Manner::Goes:
            return "goes";
        case Manner::ComesAndStops:
            return "comes, stops for a while, goes on";
        case Manner::ComesAndTurnsOff:
            return "comes, leaves the picture at the side";
        case Manner::Comes:
            break;
    }
    return "comes";
}

double Rounded(double value) {
    return std::round(value * 100) / 100;
}

ordered_json DescribeTruth(const Options& options, const std::vector<Vehicle>& vehicles, const PlateTracks& frames) {
    ordered_json list = ordered_json::array();
    for (std::size_t i = 0; i < vehicles.size(); ++i) {
        ordered_json places = ordered_json::array();
        std::size_t readable = 0;
        for (std::size_t frame = 0; frame < frames.size(); ++frame) {
            if (!frames[frame][i]) {
                continue;
            }
            ordered_json corners = ordered_json::array();
            for (const Pixel& corner : frames[frame][i]->corners) {
                corners.push_back({Rounded(corner.x), Rounded(corner.y)});
            }
            places.push_back({{"frame", frame}, {"corners", corners}, {"readable", frames[frame][i]->readable}});
            readable += frames[frame][i]->readable ? 1U : 0U;
        }
        if (readable > 0) {
            list.push_back({{"plate", vehicles[i].plate},
                            {"looks", KindOf(vehicles[i].design).name},
                            {"does", Describe(vehicles[i].manner)},
                            {"first_frame", places.front()["frame"]},
                            {"last_frame", places.back()["frame"]},
                            {"places", places}});
        }
    }
    return {{"width", options.width},
            {"height", options.height},
            {"frames_per_second", options.framesPerSecond},
            {"frames", frames.size()},
            {"seed", options.seed},
            {"corner_order", "top left, bottom left, top right, bottom right"},
            {"vehicles", list}};
}

ordered_json DescribeReadings(const std::vector<std::vector<Reading>>& readings) {
    ordered_json frames = ordered_json::array();
    for (const std::vector<Reading>& frame : readings) {
        ordered_json plates = ordered_json::array();
        for (const Reading& reading : frame) {
            plates.push_back(
                {{"text", reading.text}, {"confidence", Rounded(reading.confidenceSum)}, {"corners", reading.corners}});
        }
        frames.push_back(plates.empty() ? ordered_json::object() : ordered_json{{"plates", plates}});
    }
    return {{"frames", frames}};
}

/// One frame per line, so that people can read the script.
void WriteScript(const std::filesystem::path& file, const ordered_json& script) {
    std::ofstream stream(file);
    stream << "{\"frames\": [";
    const char* separator = "\n";
    for (const ordered_json& frame : script["frames"]) {
        stream << separator << frame.dump();
        separator = ",\n";
    }
    stream << "\n]}\n";
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write \"" + file.string() + "\"");
    }
}

void WriteJson(const std::filesystem::path& file, const ordered_json& value) {
    std::ofstream stream(file);
    stream << value.dump() << '\n';
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write \"" + file.string() + "\"");
    }
}

/// When each plate can be read, for the evaluation of events and for reports.
void WriteTable(const std::filesystem::path& file, const ordered_json& truth) {
    const auto framesPerSecond = truth["frames_per_second"].get<double>();
    std::ofstream stream(file);
    stream << "clip\tplate\tfirst_s\tlast_s\n";
    for (const ordered_json& vehicle : truth["vehicles"]) {
        std::vector<double> seconds;
        for (const ordered_json& place : vehicle["places"]) {
            if (place["readable"].get<bool>()) {
                seconds.push_back(place["frame"].get<double>() / framesPerSecond);
            }
        }
        stream << "road\t" << vehicle["plate"].get<std::string>() << '\t' << seconds.front() << '\t' << seconds.back()
               << '\n';
    }
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write \"" + file.string() + "\"");
    }
}

void Run(const Options& options) {
    std::filesystem::create_directories(options.folder);
    const Camera camera(options.width, options.height);
    const std::vector<Vehicle> vehicles = MakeTraffic(options.seed, options.seconds);
    const int frameCount = static_cast<int>(std::lround(options.seconds * options.framesPerSecond));
    const auto secondOf = [&](int frame) { return static_cast<double>(frame) / options.framesPerSecond; };

    PlateTracks plates;
    for (int frame = 0; frame < frameCount; ++frame) {
        plates.push_back(ViewPlates(vehicles, secondOf(frame), camera, options.width, options.height));
    }
    const auto readings = MakeReadings(options.seed, vehicles, plates);
    WriteScript(options.folder / "script.json", DescribeReadings(readings));

    Painter painter(options.width, options.height, options.seed);
    if (options.still >= 0) {
        painter.Paint(vehicles, secondOf(options.still));
        painter.SavePicture(options.folder / ("frame-" + std::to_string(options.still) + ".png"));
    }
    if (!options.withoutVideo) {
        VideoWriter video(options.folder / "road.mp4", options.width, options.height, options.framesPerSecond);
        for (int frame = 0; frame < frameCount; ++frame) {
            painter.Paint(vehicles, secondOf(frame));
            video.Write(painter.Pixels(), painter.Stride());
        }
        video.Finish();
    }
    const ordered_json truth = DescribeTruth(options, vehicles, plates);
    WriteTable(options.folder / "truth.tsv", truth);
    // Written last, so that an unfinished clip has none.
    WriteJson(options.folder / "truth.json", truth);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    Options options;
    CLI::App app{
        "Draws a video of a road (road.mp4), and writes its true plates (truth.json, truth.tsv) and the simulated "
        "readings of an "
        "engine (script.json).",
        "road-clip"};
    app.add_option("folder", options.folder, "folder for the files; created if it does not exist")->required();
    app.add_option("--seconds", options.seconds, "length of the clip in seconds")
        ->check(CLI::Range(8.0, 600.0))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "seed of the random numbers; the same seed makes the same clip")
        ->capture_default_str();
    const auto even = CLI::Validator(
        [](const std::string& text) { return (text.back() - '0') % 2 == 0 ? std::string() : "must be an even number"; },
        "EVEN");
    app.add_option("--width", options.width, "width in pixels")
        ->check(CLI::Range(320, 3840) & even)
        ->capture_default_str();
    app.add_option("--height", options.height, "height in pixels")
        ->check(CLI::Range(180, 2160) & even)
        ->capture_default_str();
    app.add_option("--fps", options.framesPerSecond, "frames per second")
        ->check(CLI::Range(5, 60))
        ->capture_default_str();
    app.add_option("--still", options.still, "also write this frame as frame-N.png; the first frame is 0")
        ->check(CLI::NonNegativeNumber);
    app.add_flag("--without-video", options.withoutVideo, "do not write road.mp4");
    CLI11_PARSE(app, argumentCount, arguments);

    try {
        Run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "road-clip: %s\n", error.what());
        return 1;
    }
    return 0;
}
