#include "tools/host/failure.h"
#include "tools/host/ffmpeg_reader.h"
#include "tools/host/system.h"

namespace plate_host {

std::unique_ptr<VideoReader> OpenFfmpegVideo(const std::string& address, const std::string&) {
    if (address.find("://") == std::string::npos) {
        OpenByteSource(address);  // reports a file that cannot be opened
    }
    throw Failure("cannot open \"" + address + "\": this program reads only Y4M; convert the video with: ffmpeg -i \"" +
                  address + "\" -pix_fmt yuv420p -f yuv4mpegpipe - | " + ToText(ProgramFile().filename()) + " play -");
}

const char* SupportedFormats() {
    return "Y4M";
}

}  // namespace plate_host
