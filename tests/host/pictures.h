/// Pictures and streams to play.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace host_test {

/// Returns a plane of a picture with a different pattern for every frame.
inline std::vector<std::uint8_t> MakePlane(int width, int height, int frame, int plane) {
    std::vector<std::uint8_t> bytes;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            bytes.push_back(static_cast<std::uint8_t>(16 + (x * 3 + y * 5 + frame * 7 + plane * 11) % 220));
        }
    }
    return bytes;
}

/// Returns a whole 4:2:0 picture, one plane after the other; for odd sizes the chroma planes are rounded up.
inline std::vector<std::uint8_t> MakeI420(int width, int height, int frame) {
    std::vector<std::uint8_t> bytes = MakePlane(width, height, frame, 0);
    for (int plane = 1; plane <= 2; ++plane) {
        const std::vector<std::uint8_t> chroma = MakePlane((width + 1) / 2, (height + 1) / 2, frame, plane);
        bytes.insert(bytes.end(), chroma.begin(), chroma.end());
    }
    return bytes;
}

inline std::string Y4mFrame(int width, int height, int frame) {
    const std::vector<std::uint8_t> picture = MakeI420(width, height, frame);
    return "FRAME\n" + std::string(picture.begin(), picture.end());
}

inline std::string Y4mHeaderLine(int width, int height, const std::string& rest = " F25:1 Ip A1:1 C420jpeg") {
    return "YUV4MPEG2 W" + std::to_string(width) + " H" + std::to_string(height) + rest + "\n";
}

inline std::string Y4mStream(int width, int height, int frames) {
    std::string stream = Y4mHeaderLine(width, height);
    for (int frame = 0; frame < frames; ++frame) {
        stream += Y4mFrame(width, height, frame);
    }
    return stream;
}

}  // namespace host_test
