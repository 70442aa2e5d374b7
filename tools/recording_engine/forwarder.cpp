#include "tools/recording_engine/forwarder.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "platform/debug_output.h"
#include "platform/process.h"
#include "tools/recording_engine/configuration.h"
#include "tools/recording_engine/engine_tap.h"

namespace recording_engine {
namespace {

namespace fs = std::filesystem;

void Warn(const std::string& text) noexcept {
    try {
        const std::string line = "Recon64 (recording): " + text + "\n";
        std::fputs(line.c_str(), stderr);
#ifdef _WIN32
        platform::WriteDebugOutput(line.c_str());
#endif
    } catch (...) {
        // There is nowhere left to report it.
    }
}

std::string TextOf(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// UTC, "2026-01-31T12:00:00Z".
std::string TimeNow() {
    using namespace std::chrono;
    const auto now = floor<seconds>(system_clock::now());
    const auto today = floor<days>(now);
    const year_month_day date(today);
    const hh_mm_ss time(now - today);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
}

// In the name of a file.
std::string WithoutPunctuation(std::string time) {
    std::erase_if(time, [](char character) { return character == '-' || character == ':'; });
    return time;
}

template <class Function>
Function* Export(const boost::dll::shared_library& engine, const char* name) {
    return engine.has(name) ? &engine.get<Function>(name) : nullptr;
}

}  // namespace

Forwarder::Forwarder(const fs::path& ownFile) {
    try {
        self_.load(ownFile);
        Start(ownFile);
    } catch (const std::exception& error) {
        Warn(error.what());
    }
}

void Forwarder::Start(const fs::path& ownFile) {
    const std::string startTime = TimeNow();
    const fs::path folder = ownFile.parent_path();
    const fs::path file = folder / "Recon64.conf";
    std::ifstream lines(file);
    if (!lines) {
        throw std::runtime_error("cannot open \"" + TextOf(file) +
                                 "\", which names the real engine; no plates will be found");
    }
    Configuration configuration;
    try {
        configuration = ReadConfiguration(
            lines, folder, {.time = WithoutPunctuation(startTime), .processId = platform::CurrentProcessId()});
    } catch (const std::exception& error) {
        throw std::runtime_error("\"" + TextOf(file) + "\": " + error.what() + "; no plates will be found");
    }
    const std::string engine = TextOf(configuration.engine);
    if (std::error_code ignored; fs::equivalent(configuration.engine, ownFile, ignored)) {
        throw std::runtime_error("\"" + engine + "\" is the recording engine itself; no plates will be found");
    }
    try {
        namespace LoadMode = boost::dll::load_mode;
        engine_.load(configuration.engine,
                     LoadMode::rtld_now | LoadMode::rtld_local | LoadMode::load_with_altered_search_path);
    } catch (const std::exception& error) {
        throw std::runtime_error("cannot load the real engine \"" + engine + "\": " + error.what() +
                                 "; no plates will be found");
    }
    auto* const recognise = Export<decltype(::Recognize2)>(engine_, engine_names::recognise);
    auto* const setRange = Export<decltype(::SetPlateRange)>(engine_, engine_names::setRange);
    if (recognise == nullptr || setRange == nullptr) {
        throw std::runtime_error("\"" + engine + "\" is not an engine: it does not export " +
                                 (recognise == nullptr ? engine_names::recognise : engine_names::setRange) +
                                 "; no plates will be found");
    }
    recognise_ = recognise;
    setRange_ = setRange;
    try {
        recorder_ = std::make_unique<CallRecorder>(configuration.recording,
                                                   recording::Run{.recorder = "engine",
#ifdef _WIN32
                                                                  .system = "windows",
#else
                                                                  .system = "linux",
#endif
                                                                  .library = {},
                                                                  .engine = engine,
                                                                  .video = {},
                                                                  .startTime = startTime},
                                                   Warn);
    } catch (const std::exception& error) {
        Warn("\"" + TextOf(configuration.recording) + "\": " + error.what() + "; nothing is recorded");
    }
}

// Nothing here has a destructor that an exception of another compiler's runtime would skip.
int Forwarder::Recognise(YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
    if (recognise_ == nullptr) {
        return 0;
    }
    if (recorder_ == nullptr) {
        return recognise_(unused, image, region, plates, flags);
    }
    CallRecorder::Call* const call = recorder_->Begin(image, region);
    int count = 0;
    try {
        count = recognise_(unused, image, region, plates, flags);
    } catch (...) {
        recorder_->EndThrown(call);
        throw;
    }
    recorder_->End(call, count, plates);
    return count;
}

bool Forwarder::SetRange(int minimumWidth, int maximumWidth) {
    if (setRange_ == nullptr) {
        return true;
    }
    const bool isAccepted = setRange_(minimumWidth, maximumWidth);
    if (recorder_ != nullptr) {
        recorder_->AddRange(minimumWidth, maximumWidth, isAccepted);
    }
    return isAccepted;
}

}  // namespace recording_engine
