#include "tools/evaluate/picture.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <system_error>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "tools/evaluate/failure.h"

namespace plate_evaluation {
namespace {

template <class Object, void (*Free)(Object**)>
struct FreeThroughPointer {
    void operator()(Object* object) const { Free(&object); }
};

struct ScalerDeleter {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

struct StreamDeleter {
    void operator()(AVIOContext* stream) const {
        av_freep(&stream->buffer);
        avio_context_free(&stream);
    }
};

using Format = std::unique_ptr<AVFormatContext, FreeThroughPointer<AVFormatContext, avformat_close_input>>;
using Codec = std::unique_ptr<AVCodecContext, FreeThroughPointer<AVCodecContext, avcodec_free_context>>;
using Packet = std::unique_ptr<AVPacket, FreeThroughPointer<AVPacket, av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, FreeThroughPointer<AVFrame, av_frame_free>>;
using Stream = std::unique_ptr<AVIOContext, StreamDeleter>;
using Scaler = std::unique_ptr<SwsContext, ScalerDeleter>;

void Require(int result) {
    if (result < 0) {
        std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
        av_strerror(result, text.data(), text.size());
        throw Failure(text.data());
    }
}

template <class Pointer>
Pointer NotNull(Pointer pointer) {
    if (pointer == nullptr) {
        throw std::bad_alloc();
    }
    return pointer;
}

/// A file's bytes and the read position. Passing bytes prevents FFmpeg from interpreting the file name as a URL.
struct Bytes {
    std::vector<std::uint8_t> all;
    std::size_t next = 0;
};

int ReadBytes(void* opaque, std::uint8_t* buffer, int size) {
    Bytes& bytes = *static_cast<Bytes*>(opaque);
    const std::size_t count = std::min(static_cast<std::size_t>(size), bytes.all.size() - bytes.next);
    if (count == 0) {
        return AVERROR_EOF;
    }
    std::memcpy(buffer, bytes.all.data() + bytes.next, count);
    bytes.next += count;
    return static_cast<int>(count);
}

std::int64_t SeekBytes(void* opaque, std::int64_t offset, int whence) {
    Bytes& bytes = *static_cast<Bytes*>(opaque);
    const auto size = static_cast<std::int64_t>(bytes.all.size());
    if ((whence & AVSEEK_SIZE) != 0) {
        return size;
    }
    const int from = whence & ~AVSEEK_FORCE;
    const std::int64_t start = from == SEEK_CUR ? static_cast<std::int64_t>(bytes.next) : from == SEEK_END ? size : 0;
    if (start + offset < 0 || start + offset > size) {
        return AVERROR(EINVAL);
    }
    bytes.next = static_cast<std::size_t>(start + offset);
    return start + offset;
}

Bytes ReadFile(const std::filesystem::path& file) {
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    Bytes bytes;
    std::array<char, 65536> part{};
    while (stream) {
        stream.read(part.data(), part.size());
        bytes.all.insert(bytes.all.end(), part.data(), part.data() + stream.gcount());
    }
    if (!stream.eof()) {
        throw Failure(std::generic_category().message(errno == 0 ? EIO : errno));
    }
    return bytes;
}

/// Decodes the first picture of the bytes.
Frame Decode(Bytes& bytes) {
    constexpr int bufferSize = 65536;
    auto* const buffer = static_cast<unsigned char*>(NotNull(av_malloc(bufferSize)));
    const Stream stream(NotNull(avio_alloc_context(buffer, bufferSize, 0, &bytes, ReadBytes, nullptr, SeekBytes)));
    AVFormatContext* opened = NotNull(avformat_alloc_context());
    opened->pb = stream.get();
    Require(avformat_open_input(&opened, nullptr, nullptr, nullptr));  // frees `opened` on failure
    const Format format(opened);
    Require(avformat_find_stream_info(format.get(), nullptr));
    const AVCodec* decoder = nullptr;
    const int index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    Require(index);

    const Codec codec(NotNull(avcodec_alloc_context3(decoder)));
    Require(avcodec_parameters_to_context(codec.get(), format->streams[index]->codecpar));
    codec->thread_count = 1;
    codec->err_recognition |= AV_EF_EXPLODE | AV_EF_CRCCHECK;
    Require(avcodec_open2(codec.get(), decoder, nullptr));
    const Packet packet(NotNull(av_packet_alloc()));
    Frame frame(NotNull(av_frame_alloc()));
    int received = AVERROR(EAGAIN);
    while (received == AVERROR(EAGAIN)) {
        const int read = av_read_frame(format.get(), packet.get());
        if (read < 0 && read != AVERROR_EOF) {
            Require(read);
        }
        if (read == AVERROR_EOF || packet->stream_index == index) {
            Require(avcodec_send_packet(codec.get(), read == AVERROR_EOF ? nullptr : packet.get()));
            received = avcodec_receive_frame(codec.get(), frame.get());
        }
        av_packet_unref(packet.get());
    }
    if (received == AVERROR_EOF) {
        throw Failure("it contains no picture");
    }
    Require(received);
    if (frame->decode_error_flags != 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0) {
        throw Failure("the picture is damaged");
    }
    return frame;
}

bool HasFullRange(const AVFrame& frame) {
    switch (frame.format) {
        case AV_PIX_FMT_YUVJ411P:
        case AV_PIX_FMT_YUVJ420P:
        case AV_PIX_FMT_YUVJ422P:
        case AV_PIX_FMT_YUVJ440P:
        case AV_PIX_FMT_YUVJ444P:
            return true;
        default:
            break;
    }
    const AVPixFmtDescriptor* const description = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    const bool isGrey = description != nullptr && description->nb_components <= 2;
    return frame.color_range == AVCOL_RANGE_JPEG || (isGrey && frame.color_range != AVCOL_RANGE_MPEG);
}

/// A converter that interpolates the colour of every pixel, with colour samples centred between their pixels, and
/// without the approximations that are meant for video.
Scaler MakeConverter(const AVFrame& frame) {
    Scaler scaler(NotNull(sws_alloc_context()));
    const auto set = [&scaler](const char* name, std::int64_t value) {
        Require(av_opt_set_int(scaler.get(), name, value, 0));
    };
    set("srcw", frame.width);
    set("srch", frame.height);
    set("src_format", frame.format);
    set("dstw", frame.width);
    set("dsth", frame.height);
    set("dst_format", AV_PIX_FMT_BGR24);
    set("sws_flags", SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_BITEXACT);
    const int* const coefficients = sws_getCoefficients(frame.colorspace);
    constexpr int one = 1 << 16;
    // Fails only for formats without a range, such as RGB, which need no conversion of it.
    sws_setColorspaceDetails(scaler.get(), coefficients, HasFullRange(frame) ? 1 : 0, coefficients, 1, 0, one, one);
    Require(sws_init_context(scaler.get(), nullptr, nullptr));
    return scaler;
}

}  // namespace

Picture ReadPicture(const std::filesystem::path& file) {
    // Exceptions report what is wrong with a picture.
    static const bool isQuiet = [] {
        av_log_set_level(AV_LOG_QUIET);
        return true;
    }();
    static_cast<void>(isQuiet);

    Bytes bytes = ReadFile(file);
    const Frame frame = Decode(bytes);
    const Scaler scaler = MakeConverter(*frame);
    // The converter may write past the end of a row.
    const Frame converted(NotNull(av_frame_alloc()));
    converted->format = AV_PIX_FMT_BGR24;
    converted->width = frame->width;
    converted->height = frame->height;
    Require(av_frame_get_buffer(converted.get(), 0));
    Require(
        sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, converted->data, converted->linesize));

    Picture picture;
    picture.width = frame->width;
    picture.height = frame->height;
    picture.pixels.resize(picture.Stride() * static_cast<std::size_t>(picture.height));
    for (int row = 0; row < picture.height; ++row) {
        std::memcpy(picture.pixels.data() + picture.Stride() * static_cast<std::size_t>(row),
                    converted->data[0] + static_cast<std::ptrdiff_t>(row) * converted->linesize[0], picture.Stride());
    }
    return picture;
}

}  // namespace plate_evaluation
