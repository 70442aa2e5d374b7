#include "tools/host/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <sstream>
#include <system_error>
#include <utility>

#include "tools/host/console.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"
#include "tools/host/video_reader.h"

namespace plate_host {
namespace {

constexpr int maxChannels = 256;

constexpr char description[] =
    "A host for a licence-plate detector library: plays videos through it as a surveillance host would, checks it, and "
    "records, replays and explains its runs.";

constexpr char mainFooter[] = R"(
Examples:
  plate-host play gate.mp4
  plate-host play gate.mp4 --set id=7 --set use_area=true --set area_left=20 --set area_right=80
  ffmpeg -i gate.mp4 -f yuv4mpegpipe - | plate-host play -
  plate-host info
  plate-host play gate.mp4 --report seen
  plate-host explain seen/run.vxr --time 12.5 --plate ABC123
  plate-host replay seen/run.vxr --plugin new/libvexlane.so
  plate-host check
  plate-host validate

"plate-host play --help" describes the options of play; the other commands have such a help, too.

Exit status of play and info: 0 success; 1 the library violated the contract (for example, it did not release a
buffer), or the output could not be written; 2 any other error; 130 or 143 interrupted.)";

constexpr char infoFooter[] = R"(
Example:
  plate-host info --plugin ./libvexlane.so --engine reading/libRecon64.so)";

constexpr char replayFooter[] = R"(
The engine and its server are not needed: the library gets the recorded results. The frames have the recorded sizes and
times; what they show has no effect. Each difference from the recorded events, errors and calls of the engine is a row
of a table.

A recording that was made beside the engine in a foreign host has no settings and no events: set what the host sets with
--set; the events are printed, and --record writes a recording with those settings and events, which cut and later
replays take. Its channels are the host's threads: if that host hands the frames of one camera to several threads, the
replay has other events.

If plate-Server.exe is beside the program, the library starts it, and it is not used.

Exit status: 0 the same as recorded; 1 differences; 2 any other error; 130 or 143 interrupted.

Examples:
  plate-host play gate.mp4 --record gate.vxr
  plate-host replay gate.vxr --plugin new/libvexlane.so
  plate-host replay host.vxr --set zone_width=30 --record gate.vxr
  plate-host replay gate.vxr --times 1000)";

constexpr char explainFooter[] = R"(
Without a vehicle of that time and text it says what the engine was asked and what it read then.

Exit status: 0 a vehicle was found; 1 none was found; 2 any other error.

Example:
  plate-host explain gate.vxr --time 12.5 --plate ABC123)";

constexpr char cutFooter[] = R"(
The new recording begins where no vehicle before this one is followed, and ends when its last event is due. Replay it to
see whether a library still does the same.

Example:
  plate-host cut gate.vxr --plate ABC123 --output missed.vxr
  plate-host replay missed.vxr

Exit status: 0 success; 2 any error.)";

constexpr char reportFooter[] = R"(
Writes one HTML page, which a browser shows without a network: the events with their pictures, a timeline, the speed of
the run, its settings. Without --output the page is beside the recording, under its name with ".html"; in a folder it is
"report.html".

The truth is a table with tabs between its columns, whose first line names them: plate, first_s, last_s (when a person
can read it, in seconds of the video), and optionally channel and clip (the video's name without its ending). An event
belongs to the vehicle in view whose plate is most like its text. A plate with "?" or "unreadable" is not counted.

Exit status: 0 success; 2 any error.

Example:
  plate-host report run.vxr --truth truth.tsv --output report)";

constexpr char checkFooter[] = R"(
Prints one line for each check: ok, warning or fails, the check's name, what was found, and what to do. With --json a
line is {"check":NAME,"state":"ok|warning|fails","found":TEXT,"do":TEXT}. All checks are always printed, in this order.

At the end, a clip of three seconds with the plate UD243BA, which is part of this program, is played through library,
engine and server. An engine other than the reference engine may read it differently: that is only a warning.

Exit status: 0 all ok; 1 a warning; 2 something fails; 130 or 143 interrupted.

Example:
  plate-host check --plugin ./libvexlane.so --engine reading/libRecon64.so)";

constexpr char validateFooter[] = R"(
Each case is one sentence that holds for a correct library, and runs in a process of its own. Level 1 takes some ten
seconds; level 2 adds long runs and random sequences of calls and takes a minute; level 3 goes on with random sequences
for --minutes. Each sequence has its seed in its sentence; to repeat the one of seed 17:
  plate-host validate --level 2 --seed 17 --case "seed 17 "

Each line is "ok" or "fails" with the sentence, and for a failure the reason. What the process of a failed case wrote to
standard error follows on standard error, and a summary at the end.

The engine must be the scripted engine, which plays back what a case needs. No recognition server may run: the library
would take it over.

Exit status: 0 if every case holds; 2 if one fails; 1 if the output cannot be written; 130 or 143 interrupted.

Examples:
  plate-host validate
  plate-host validate --plugin ./libvexlane.so --case "wrong data size"
  plate-host validate --level 3 --minutes 600 --json)";

constexpr char playFooter[] = R"(
Each event is printed to standard output as one line of JSON:
  {"channel":0,"event":"event","time":MS,"arguments":{KEY:VALUE,...},
   "track":[{"x":..,"y":..,"width":..,"height":..,"time":MS},...]}
The arguments are in the order in which the library set them; "track" is null for an event without a track. Bytes that
are not valid UTF-8 are printed as U+FFFD. Progress, the library's log lines and the summary go to standard error.

Times are presentation times in milliseconds from the start of the video, not clock times. In a Y4M stream the time is
frame number x 1000 / frame rate, with a rate of 25 if the stream has none. --realtime delays the frames and does not
change their times.

An address is opened again when its connection breaks off, after 1, 2, 4, ... seconds, at most 30. The times go on with
the clock; the summary says how often and how long there was no connection.

A vehicle is reported when it has left the picture or has not been read for three seconds. So that the vehicles in view
at the end of the video are reported too, four seconds of empty frames follow the video, as fast as the machine allows,
also after an interruption. The summary says what they brought; --no-drain leaves them out.

Frames are passed in full size as 8-bit planar 4:2:0, or as luminance only from a mono Y4M stream. An odd last column
or row is cut off.

The file name of a snapshot contains the channel, the number and time of the event, and the plate's text. The snapshot
shows the event's frame if the library still holds it when it raises the event, as it does for plates. If a snapshot
cannot be written, the run continues and its exit status is 1.

The value of a setting is passed as the first of these types that fits it and that the detector accepts: integer, true
or false, number, text.

On Windows, pipe a Y4M stream in the Command Prompt: the pipes of Windows PowerShell change its bytes.

Examples:
  plate-host play gate.mp4 --set zone_width_min=4 --set zone_width=15 --snapshots snapshots
  plate-host play rtsp://camera/stream --realtime --frames 1000)";

void AddLibrary(CLI::App& command, PluginPaths& paths) {
    command
        .add_option("--plugin", paths.library,
                    std::string("Library to load [") + LibraryFileName() + " in this program's folder]")
        ->type_name("PATH");
}

void AddPaths(CLI::App& command, PluginPaths& paths) {
    AddLibrary(command, paths);
    command
        .add_option("--engine", paths.engine,
                    std::string("Engine for the library [") + EngineFileName() + " in this program's folder]")
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
            std::string("File or URL, or - for a Y4M stream on standard input (supports ") + VideoSupport() + ")")
        ->required()
        ->type_name("");
    AddPaths(*play, options.paths);
    play->add_option("--set", raw.settings, "Setting of the detectors; may be repeated")
        ->type_name("key=value")
        ->allow_extra_args(false);
    play->add_option("--channels", options.channels, "Number of detectors that receive the video in parallel [1]")
        ->type_name("N")
        ->check(CLI::Range(1, maxChannels));
    play->add_option("--single", raw.area,
                     "Call ReceiveSingle with this area, in percent of the frame, and a frame-done callback")
        ->type_name("x,y,w,h");
    play->add_flag("--realtime", options.realtime, "Pass the frames at the video's own speed, not at full speed");
    play->add_option("--frames", options.frames, "Stop after this number of frames of the video")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    play->add_flag("--reconnect,!--no-reconnect", options.reconnect,
                   "Open a camera's address again when its connection breaks off, with growing pauses [on]");
    play->add_flag("--no-drain{false}", options.drain,
                   "Do not send empty frames after the video; vehicles in view at its end are then not reported");
    play->add_option("--snapshots", options.snapshots,
                     "Write each event's frame as PNG into this folder, with plate, text and track drawn in")
        ->type_name("DIR");
    play->add_option("--record", options.recording,
                     "Write what the detectors and the engine got and returned into this file, for replay and explain")
        ->type_name("FILE");
    play->add_flag(
        "--with-frames", options.keepsFrames,
        "Also keep the video's packets as they are, beside the recording under its name with \".mkv\"; after each "
        "further connection to a camera in a file with a number, \"-2.mkv\"");
    CLI::Option* const report = play->add_option("--report", options.report,
                                                 "Write a page about the run into this folder, report.html, and the "
                                                 "recording, run.vxr, unless --record names it")
                                    ->type_name("DIR");
    play->add_option("--truth", options.truth, "Compare the events of the report with the vehicles in this table")
        ->type_name("FILE")
        ->needs(report);
    play->add_flag("--json", options.printsSummary, "Print the summary as a last line of JSON, after the events");
    play->footer(playFooter);
}

void AddInfo(CLI::App& app, InfoOptions& options) {
    CLI::App* const info =
        app.add_subcommand("info", "Print the library's contracts and settings, and where it reads its debug level");
    AddPaths(*info, options.paths);
    info->footer(infoFooter);
}

void AddRecording(CLI::App& command, std::string& recording) {
    command.add_option("recording", recording, "File that play --record or the recording engine wrote")
        ->required()
        ->type_name("");
}

void AddReplay(CLI::App& app, ReplayOptions& options, RawPlayOptions& raw) {
    CLI::App* const replay =
        app.add_subcommand("replay", "Give a recording to the library again and compare the events");
    AddRecording(*replay, options.recording);
    AddLibrary(*replay, options.paths);
    replay->add_option("--set", raw.settings, "Setting of the detectors, after the recorded ones; may be repeated")
        ->type_name("key=value")
        ->allow_extra_args(false);
    replay->add_option("--times", options.times, "Replay it this often [1]")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    replay->add_option("--copies", options.copies, "Number of detectors that get each channel at the same time [1]")
        ->type_name("N")
        ->check(CLI::Range(1, maxChannels));
    replay
        ->add_option("--record", options.output,
                     "Write a recording of the replay into this file, with the settings and events of now")
        ->type_name("FILE");
    replay->add_flag("--events", options.printsEvents, "Print the events of the replay");
    replay->add_flag("--json", options.json, "Print the differences or the result as lines of JSON");
    replay->footer(replayFooter);
}

void AddVehicle(CLI::App& command, ExplainOptions& options) {
    AddRecording(command, options.recording);
    command
        .add_option("--time", options.seconds, "When the vehicle was in view, in seconds; 3 seconds more or less do")
        ->type_name("SECONDS");
    command.add_option("--plate", options.plate, "Its plate; half of the characters may differ")->type_name("TEXT");
    command.add_option("--channel", options.channel, "Look only at this channel")->type_name("N");
}

void AddExplain(CLI::App& app, ExplainOptions& options) {
    CLI::App* const explain = app.add_subcommand("explain", "Tell the life of a vehicle of a recording");
    AddVehicle(*explain, options);
    explain->footer(explainFooter);
    CLI::App* const cut =
        app.add_subcommand("cut", "Cut a recording to the frames of one vehicle, to replay it as a test");
    AddVehicle(*cut, options);
    cut->add_option("--output", options.output, "The new recording")->required()->type_name("FILE");
    cut->footer(cutFooter);
}

void AddReport(CLI::App& app, ReportOptions& options) {
    CLI::App* const report = app.add_subcommand("report", "Write a page about a recorded run");
    AddRecording(*report, options.recording);
    report->add_option("--truth", options.truth, "Compare the events with the vehicles in this table")
        ->type_name("FILE");
    report->add_option("--output", options.output, "File or existing folder for the page")->type_name("PATH");
    report->footer(reportFooter);
}

void AddCheck(CLI::App& app, CheckOptions& options) {
    CLI::App* const check =
        app.add_subcommand("check", "Check that library, engine and server work on this machine, step by step");
    AddPaths(*check, options.paths);
    check->add_flag("--json", options.json, "Print each check as one JSON object");
    check->add_option("--timeout", options.timeout, "Time limit in seconds; a third of it for each check [54]")
        ->type_name("N")
        ->check(CLI::Range(1, 3600));
    check->add_flag("--inside", options.isInside)->group("");
    check->footer(checkFooter);
}

void AddValidate(CLI::App& app, ValidateOptions& options) {
    CLI::App* const validate =
        app.add_subcommand("validate", "Check a library against its contract from outside, case by case");
    validate
        ->add_option("--plugin", options.paths.library,
                     std::string("Library to check [") + LibraryFileName() + " in this program's folder]")
        ->type_name("PATH");
    validate
        ->add_option("--engine", options.paths.engine,
                     std::string("Scripted engine [scripted-engine/") + EngineFileName() + " in this program's folder]")
        ->type_name("PATH");
    validate->add_option("--level", options.level, "Run the cases up to this level: 1, 2 or 3 [1]")
        ->type_name("N")
        ->check(CLI::Range(1, 3));
    validate->add_option("--seed", options.seed, "Seed of the first random sequence of calls [1]")->type_name("N");
    validate->add_option("--minutes", options.minutes, "Begin random sequences for this time at level 3 [60]")
        ->type_name("M")
        ->check(CLI::PositiveNumber);
    validate->add_option("--case", options.pattern, "Run only the cases whose sentence contains this text")
        ->type_name("TEXT");
    validate->add_option("--time-limit", options.timeLimit, "Seconds after which a case fails [20]")
        ->type_name("S")
        ->check(CLI::Range(1, 3600));
    validate->add_flag("--list", options.list, "Print the cases and do not run them");
    validate->add_flag("--json", options.json, "Print each line as JSON");
    // How this program starts itself.
    validate->add_option("--run-case", options.runCase)->group("");
    validate->add_option("--case-folder", options.caseFolder)->group("");
    validate->footer(validateFooter);
}

bool LooksLikeSetting(const std::string& word) {
    const std::size_t equals = word.find('=');
    return equals != std::string::npos && equals != 0 &&
           std::all_of(word.begin(), word.begin() + static_cast<std::ptrdiff_t>(equals), [](unsigned char character) {
               return std::islower(character) != 0 || std::isdigit(character) != 0 || character == '_';
           });
}

// "--set a=1 b=2" is the same as "--set a=1 --set b=2".
std::vector<std::string> ExpandSettings(const std::vector<std::string>& given) {
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
            throw Failure("\"" + OneLine(text) + "\" is not an area: expected x,y,w,h in percent");
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
    AddReplay(app, options.replay, raw);
    AddExplain(app, options.explain);
    AddInfo(app, options.info);
    AddReport(app, options.report);
    AddCheck(app, options.check);
    AddValidate(app, options.validate);
    try {
        app.parse(ExpandSettings(words));
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
    constexpr std::array commands{std::pair{"play", Command::Play},       std::pair{"replay", Command::Replay},
                                  std::pair{"explain", Command::Explain}, std::pair{"cut", Command::Cut},
                                  std::pair{"info", Command::Info},       std::pair{"report", Command::Report},
                                  std::pair{"check", Command::Check},     std::pair{"validate", Command::Validate}};
    for (const auto& [name, command] : commands) {
        if (app.got_subcommand(name)) {
            options.command = command;
        }
    }
    for (const std::string& setting : raw.settings) {
        options.play.settings.push_back(ParseSetting(setting));
        options.replay.settings.push_back(ParseSetting(setting));
    }
    if (options.play.keepsFrames && options.play.recording.empty() && options.play.report.empty()) {
        throw Failure("--with-frames needs --record or --report (see plate-host --help)");
    }
    if (app.get_subcommand("play")->count("--single") != 0) {
        options.play.singleArea = ParseArea(raw.area);
    }
    return options;
}

}  // namespace plate_host
