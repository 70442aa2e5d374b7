#include "tools/host/reconnecting_reader.h"

#include <algorithm>
#include <filesystem>
#include <thread>
#include <utility>

#include "tools/host/console.h"
#include "tools/host/failure.h"
#include "tools/host/ffmpeg_reader.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds firstPause{1000};
constexpr milliseconds maxPause{30000};
// The longest wait between two checks whether the run must stop.
constexpr milliseconds waitSlice{50};

// False on a request to stop.
bool Pause(milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (Interruption() == 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(waitSlice);
    }
    return Interruption() == 0;
}

// "run.mkv", number 2: "run-2.mkv".
std::string NumberedFile(const std::string& file, std::uint64_t number) {
    if (file.empty()) {
        return file;
    }
    const std::filesystem::path path = ToPath(file);
    const std::string name = ToText(path.stem()) + "-" + std::to_string(number) + ToText(path.extension());
    return ToText(path.parent_path() / ToPath(name));
}

}  // namespace

ReconnectingReader::ReconnectingReader(std::string address, std::function<void(const std::string&)> report,
                                       std::string keptFile)
    : address_(std::move(address)),
      report_(std::move(report)),
      keptFile_(std::move(keptFile)),
      reader_(OpenFfmpegVideo(address_, keptFile_)),
      hasEnd_(reader_->PictureCount().has_value()),
      lastRead_(Clock::now()),
      pause_(firstPause) {}

bool ReconnectingReader::Read(Picture& picture) {
    for (;;) {
        if (reader_->Read(picture)) {
            picture.timeMs += offsetMs_;
            lastMs_ = picture.timeMs;
            lastRead_ = Clock::now();
            pause_ = firstPause;
            return true;
        }
        if (Interruption() != 0 || hasEnd_ || !Reconnect()) {
            return false;
        }
    }
}

// The first error is kept.
void ReconnectingReader::SetKeepError(const std::string& error) {
    keepError_ = keepError_.empty() ? error : keepError_;
}

// Tries until the address can be opened, with growing pauses; returns false on a request to stop.
bool ReconnectingReader::Reconnect() {
    const std::string damage = reader_->Damage();
    report_("the connection to \"" + address_ + "\" broke off" + (damage.empty() ? "" : ": " + OneLine(damage)));
    damage_ = damage;
    SetKeepError(KeepError());
    reader_.reset();
    while (Pause(pause_)) {
        pause_ = std::min(2 * pause_, maxPause);
        try {
            reader_ = OpenFfmpegVideo(address_, NumberedFile(keptFile_, gaps_.count + 2));
        } catch (const KeepFailure& failure) {
            SetKeepError(failure.what());
            keptFile_.clear();
            continue;
        } catch (const Failure&) {
            continue;  // the camera is still away
        }
        const auto gap = std::chrono::duration_cast<milliseconds>(Clock::now() - lastRead_).count();
        ++gaps_.count;
        gaps_.milliseconds += static_cast<std::uint64_t>(gap);
        offsetMs_ = lastMs_ + static_cast<std::uint64_t>(gap);
        damage_.clear();
        report_("connected again after " + std::to_string(gap / 1000) + " seconds");
        return true;
    }
    return false;
}

}  // namespace plate_host
