#include "tools/host/y4m_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "tools/host/console.h"
#include "tools/host/failure.h"

namespace plate_host {
namespace {

constexpr std::uint32_t maxSide = 16384;
constexpr std::uint32_t maxRate = 100000000;
constexpr std::size_t maxLineLength = 4096;
constexpr std::string_view frameMagic = "FRAME";

std::uint32_t ParseNumber(std::string_view text, std::uint32_t max, const char* what) {
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number > max) {
        throw Failure(std::string("its header has a bad ") + what + " (\"" + std::string(text) + "\")");
    }
    return number;
}

std::uint32_t ParseSide(std::string_view text, const char* what) {
    const std::uint32_t side = ParseNumber(text, maxSide, what);
    if (side < 2) {
        throw Failure(std::string("its header has a bad ") + what + " (\"" + std::string(text) + "\")");
    }
    return side;
}

void ParseRate(std::string_view text, Y4mHeader& header) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        throw Failure("its header has a bad frame rate (\"" + std::string(text) + "\")");
    }
    const std::uint32_t numerator = ParseNumber(text.substr(0, colon), maxRate, "frame rate");
    const std::uint32_t denominator = ParseNumber(text.substr(colon + 1), maxRate, "frame rate");
    if (numerator == 0 && denominator == 0) {
        return;  // "0:0" means an unknown rate
    }
    if (numerator == 0 || denominator == 0) {
        throw Failure("its header has a bad frame rate (\"" + std::string(text) + "\")");
    }
    header.rateNumerator = numerator;
    header.rateDenominator = denominator;
}

bool ParseColour(std::string_view text) {
    constexpr std::array<std::string_view, 4> variants{"420", "420jpeg", "420mpeg2", "420paldv"};
    if (text == "mono") {
        return false;
    }
    if (std::find(variants.begin(), variants.end(), text) == variants.end()) {
        throw Failure("its colour format is C" + std::string(text) + "; only 8-bit 4:2:0 and mono are supported");
    }
    return true;
}

std::size_t PictureSize(const Y4mHeader& header) {
    const std::size_t chroma = std::size_t{(header.width + 1) / 2} * ((header.height + 1) / 2);
    return std::size_t{header.width} * header.height + (header.colour ? 2 * chroma : 0);
}

}  // namespace

Y4mHeader ParseY4mHeader(std::string_view line) {
    if (!line.starts_with(y4mMagic) || (line.size() > y4mMagic.size() && line[y4mMagic.size()] != ' ')) {
        throw Failure("it does not begin with YUV4MPEG2");
    }
    if (line.ends_with('\r')) {
        throw Failure("its header ends with CR LF: a text pipe, such as PowerShell's, has changed its bytes");
    }
    Y4mHeader header;
    line.remove_prefix(y4mMagic.size());
    while (!line.empty()) {
        const std::size_t end = std::min(line.find(' '), line.size());
        const std::string_view word = line.substr(0, end);
        line.remove_prefix(std::min(end + 1, line.size()));
        if (word.empty()) {
            continue;
        }
        const std::string_view value = word.substr(1);
        switch (word.front()) {
            case 'W':
                header.width = ParseSide(value, "width");
                break;
            case 'H':
                header.height = ParseSide(value, "height");
                break;
            case 'F':
                ParseRate(value, header);
                break;
            case 'C':
                header.colour = ParseColour(value);
                break;
            default:  // interlacing, aspect ratio and comments do not affect the layout
                break;
        }
    }
    if (header.width == 0 || header.height == 0) {
        throw Failure("its header has no picture size");
    }
    return header;
}

std::uint64_t Y4mFrameTime(const Y4mHeader& header, std::uint64_t frameNumber) {
    // Whole multiples of `rateNumerator` frames are computed separately, so that no product exceeds 64 bits.
    const std::uint64_t unit = std::uint64_t{1000} * header.rateDenominator;
    return frameNumber / header.rateNumerator * unit + frameNumber % header.rateNumerator * unit / header.rateNumerator;
}

Y4mReader::Y4mReader(std::unique_ptr<ByteSource> source, const std::string& name)
    : source_(std::move(source)), buffer_(1 << 16) {
    std::string line;
    try {
        const LineResult result = ReadLine(line);
        if (Interruption() != 0) {
            return;
        }
        if (!source_->Error().empty()) {
            throw Failure(source_->Error());
        }
        if (result == LineResult::End) {
            throw Failure("it is empty");
        }
        header_ = ParseY4mHeader(line);
        if (result == LineResult::Incomplete) {
            throw Failure("its header line has no end");
        }
    } catch (const Failure& failure) {
        throw Failure("cannot read \"" + name + "\" as Y4M: " + OneLine(failure.what()));
    }
    headerSize_ = line.size() + 1;
    if (header_.width % 2 != 0 || header_.height % 2 != 0) {
        oddPicture_.resize(PictureSize(header_));
    }
}

bool Y4mReader::FillBuffer() {
    bufferBegin_ = 0;
    bufferEnd_ = source_->Read(buffer_.data(), buffer_.size());
    return bufferEnd_ != 0;
}

Y4mReader::LineResult Y4mReader::ReadLine(std::string& line) {
    line.clear();
    while (bufferBegin_ != bufferEnd_ || FillBuffer()) {
        const char next = static_cast<char>(buffer_[bufferBegin_++]);
        if (next == '\n') {
            return LineResult::Complete;
        }
        if (line.size() == maxLineLength) {
            return LineResult::Incomplete;
        }
        line.push_back(next);
    }
    return line.empty() ? LineResult::End : LineResult::Incomplete;
}

std::size_t Y4mReader::ReadBytes(std::uint8_t* target, std::size_t size) {
    std::size_t have = std::min(size, bufferEnd_ - bufferBegin_);
    std::memcpy(target, buffer_.data() + bufferBegin_, have);
    bufferBegin_ += have;
    while (have < size) {
        const std::size_t count = source_->Read(target + have, size - have);
        if (count == 0) {
            break;
        }
        have += count;
    }
    return have;
}

bool Y4mReader::ReportDamage(const std::string& reason) {
    if (Interruption() == 0) {
        damage_ = "frame " + std::to_string(frameNumber_) + " " + reason;
        if (!source_->Error().empty()) {
            damage_ += " (" + source_->Error() + ")";
        }
    }
    return false;
}

bool Y4mReader::Read(Picture& picture) {
    if (!damage_.empty() || header_.width == 0 || Interruption() != 0) {
        return false;
    }
    std::string line;
    const LineResult result = ReadLine(line);
    if (result == LineResult::End) {
        return source_->Error().empty() ? false : ReportDamage("cannot be read");
    }
    if (result == LineResult::Incomplete && (frameMagic.starts_with(line) || line.starts_with(frameMagic))) {
        return ReportDamage("is cut off");
    }
    if (result == LineResult::Incomplete || !line.starts_with(frameMagic) ||
        (line.size() > frameMagic.size() && line[frameMagic.size()] != ' ')) {
        return ReportDamage("does not begin with FRAME");
    }
    Picture next = MakePicture(header_.width & ~1u, header_.height & ~1u, header_.colour);
    const std::size_t size = PictureSize(header_);
    std::uint8_t* const target = oddPicture_.empty() ? next.bytes.get() : oddPicture_.data();
    if (ReadBytes(target, size) != size) {
        return ReportDamage("is cut off");
    }
    if (!oddPicture_.empty()) {
        const std::size_t luminance = std::size_t{header_.width} * header_.height;
        const std::size_t chromaWidth = (header_.width + 1) / 2;
        const std::size_t chroma = header_.colour ? chromaWidth * ((header_.height + 1) / 2) : 0;
        const auto chromaStride = static_cast<std::ptrdiff_t>(chromaWidth);
        const std::array<PlaneView, 3> planes{{{target, static_cast<std::ptrdiff_t>(header_.width)},
                                               {target + luminance, chromaStride},
                                               {target + luminance + chroma, chromaStride}}};
        FillPlanes(next, planes.data());
    }
    next.timeMs = Y4mFrameTime(header_, frameNumber_++);
    picture = std::move(next);
    return true;
}

std::optional<std::uint64_t> Y4mReader::PictureCount() const {
    const std::optional<std::uint64_t> size = source_->Size();
    if (!size || *size < headerSize_) {
        return std::nullopt;
    }
    return (*size - headerSize_) / (PictureSize(header_) + frameMagic.size() + 1);
}

}  // namespace plate_host
