#include <filesystem>
#include <system_error>

#include "tools/host/failure.h"
#include "tools/host/ffmpeg_reader.h"

namespace plate_host {

std::unique_ptr<VideoReader> OpenFfmpegVideo(const std::string& address) {
    std::error_code error;
    if (!std::filesystem::exists(address, error)) {
        throw Failure("cannot open \"" + address + "\": No such file or directory");
    }
    throw Failure("cannot open \"" + address + "\": this program reads Y4M alone");
}

const char* FfmpegVersion() {
    return "Y4M";
}

}  // namespace plate_host
