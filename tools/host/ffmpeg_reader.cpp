#include "tools/host/ffmpeg_reader.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include "tools/host/console.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

constexpr AVRational milliseconds{1, 1000};

template <class Object, void (*End)(Object**)>
struct EndThroughPointer {
    void operator()(Object* object) const { End(&object); }
};

struct EndScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

using Format = std::unique_ptr<AVFormatContext, EndThroughPointer<AVFormatContext, avformat_close_input>>;
using Codec = std::unique_ptr<AVCodecContext, EndThroughPointer<AVCodecContext, avcodec_free_context>>;
using Packet = std::unique_ptr<AVPacket, EndThroughPointer<AVPacket, av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, EndThroughPointer<AVFrame, av_frame_free>>;
using Scaler = std::unique_ptr<SwsContext, EndScaler>;

std::string ErrorText(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

/// The first thing that a container's reader has complained of. Some take a file that ends too early for an ordinary
/// end, and say so in their messages alone.
class ReaderMessages {
  public:
    static void Collect(void* source, int level, const char* format, va_list arguments) {
        if (level > AV_LOG_ERROR || !IsContainerReader(source)) {
            return;
        }
        std::array<char, 512> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        const std::lock_guard lock(mutex);
        if (first.empty()) {
            first = OneLine(text.data());
        }
    }

    static void Clear() {
        const std::lock_guard lock(mutex);
        first.clear();
    }

    static std::string First() {
        const std::lock_guard lock(mutex);
        return first;
    }

  private:
    static bool IsContainerReader(void* source) {
        if (source == nullptr) {
            return false;
        }
        const AVClass* const type = *static_cast<const AVClass* const*>(source);
        if (type == nullptr) {
            return false;
        }
        const AVClassCategory category = type->get_category == nullptr ? type->category : type->get_category(source);
        return category == AV_CLASS_CATEGORY_DEMUXER;
    }

    static inline std::mutex mutex;
    static inline std::string first;  // guarded by mutex
};

int IsInterrupted(void*) {
    return Interruption() != 0 ? 1 : 0;
}

bool HasFullRange(AVPixelFormat format) {
    switch (format) {
        case AV_PIX_FMT_YUVJ411P:
        case AV_PIX_FMT_YUVJ420P:
        case AV_PIX_FMT_YUVJ422P:
        case AV_PIX_FMT_YUVJ440P:
        case AV_PIX_FMT_YUVJ444P:
        case AV_PIX_FMT_GRAY8:
            return true;
        default:
            return false;
    }
}

class FfmpegReader final : public VideoReader {
  public:
    explicit FfmpegReader(const std::string& address);

    bool Read(Picture& picture) override;
    std::string Damage() const override;
    std::optional<std::uint64_t> PictureCount() const override;

  private:
    void OpenInput(const std::string& address);
    void OpenDecoder();
    bool FeedDecoder();
    bool TakeFrame(Picture& picture);
    bool EndsBeforeItsIndex() const;
    std::uint64_t TimeOfFrame();
    Picture ScaledFrame();

    Format format;
    Codec codec;
    Packet packet;
    Frame frame;
    Scaler scaler;
    AVStream* stream = nullptr;
    AVRational frameRate{0, 1};
    bool inputEnded = false;
    bool hasStart = false;
    std::int64_t start = 0;  ///< in the stream's time base
    std::uint64_t frameNumber = 0;
    std::int64_t packetCount = 0;
    std::int64_t lastPacketTime = AV_NOPTS_VALUE;  ///< decoding time, in the stream's time base
    std::uint64_t refusedPackets = 0;
    std::string breakOff;
};

FfmpegReader::FfmpegReader(const std::string& address) : packet(av_packet_alloc()), frame(av_frame_alloc()) {
    if (packet == nullptr || frame == nullptr) {
        throw std::bad_alloc();
    }
    // The libraries' messages would stand between the program's own lines.
    av_log_set_callback(ReaderMessages::Collect);
    try {
        OpenInput(address);
        OpenDecoder();
    } catch (const Failure& failure) {
        throw Failure("cannot open \"" + address + "\": " + OneLine(failure.what()));
    }
}

void FfmpegReader::OpenInput(const std::string& address) {
    AVFormatContext* opened = avformat_alloc_context();
    if (opened == nullptr) {
        throw std::bad_alloc();
    }
    opened->interrupt_callback = {IsInterrupted, nullptr};
    // Cameras lose pictures over datagrams; other sources do not know the option.
    AVDictionary* options = nullptr;
    av_dict_set(&options, "rtsp_transport", "tcp", 0);
    const int error = avformat_open_input(&opened, address.c_str(), nullptr, &options);  // frees `opened` on failure
    av_dict_free(&options);
    if (error < 0) {
        throw Failure(ErrorText(error));
    }
    format.reset(opened);
    if (const int failed = avformat_find_stream_info(format.get(), nullptr); failed < 0) {
        throw Failure(ErrorText(failed));
    }
}

void FfmpegReader::OpenDecoder() {
    const AVCodec* decoder = nullptr;
    const int index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (index == AVERROR_DECODER_NOT_FOUND) {
        throw Failure("there is no decoder for its pictures");
    }
    if (index < 0) {
        throw Failure("it has no pictures");
    }
    stream = format->streams[index];
    for (unsigned other = 0; other < format->nb_streams; ++other) {
        if (format->streams[other] != stream) {
            format->streams[other]->discard = AVDISCARD_ALL;
        }
    }
    codec.reset(avcodec_alloc_context3(decoder));
    if (codec == nullptr) {
        throw std::bad_alloc();
    }
    int error = avcodec_parameters_to_context(codec.get(), stream->codecpar);
    if (error >= 0) {
        codec->pkt_timebase = stream->time_base;
        codec->thread_count = 0;  // as many as there are processors
        error = avcodec_open2(codec.get(), decoder, nullptr);
    }
    if (error < 0) {
        throw Failure(ErrorText(error));
    }
    frameRate = av_guess_frame_rate(format.get(), stream, nullptr);
    ReaderMessages::Clear();
    if (stream->start_time != AV_NOPTS_VALUE) {
        start = stream->start_time;
        hasStart = true;
    }
}

bool FfmpegReader::Read(Picture& picture) {
    while (Interruption() == 0) {
        if (TakeFrame(picture)) {
            return true;
        }
        if (inputEnded) {
            return false;
        }
        inputEnded = !FeedDecoder();
    }
    return false;
}

// Takes the next frame out of the decoder; false when it has none.
bool FfmpegReader::TakeFrame(Picture& picture) {
    for (;;) {
        const int result = avcodec_receive_frame(codec.get(), frame.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return false;
        }
        if (result < 0) {
            ++refusedPackets;
            continue;
        }
        if (frame->width >= 2 && frame->height >= 2) {
            break;
        }
    }
    Picture next = ScaledFrame();
    next.timeMs = TimeOfFrame();
    ++frameNumber;
    av_frame_unref(frame.get());
    picture = std::move(next);
    return true;
}

// Gives the decoder one packet, or word of the end; false at the end.
bool FfmpegReader::FeedDecoder() {
    const int read = av_read_frame(format.get(), packet.get());
    if (read < 0) {
        if (read != AVERROR_EOF && Interruption() == 0) {
            breakOff = ErrorText(read);
        } else if (format->pb != nullptr && format->pb->error < 0 && format->pb->error != AVERROR_EOF) {
            breakOff = ErrorText(format->pb->error);
        }
        avcodec_send_packet(codec.get(), nullptr);
        return false;
    }
    if (packet->stream_index == stream->index) {
        ++packetCount;
        lastPacketTime = packet->dts;
        const bool corrupt = (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
        const int sent = avcodec_send_packet(codec.get(), packet.get());
        if (corrupt || sent < 0) {
            ++refusedPackets;
        }
    }
    av_packet_unref(packet.get());
    return true;
}

std::uint64_t FfmpegReader::TimeOfFrame() {
    const std::int64_t stamp = frame->best_effort_timestamp;
    if (stamp == AV_NOPTS_VALUE) {
        if (frameRate.num <= 0 || frameRate.den <= 0) {
            return frameNumber * 40;
        }
        return static_cast<std::uint64_t>(
            av_rescale_q_rnd(static_cast<std::int64_t>(frameNumber), av_inv_q(frameRate), milliseconds, AV_ROUND_DOWN));
    }
    if (!hasStart) {
        start = stamp;
        hasStart = true;
    }
    const std::int64_t time = av_rescale_q_rnd(stamp - start, stream->time_base, milliseconds, AV_ROUND_DOWN);
    return static_cast<std::uint64_t>(std::max<std::int64_t>(time, 0));
}

Picture FfmpegReader::ScaledFrame() {
    const auto source = static_cast<AVPixelFormat>(frame->format);
    Picture picture = MakePicture(static_cast<std::uint32_t>(frame->width) & ~1u,
                                  static_cast<std::uint32_t>(frame->height) & ~1u, true);
    if (source == AV_PIX_FMT_YUV420P || source == AV_PIX_FMT_YUVJ420P) {
        const std::array<PlaneView, 3> planes{{{frame->data[0], frame->linesize[0]},
                                               {frame->data[1], frame->linesize[1]},
                                               {frame->data[2], frame->linesize[2]}}};
        FillPlanes(picture, planes.data());
        return picture;
    }
    // The scaler writes rows in steps of its own, which may reach behind an odd or narrow row.
    const AVPixelFormat target = HasFullRange(source) ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P;
    scaler.reset(sws_getCachedContext(scaler.release(), frame->width, frame->height, source, frame->width,
                                      frame->height, target, SWS_BICUBIC, nullptr, nullptr, nullptr));
    const Frame scaled(av_frame_alloc());
    if (scaler == nullptr || scaled == nullptr) {
        throw Failure("the video's pixel format cannot be converted");
    }
    scaled->format = target;
    scaled->width = frame->width;
    scaled->height = frame->height;
    if (av_frame_get_buffer(scaled.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, scaled->data, scaled->linesize);
    const std::array<PlaneView, 3> planes{{{scaled->data[0], scaled->linesize[0]},
                                           {scaled->data[1], scaled->linesize[1]},
                                           {scaled->data[2], scaled->linesize[2]}}};
    FillPlanes(picture, planes.data());
    return picture;
}

// The index counts what is left after a cut by the container's own edit list, which the header's number of frames does
// not.
bool FfmpegReader::EndsBeforeItsIndex() const {
    const int entries = avformat_index_get_entries_count(stream);
    if (entries <= packetCount || lastPacketTime == AV_NOPTS_VALUE) {
        return false;
    }
    const AVIndexEntry* const last = avformat_index_get_entry(stream, entries - 1);
    return last != nullptr && last->timestamp > lastPacketTime;
}

std::string FfmpegReader::Damage() const {
    std::string damage = breakOff;
    if (damage.empty() && inputEnded && Interruption() == 0) {
        damage = ReaderMessages::First();
    }
    const auto add = [&damage](const std::string& text) { damage += (damage.empty() ? "" : "; ") + text; };
    if (inputEnded && Interruption() == 0 && EndsBeforeItsIndex()) {
        add("it ends before its index does");
    }
    if (refusedPackets > 0) {
        add("damaged packets: " + std::to_string(refusedPackets));
    }
    return damage;
}

std::optional<std::uint64_t> FfmpegReader::PictureCount() const {
    if (stream->nb_frames > 0) {
        return static_cast<std::uint64_t>(stream->nb_frames);
    }
    if (format->duration > 0 && frameRate.num > 0 && frameRate.den > 0) {
        return static_cast<std::uint64_t>(
            av_rescale_q(format->duration, AVRational{1, AV_TIME_BASE}, av_inv_q(frameRate)));
    }
    return std::nullopt;
}

}  // namespace

std::unique_ptr<VideoReader> OpenFfmpegVideo(const std::string& address) {
    return std::make_unique<FfmpegReader>(address);
}

const char* FfmpegVersion() {
    return "Y4M, and all that FFmpeg opens (libavformat " AV_STRINGIFY(LIBAVFORMAT_VERSION) ")";
}

}  // namespace plate_host
