#include "tools/host/video_reader.h"

#include <array>
#include <string_view>

#include "tools/host/failure.h"
#include "tools/host/ffmpeg_reader.h"
#include "tools/host/reconnecting_reader.h"
#include "tools/host/system.h"
#include "tools/host/y4m_reader.h"

namespace plate_host {
namespace {

bool HasY4mName(const std::string& address) {
    constexpr std::string_view ending = ".y4m";
    return address.size() >= ending.size() && address.ends_with(ending) && address.find("://") == std::string::npos;
}

// Only a regular file can be read again from its start.
bool BeginsAsY4m(const std::string& address) {
    if (!IsRegularFile(address)) {
        return false;
    }
    const std::unique_ptr<ByteSource> source = OpenByteSource(address);
    std::array<char, y4mMagic.size()> start{};
    std::size_t have = 0;
    while (have < start.size()) {
        const std::size_t count = source->Read(start.data() + have, start.size() - have);
        if (count == 0) {
            return false;
        }
        have += count;
    }
    return std::string_view(start.data(), start.size()) == y4mMagic;
}

}  // namespace

std::unique_ptr<VideoReader> OpenVideo(const std::string& address, const Reconnection& reconnection,
                                       const std::string& keptFile) {
    if (address == "-" || HasY4mName(address) || BeginsAsY4m(address)) {
        if (!keptFile.empty()) {
            throw Failure("the frames of a Y4M stream are not kept, because they are not compressed: keep the stream");
        }
        return std::make_unique<Y4mReader>(OpenByteSource(address), address == "-" ? "standard input" : address);
    }
    if (reconnection.isWanted && address.find("://") != std::string::npos && !address.starts_with("file:")) {
        return std::make_unique<ReconnectingReader>(address, reconnection.report, keptFile);
    }
    return OpenFfmpegVideo(address, keptFile);
}

const char* VideoSupport() {
    return SupportedFormats();
}

}  // namespace plate_host
