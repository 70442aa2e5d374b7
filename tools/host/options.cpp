#include "tools/host/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <sstream>
#include <system_error>

#include "tools/host/console.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"
#include "tools/host/video_reader.h"

namespace plate_host {
namespace {

constexpr int largestChannelCount = 256;

constexpr char description[] = "Plays a video through a licence-plate detector library, as a surveillance host would.";

constexpr char mainFooter[] = R"(
Examples:
  plate-host play gate.mp4
  plate-host play gate.mp4 --set id=7 --set use_area=true --set area_left=20 --set area_right=80
  ffmpeg -i gate.mp4 -f yuv4mpegpipe - | plate-host play -
  plate-host info

"plate-host play --help" tells more about playing.

Exit status: 0 the run went to its end; 1 the library broke a rule of the contract (for example, it did not give a
buffer back), or the output could not be written; 2 the run could not be carried out; 130 or 143 interrupted.)";

constexpr char playFooter[] = R"(
Every event is one line of JSON on standard output:
  {"channel":0,"event":"event","time":MS,"arguments":{KEY:VALUE,...},
   "track":[{"x":..,"y":..,"width":..,"height":..,"time":MS},...]}
The arguments stand in the order in which the library set them; "track" is null where an event carries none. Bytes that
are no UTF-8 are shown as U+FFFD. Progress, the library's log lines and the summary go to standard error.

Times are milliseconds of presentation time in the video, from its start (in a Y4M stream: frame number x 1000 / frame
rate, which is 25 where the stream names none), and never those of the clock; so an event's time tells where in the
video it stands. --realtime paces the frames and leaves their times as they are.

Frames are planar 4:2:0 with 8 bits, or luminance alone from a mono Y4M stream, in full size; an odd last column or row
is cut off.

A snapshot is named after the channel, the number and time of the event and the plate's text. It shows the frame that
the event tells of, as long as the library holds that frame when it raises the event, which it does for plates. One
that cannot be written does not end the run, but its exit status is 1.

A setting's value is tried as what it looks like (integer, true or false, number, text) and then as anything else that
it can be read as, until the detector takes it.

A Y4M stream comes through a pipe of the Command Prompt as it is, and is spoilt by one of Windows PowerShell.)";

void AddPaths(CLI::App& command, PluginPaths& paths) {
    command
        .add_option("--plugin", paths.library,
                    std::string("The library to load [") + LibraryFileName() + " beside this program]")
        ->type_name("PATH");
    command
        .add_option("--engine", paths.engine,
                    std::string("The engine to bind it to [") + EngineFileName() + " beside this program]")
        ->type_name("PATH");
}

struct RawPlayOptions {
    std::vector<std::string> settings;
    std::string area;
};

void AddPlay(CLI::App& app, PlayOptions& options, RawPlayOptions& raw) {
    CLI::App* const play = app.add_subcommand("play", "Play a video and print the events");
    play->add_option(
            "video", options.video,
            std::string("A file or an address, or - for a Y4M stream on standard input (reads ") + VideoSupport() + ")")
        ->required()
        ->type_name("");
    AddPaths(*play, options.paths);
    play->add_option("--set", raw.settings, "A setting of the detectors; may be given many times")
        ->type_name("key=value")
        ->allow_extra_args(false);
    play->add_option("--channels", options.channels, "Detectors to play the video through, side by side [1]")
        ->type_name("N")
        ->check(CLI::Range(1, largestChannelCount));
    play->add_option("--single", raw.area,
                     "Hand frames in one by one, with this area (percent of the frame) and a frame-done call-back")
        ->type_name("x,y,w,h");
    play->add_flag("--realtime", options.realtime, "Keep the frames to the video's own pace");
    play->add_option("--frames", options.frames, "Stop after this many frames of the video")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    play->add_option("--snapshots", options.snapshots,
                     "Write a PNG of every event's frame into this folder, with plate, text and track drawn in")
        ->type_name("DIR");
    play->footer(playFooter);
}

void AddInfo(CLI::App& app, InfoOptions& options) {
    CLI::App* const info = app.add_subcommand("info", "Print what the library answers to and which settings it takes");
    AddPaths(*info, options.paths);
}

bool LooksLikeSetting(const std::string& word) {
    const std::size_t equals = word.find('=');
    return equals != std::string::npos && equals != 0 &&
           std::all_of(word.begin(), word.begin() + static_cast<std::ptrdiff_t>(equals), [](unsigned char character) {
               return std::islower(character) != 0 || std::isdigit(character) != 0 || character == '_';
           });
}

// "--set a=1 b=2" is the same as "--set a=1 --set b=2".
std::vector<std::string> SpreadSettings(const std::vector<std::string>& given) {
    std::vector<std::string> words;
    bool amongSettings = false;
    for (std::size_t index = 0; index < given.size(); ++index) {
        const std::string& word = given[index];
        const bool isValue = index > 0 && given[index - 1] == "--set";
        if (amongSettings && !isValue && LooksLikeSetting(word)) {
            words.emplace_back("--set");
        } else if (!isValue) {
            amongSettings = word == "--set";
        }
        words.push_back(word);
    }
    std::reverse(words.begin(), words.end());  // the order that the parser expects
    return words;
}

}  // namespace

OKM8::FrameArea ParseArea(const std::string& text) {
    std::array<int32_t, 4> numbers{};
    const char* next = text.data();
    const char* const end = next + text.size();
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        const auto [stop, error] = std::from_chars(next, end, numbers[index]);
        const bool isLast = index + 1 == numbers.size();
        if (error != std::errc() || (isLast ? stop != end : stop == end || *stop != ',')) {
            throw Failure("\"" + OneLine(text) + "\" is no area: x,y,w,h in percent is wanted");
        }
        next = isLast ? stop : stop + 1;
    }
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

Options ParseOptions(const std::vector<std::string>& words) {
    Options options;
    RawPlayOptions raw;
    CLI::App app(description, "plate-host");
    app.allow_windows_style_options(false);  // a path may begin with a slash
    app.set_version_flag("--version", std::string("plate-host " PLATE_HOST_VERSION " (") + VideoSupport() + ")");
    app.require_subcommand(1);
    app.footer(mainFooter);
    AddPlay(app, options.play, raw);
    AddInfo(app, options.info);
    try {
        app.parse(SpreadSettings(words));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            throw Failure(OneLine(error.what()) + " (see plate-host --help)");
        }
        std::ostringstream text;
        app.exit(error, text, text);
        if (const WriteResult written = WriteStandard(StandardStream::Output, text.str()); !written.error.empty()) {
            throw Failure("cannot write: " + written.error);
        }
        return options;
    }
    options.command = app.got_subcommand("play") ? Command::Play : Command::Info;
    for (const std::string& setting : raw.settings) {
        options.play.settings.push_back(ParseSetting(setting));
    }
    if (app.get_subcommand("play")->count("--single") != 0) {
        options.play.singleArea = ParseArea(raw.area);
    }
    return options;
}

}  // namespace plate_host
