/// Small videos in files, made with FFmpeg's libraries.
#pragma once

#include <string>

namespace host_test {

struct VideoTraits {
    std::string codec = "ffv1";
    std::string pixelFormat = "yuv420p";
    int width = 64;
    int height = 48;
    int frames = 5;
    int rateNumerator = 25;
    int rateDenominator = 1;
    bool indexFirst = false;   ///< for an MP4: the index precedes the pictures
    int firstFrameNumber = 0;  ///< the time stamp of the first frame, in frames
    int turnedClockwise = 0;   ///< degrees by which a player must turn the pictures
    bool white = false;        ///< all samples of all planes have their largest value
    bool fullRange = false;    ///< marked so
    bool interlaced = false;   ///< the lower field is white in all planes
};

/// Writes a video with the planes of MakePlane, in the container that the file extension selects. Throws on failure.
void WriteVideo(const std::string& path, const VideoTraits& traits);

}  // namespace host_test
