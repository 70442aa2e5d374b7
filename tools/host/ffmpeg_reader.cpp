#include "tools/host/ffmpeg_reader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "tools/host/console.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

constexpr AVRational milliseconds{1, 1000};

template <class Object, void (*Free)(Object**)>
struct FreeThroughPointer {
    void operator()(Object* object) const { Free(&object); }
};

struct ScalerDeleter {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

using Format = std::unique_ptr<AVFormatContext, FreeThroughPointer<AVFormatContext, avformat_close_input>>;
using Codec = std::unique_ptr<AVCodecContext, FreeThroughPointer<AVCodecContext, avcodec_free_context>>;
using Packet = std::unique_ptr<AVPacket, FreeThroughPointer<AVPacket, av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, FreeThroughPointer<AVFrame, av_frame_free>>;
using Scaler = std::unique_ptr<SwsContext, ScalerDeleter>;

std::string ErrorText(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    if (av_strerror(error, text.data(), text.size()) == 0) {
        return text.data();
    }
    // Errors of sockets on Windows.
    switch (AVUNERROR(error)) {
        case ECONNREFUSED:
            return "Connection refused";
        case ETIMEDOUT:
            return "Connection timed out";
        default:
            return std::system_category().message(AVUNERROR(error));
    }
}

/// The first error message of a demuxer. Some demuxers treat a truncated file as complete and report it only in their
/// messages.
class DemuxerMessages {
  public:
    static void Collect(void* source, int level, const char* format, va_list arguments) {
        if (level > AV_LOG_ERROR || !IsDemuxer(source)) {
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
    static bool IsDemuxer(void* source) {
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

// The scaler keeps the range of luminance, and converts red, green and blue to either one.
bool HasFullRange(AVPixelFormat format) {
    if ((av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_RGB) != 0) {
        return true;
    }
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

// The clockwise quarter turns after which a stream's pictures are upright: telephones store portraits lying.
int QuarterTurns(const AVStream& stream) {
    std::size_t size = 0;
    const std::uint8_t* const matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (matrix == nullptr || size < 9 * sizeof(std::int32_t)) {
        return 0;
    }
    const double counterclockwise = av_display_rotation_get(reinterpret_cast<const std::int32_t*>(matrix));
    return std::isnan(counterclockwise) ? 0 : static_cast<int>(std::lround(-counterclockwise / 90) & 3);
}

// Turns a plane clockwise by 90, 180 or 270 degrees. Width and height are those of the source.
void TurnPlane(std::uint8_t* target, const std::uint8_t* source, std::uint32_t width, std::uint32_t height,
               int quarterTurns) {
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            const std::uint32_t row = quarterTurns == 1 ? x : quarterTurns == 2 ? height - 1 - y : width - 1 - x;
            const std::uint32_t column = quarterTurns == 1 ? height - 1 - y : quarterTurns == 2 ? width - 1 - x : y;
            target[std::size_t{row} * (quarterTurns == 2 ? width : height) + column] = *source++;
        }
    }
}

Picture Turned(const Picture& picture, int quarterTurns) {
    const bool isUpright = quarterTurns == 2;
    Picture turned =
        MakePicture(isUpright ? picture.width : picture.height, isUpright ? picture.height : picture.width, true);
    const std::size_t luminance = std::size_t{picture.width} * picture.height;
    TurnPlane(turned.bytes.get(), picture.bytes.get(), picture.width, picture.height, quarterTurns);
    for (const std::size_t offset : {luminance, luminance + luminance / 4}) {
        TurnPlane(turned.bytes.get() + offset, picture.bytes.get() + offset, picture.width / 2, picture.height / 2,
                  quarterTurns);
    }
    return turned;
}

/// Writes a stream's packets into a Matroska file.
class PacketWriter {
  public:
    /// Throws KeepFailure.
    PacketWriter(const std::string& file, const AVStream& source, AVRational frameRate)
        : sourceTimeBase_(source.time_base),
          step_(frameRate.num > 0 && frameRate.den > 0 ? av_rescale_q(1, av_inv_q(frameRate), source.time_base) : 1),
          packet_(av_packet_alloc()) {
        try {
            if (packet_ == nullptr) {
                throw std::bad_alloc();
            }
            Require(avformat_alloc_output_context2(&output_, nullptr, "matroska", file.c_str()));
            AVStream* const stream = avformat_new_stream(output_, nullptr);
            if (stream == nullptr) {
                throw std::bad_alloc();
            }
            Require(avcodec_parameters_copy(stream->codecpar, source.codecpar));
            stream->codecpar->codec_tag = 0;  // that of the source's container
            stream->time_base = source.time_base;
            stream->avg_frame_rate = source.avg_frame_rate;
            output_->flags |= AVFMT_FLAG_FLUSH_PACKETS;
            Require(avio_open(&output_->pb, file.c_str(), AVIO_FLAG_WRITE));
            Require(avformat_write_header(output_, nullptr));
        } catch (const Failure& failure) {
            Close();
            throw KeepFailure("cannot keep the frames in \"" + file + "\": " + failure.what());
        }
    }
    PacketWriter(const PacketWriter&) = delete;
    PacketWriter& operator=(const PacketWriter&) = delete;
    ~PacketWriter() {
        Finish();
        Close();
    }

    /// Nothing is written after the first failure.
    void Write(const AVPacket& packet) {
        if (!error_.empty() || isFinished_) {
            return;
        }
        int result = av_packet_ref(packet_.get(), &packet);
        if (result >= 0) {
            packet_->stream_index = 0;
            packet_->pos = -1;
            MakeTimesIncrease();
            av_packet_rescale_ts(packet_.get(), sourceTimeBase_, output_->streams[0]->time_base);
            result = av_write_frame(output_, packet_.get());
            av_packet_unref(packet_.get());
        }
        SetError(result);
    }

    /// Completes the file. Nothing is written after it.
    void Finish() {
        if (!isFinished_) {
            isFinished_ = true;
            SetError(av_write_trailer(output_));
        }
    }

    const std::string& Error() const { return error_; }

  private:
    static void Require(int result) {
        if (result < 0) {
            throw Failure(ErrorText(result));
        }
    }

    void SetError(int result) {
        if (result < 0 && error_.empty()) {
            error_ = "cannot keep the frames: " + ErrorText(result);
        }
    }

    // Streams without a container have no times, and those of a camera may jump back.
    void MakeTimesIncrease() {
        if (packet_->dts == AV_NOPTS_VALUE) {
            packet_->dts = lastTime_ == AV_NOPTS_VALUE ? 0 : lastTime_ + step_;
        }
        if (lastTime_ != AV_NOPTS_VALUE) {
            packet_->dts = std::max(packet_->dts, lastTime_ + 1);
        }
        packet_->pts = packet_->pts == AV_NOPTS_VALUE ? packet_->dts : std::max(packet_->pts, packet_->dts);
        lastTime_ = packet_->dts;
    }

    void Close() {
        if (output_ != nullptr) {
            avio_closep(&output_->pb);
        }
        avformat_free_context(output_);
    }

    AVFormatContext* output_ = nullptr;
    const AVRational sourceTimeBase_;
    const std::int64_t step_;  ///< between two frames, in the source's time base
    Packet packet_;
    std::int64_t lastTime_ = AV_NOPTS_VALUE;
    bool isFinished_ = false;
    std::string error_;
};

class FfmpegReader final : public VideoReader {
  public:
    FfmpegReader(const std::string& address, const std::string& keptFile);

    bool Read(Picture& picture) override;
    std::string Damage() const override;
    std::optional<std::uint64_t> PictureCount() const override;
    std::string KeepError() const override { return kept_ == nullptr ? std::string() : kept_->Error(); }

  private:
    void OpenInput(const std::string& address);
    void OpenDecoder();
    bool FeedDecoder();
    bool TakeFrame(Picture& picture);
    bool EndsBeforeItsIndex() const;
    std::uint64_t TimeOfFrame();
    Picture ScaledFrame();

    Format format_;
    Codec codec_;
    Packet packet_;
    Frame frame_;
    Scaler scaler_;
    AVStream* stream_ = nullptr;
    AVRational frameRate_{0, 1};
    int quarterTurns_ = 0;
    bool inputEnded_ = false;
    bool hasStart_ = false;
    std::int64_t start_ = 0;  ///< in the stream's time base
    std::uint64_t frameNumber_ = 0;
    std::int64_t packetCount_ = 0;
    std::int64_t lastPacketTime_ = AV_NOPTS_VALUE;  ///< decoding time, in the stream's time base
    std::uint64_t damagedPackets_ = 0;
    std::string readError_;
    std::unique_ptr<PacketWriter> kept_;  ///< null when packets are not kept
};

FfmpegReader::FfmpegReader(const std::string& address, const std::string& keptFile)
    : packet_(av_packet_alloc()), frame_(av_frame_alloc()) {
    if (packet_ == nullptr || frame_ == nullptr) {
        throw std::bad_alloc();
    }
    // The libraries' messages would appear between the program's own lines.
    av_log_set_callback(DemuxerMessages::Collect);
    try {
        OpenInput(address);
        OpenDecoder();
    } catch (const Failure& failure) {
        throw Failure("cannot open \"" + address + "\": " + OneLine(failure.what()));
    }
    if (!keptFile.empty()) {
        kept_ = std::make_unique<PacketWriter>(keptFile, *stream_, frameRate_);
    }
}

void FfmpegReader::OpenInput(const std::string& address) {
    AVFormatContext* opened = avformat_alloc_context();
    if (opened == nullptr) {
        throw std::bad_alloc();
    }
    opened->interrupt_callback = {IsInterrupted, nullptr};
    // Cameras lose frames over UDP; sources other than RTSP ignore the option.
    AVDictionary* options = nullptr;
    av_dict_set(&options, "rtsp_transport", "tcp", 0);
    // Without limits a read waits for a camera that has lost its power. In microseconds; the first is for RTSP.
    av_dict_set(&options, "timeout", "10000000", 0);
    av_dict_set(&options, "rw_timeout", "10000000", 0);
    const int error = avformat_open_input(&opened, address.c_str(), nullptr, &options);  // frees `opened` on failure
    av_dict_free(&options);
    if (error < 0) {
        throw Failure(ErrorText(error));
    }
    format_.reset(opened);
    if (const int failed = avformat_find_stream_info(format_.get(), nullptr); failed < 0) {
        throw Failure(ErrorText(failed));
    }
}

void FfmpegReader::OpenDecoder() {
    const AVCodec* decoder = nullptr;
    const int index = av_find_best_stream(format_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (index == AVERROR_DECODER_NOT_FOUND) {
        throw Failure("there is no decoder for its video stream");
    }
    if (index < 0) {
        throw Failure("it has no video stream");
    }
    stream_ = format_->streams[index];
    for (unsigned other = 0; other < format_->nb_streams; ++other) {
        if (format_->streams[other] != stream_) {
            format_->streams[other]->discard = AVDISCARD_ALL;
        }
    }
    codec_.reset(avcodec_alloc_context3(decoder));
    if (codec_ == nullptr) {
        throw std::bad_alloc();
    }
    int error = avcodec_parameters_to_context(codec_.get(), stream_->codecpar);
    if (error >= 0) {
        codec_->pkt_timebase = stream_->time_base;
        codec_->thread_count = 0;  // one per processor
        error = avcodec_open2(codec_.get(), decoder, nullptr);
    }
    if (error < 0) {
        throw Failure(ErrorText(error));
    }
    frameRate_ = av_guess_frame_rate(format_.get(), stream_, nullptr);
    quarterTurns_ = QuarterTurns(*stream_);
    DemuxerMessages::Clear();
    if (stream_->start_time != AV_NOPTS_VALUE) {
        start_ = stream_->start_time;
        hasStart_ = true;
    }
}

bool FfmpegReader::Read(Picture& picture) {
    while (Interruption() == 0) {
        if (TakeFrame(picture)) {
            return true;
        }
        if (inputEnded_) {
            return false;
        }
        inputEnded_ = !FeedDecoder();
    }
    return false;
}

// Receives the next frame from the decoder; returns false when it has none.
bool FfmpegReader::TakeFrame(Picture& picture) {
    for (;;) {
        const int result = avcodec_receive_frame(codec_.get(), frame_.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return false;
        }
        if (result < 0) {
            ++damagedPackets_;
            continue;
        }
        if (frame_->width >= 2 && frame_->height >= 2) {
            break;
        }
    }
    Picture next = ScaledFrame();
    if (quarterTurns_ != 0) {
        next = Turned(next, quarterTurns_);
    }
    next.timeMs = TimeOfFrame();
    ++frameNumber_;
    av_frame_unref(frame_.get());
    picture = std::move(next);
    return true;
}

// Sends the decoder one packet, or the end of the stream; returns false at the end.
bool FfmpegReader::FeedDecoder() {
    const int read = av_read_frame(format_.get(), packet_.get());
    if (read < 0) {
        if (read != AVERROR_EOF && Interruption() == 0) {
            readError_ = ErrorText(read);
        } else if (format_->pb != nullptr && format_->pb->error < 0 && format_->pb->error != AVERROR_EOF) {
            readError_ = ErrorText(format_->pb->error);
        }
        avcodec_send_packet(codec_.get(), nullptr);
        if (kept_ != nullptr) {
            kept_->Finish();
        }
        return false;
    }
    if (packet_->stream_index == stream_->index) {
        ++packetCount_;
        lastPacketTime_ = packet_->dts;
        const bool corrupt = (packet_->flags & AV_PKT_FLAG_CORRUPT) != 0;
        if (kept_ != nullptr) {
            kept_->Write(*packet_);
        }
        const int sent = avcodec_send_packet(codec_.get(), packet_.get());
        if (corrupt || sent < 0) {
            ++damagedPackets_;
        }
    }
    av_packet_unref(packet_.get());
    return true;
}

std::uint64_t FfmpegReader::TimeOfFrame() {
    const std::int64_t stamp = frame_->best_effort_timestamp;
    if (stamp == AV_NOPTS_VALUE) {
        if (frameRate_.num <= 0 || frameRate_.den <= 0) {
            return frameNumber_ * 40;
        }
        return static_cast<std::uint64_t>(av_rescale_q_rnd(static_cast<std::int64_t>(frameNumber_),
                                                           av_inv_q(frameRate_), milliseconds, AV_ROUND_DOWN));
    }
    if (!hasStart_) {
        start_ = stamp;
        hasStart_ = true;
    }
    const std::int64_t time = av_rescale_q_rnd(stamp - start_, stream_->time_base, milliseconds, AV_ROUND_DOWN);
    return static_cast<std::uint64_t>(std::max<std::int64_t>(time, 0));
}

Picture FfmpegReader::ScaledFrame() {
    const auto source = static_cast<AVPixelFormat>(frame_->format);
    Picture picture = MakePicture(static_cast<std::uint32_t>(frame_->width) & ~1u,
                                  static_cast<std::uint32_t>(frame_->height) & ~1u, true);
    // The fields of an interlaced frame show different moments. Its upper one is taken, scaled to the full height.
    const bool isInterlaced = frame_->interlaced_frame != 0 && frame_->height >= 4;
    if (!isInterlaced && (source == AV_PIX_FMT_YUV420P || source == AV_PIX_FMT_YUVJ420P)) {
        const std::array<PlaneView, 3> planes{{{frame_->data[0], frame_->linesize[0]},
                                               {frame_->data[1], frame_->linesize[1]},
                                               {frame_->data[2], frame_->linesize[2]}}};
        FillPlanes(picture, planes.data());
        return picture;
    }
    // The scaler may write past the end of an odd or narrow row.
    const AVPixelFormat target = HasFullRange(source) ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P;
    const int sourceHeight = isInterlaced ? (frame_->height + 1) / 2 : frame_->height;
    std::array<int, AV_NUM_DATA_POINTERS> strides{};
    for (std::size_t plane = 0; plane < strides.size(); ++plane) {
        strides[plane] = frame_->linesize[plane] * (isInterlaced ? 2 : 1);
    }
    scaler_.reset(sws_getCachedContext(scaler_.release(), frame_->width, sourceHeight, source, frame_->width,
                                       frame_->height, target, SWS_BICUBIC, nullptr, nullptr, nullptr));
    const Frame scaled(av_frame_alloc());
    if (scaler_ == nullptr || scaled == nullptr) {
        throw Failure("cannot convert the video's pixel format");
    }
    scaled->format = target;
    scaled->width = frame_->width;
    scaled->height = frame_->height;
    if (av_frame_get_buffer(scaled.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    sws_scale(scaler_.get(), frame_->data, strides.data(), 0, sourceHeight, scaled->data, scaled->linesize);
    const std::array<PlaneView, 3> planes{{{scaled->data[0], scaled->linesize[0]},
                                           {scaled->data[1], scaled->linesize[1]},
                                           {scaled->data[2], scaled->linesize[2]}}};
    FillPlanes(picture, planes.data());
    return picture;
}

// The index takes the container's edit list into account; the number of frames in the header does not.
bool FfmpegReader::EndsBeforeItsIndex() const {
    const int entries = avformat_index_get_entries_count(stream_);
    if (entries <= packetCount_ || lastPacketTime_ == AV_NOPTS_VALUE) {
        return false;
    }
    const AVIndexEntry* const last = avformat_index_get_entry(stream_, entries - 1);
    return last != nullptr && last->timestamp > lastPacketTime_;
}

std::string FfmpegReader::Damage() const {
    std::string damage = readError_;
    if (damage.empty() && inputEnded_ && Interruption() == 0) {
        damage = DemuxerMessages::First();
    }
    const auto add = [&damage](const std::string& text) { damage += (damage.empty() ? "" : "; ") + text; };
    if (inputEnded_ && Interruption() == 0 && EndsBeforeItsIndex()) {
        add("it ends before the last frame of its index");
    }
    if (damagedPackets_ > 0) {
        add("damaged packets: " + std::to_string(damagedPackets_));
    }
    return damage;
}

std::optional<std::uint64_t> FfmpegReader::PictureCount() const {
    if (stream_->nb_frames > 0) {
        return static_cast<std::uint64_t>(stream_->nb_frames);
    }
    if (format_->duration > 0 && frameRate_.num > 0 && frameRate_.den > 0) {
        return static_cast<std::uint64_t>(
            av_rescale_q(format_->duration, AVRational{1, AV_TIME_BASE}, av_inv_q(frameRate_)));
    }
    return std::nullopt;
}

}  // namespace

std::unique_ptr<VideoReader> OpenFfmpegVideo(const std::string& address, const std::string& keptFile) {
    return std::make_unique<FfmpegReader>(address, keptFile);
}

const char* SupportedFormats() {
    return "Y4M and the formats of FFmpeg's libavformat " AV_STRINGIFY(LIBAVFORMAT_VERSION);
}

}  // namespace plate_host
