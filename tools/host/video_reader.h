/// Reads videos from any source as a sequence of pictures.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/host/picture.h"

namespace plate_host {

struct ConnectionGaps {
    std::uint64_t count = 0;
    std::uint64_t milliseconds = 0;  ///< in all, from the last picture to the new connection
};

/// Used by one thread.
class VideoReader {
  public:
    virtual ~VideoReader() = default;
    /// Reads the next picture. Returns false at the end, where the video cannot be read further, and on a request to
    /// stop.
    virtual bool Read(Picture& picture) = 0;
    /// Describes the damage found in the video so far; empty for none.
    virtual std::string Damage() const = 0;
    /// An estimate of the number of pictures, if there is one.
    virtual std::optional<std::uint64_t> PictureCount() const = 0;
    /// Why packets could not be kept; empty when they could, or when none are wanted.
    virtual std::string KeepError() const { return {}; }
    /// The interruptions of a connection that was made again.
    virtual ConnectionGaps Gaps() const { return {}; }
};

/// What a video needs in order to be opened again when its connection breaks off.
struct Reconnection {
    bool isWanted = false;                           ///< for addresses; files and standard input end where they end
    std::function<void(const std::string&)> report;  ///< receives a line at each interruption and each new connection
};

/// Opens a file, an address, or a Y4M stream on standard input for "-". Throws Failure, also if an address cannot be
/// opened for the first time.
/// `keptFile`, if it is not empty, gets the video's packets as they are, in a Matroska file that can be read after a
/// crash; after each further connection to a camera a file with a number before its ending.
std::unique_ptr<VideoReader> OpenVideo(const std::string& address, const Reconnection& reconnection = {},
                                       const std::string& keptFile = {});

/// Describes the videos that this program can open, for --help and --version.
const char* VideoSupport();

}  // namespace plate_host
