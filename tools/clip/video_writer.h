/// Writes pictures as an H.264 video in an MP4 file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace road_clip {

/// Throws std::runtime_error for every failure. One thread at a time.
class VideoWriter {
  public:
    VideoWriter(const std::filesystem::path& file, int width, int height, int framesPerSecond);
    ~VideoWriter();

    /// Writes a picture of 4 bytes per pixel: blue, green, red, unused.
    void Write(const std::uint8_t* pixels, int stride);

    /// Writes the frames that the encoder has buffered, and the end of the file.
    void Finish();

    /// The name of the encoder in use.
    std::string EncoderName() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace road_clip
