/// Reads Y4M streams: a header line, then pictures, each after a line of its own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/host/system.h"
#include "tools/host/video_reader.h"

namespace plate_host {

inline constexpr std::string_view y4mMagic = "YUV4MPEG2";

/// The contents of a stream's header line.
struct Y4mHeader {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t rateNumerator = 25;  ///< frames in `rateDenominator` seconds; 25 per second if the stream has no rate
    std::uint32_t rateDenominator = 1;
    bool colour = true;  ///< false for only luminance
};

/// Parses a header line without its line end. Throws Failure with the reason.
Y4mHeader ParseY4mHeader(std::string_view line);

/// A frame's presentation time in whole milliseconds, rounded down.
std::uint64_t Y4mFrameTime(const Y4mHeader& header, std::uint64_t frameNumber);

/// Reads a stream up to its end or to the first damage.
class Y4mReader final : public VideoReader {
  public:
    /// Reads the header line. Throws Failure with the stream's name.
    Y4mReader(std::unique_ptr<ByteSource> source, const std::string& name);

    bool Read(Picture& picture) override;
    std::string Damage() const override { return damage_; }
    std::optional<std::uint64_t> PictureCount() const override;

  private:
    enum class LineResult { Complete, End, Incomplete };

    LineResult ReadLine(std::string& line);
    std::size_t ReadBytes(std::uint8_t* target, std::size_t size);
    bool FillBuffer();
    bool ReportDamage(const std::string& reason);

    std::unique_ptr<ByteSource> source_;
    std::vector<std::uint8_t> buffer_;
    std::size_t bufferBegin_ = 0;
    std::size_t bufferEnd_ = 0;
    std::size_t headerSize_ = 0;
    Y4mHeader header_;
    std::vector<std::uint8_t> oddPicture_;  ///< a whole picture, if it is larger than the returned one
    std::uint64_t frameNumber_ = 0;
    std::string damage_;
};

}  // namespace plate_host
