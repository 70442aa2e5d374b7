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

    /// A picture of 4 bytes a pixel: blue, green, red, unused.
    void Write(const std::uint8_t* pixels, int stride);

    /// Writes what is still held back, and the file's end.
    void Finish();

    /// The name of the encoder in use.
    std::string EncoderName() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace road_clip
