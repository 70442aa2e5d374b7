#include "tools/clip/video_writer.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <stdexcept>
#include <vector>

namespace road_clip {
namespace {

std::string ErrorText(int error) {
    std::array<char, 256> text{};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

int Check(int result, const std::string& what) {
    if (result < 0) {
        throw std::runtime_error(what + ": " + ErrorText(result));
    }
    return result;
}

template <typename Object>
Object* NotNull(Object* object, const char* what) {
    if (object == nullptr) {
        throw std::runtime_error(std::string("cannot allocate ") + what);
    }
    return object;
}

/// All H.264 encoders, the preferred one first.
std::vector<const AVCodec*> Encoders() {
    std::vector<const AVCodec*> encoders;
    if (const AVCodec* const preferred = avcodec_find_encoder_by_name("libx264")) {
        encoders.push_back(preferred);
    }
    void* position = nullptr;
    while (const AVCodec* const codec = av_codec_iterate(&position)) {
        if (codec->id == AV_CODEC_ID_H264 && av_codec_is_encoder(codec) != 0 &&
            (encoders.empty() || codec != encoders.front())) {
            encoders.push_back(codec);
        }
    }
    return encoders;
}

}  // namespace

struct VideoWriter::State {
    AVFormatContext* format = nullptr;
    AVCodecContext* encoder = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    SwsContext* converter = nullptr;
    AVStream* stream = nullptr;
    std::int64_t nextFrame = 0;

    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    ~State() {
        sws_freeContext(converter);
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&encoder);
        if (format != nullptr) {
            avio_closep(&format->pb);
            avformat_free_context(format);
        }
    }

    bool OpenEncoder(const AVCodec* codec, int width, int height, int framesPerSecond) {
        encoder = NotNull(avcodec_alloc_context3(codec), "the encoder");
        encoder->width = width;
        encoder->height = height;
        encoder->pix_fmt = AV_PIX_FMT_YUV420P;
        encoder->time_base = AVRational{1, framesPerSecond};
        encoder->framerate = AVRational{framesPerSecond, 1};
        encoder->gop_size = 2 * framesPerSecond;
        encoder->colorspace = AVCOL_SPC_BT709;
        encoder->color_primaries = AVCOL_PRI_BT709;
        encoder->color_trc = AVCOL_TRC_BT709;
        encoder->color_range = AVCOL_RANGE_MPEG;
        // The number of threads is fixed because the stream depends on it.
        encoder->thread_count = 4;
        encoder->bit_rate = 2'500'000;
        if (std::string(codec->name) == "libx264") {
            encoder->bit_rate = 0;
            av_opt_set(encoder->priv_data, "preset", "superfast", 0);
            av_opt_set(encoder->priv_data, "crf", "27", 0);
            // Produces the same bytes on every processor.
            av_opt_set(encoder->priv_data, "x264-params", "cpu-independent=1:trellis=0:rc-lookahead=10", 0);
        }
        if ((format->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        if (avcodec_open2(encoder, codec, nullptr) >= 0) {
            return true;
        }
        avcodec_free_context(&encoder);
        return false;
    }

    void Encode(const AVFrame* picture) {
        Check(avcodec_send_frame(encoder, picture), "cannot encode a frame");
        while (true) {
            const int result = avcodec_receive_packet(encoder, packet);
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
                return;
            }
            Check(result, "cannot encode a frame");
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            packet->duration = av_rescale_q(1, encoder->time_base, stream->time_base);
            Check(av_interleaved_write_frame(format, packet), "cannot write the video");
        }
    }
};

VideoWriter::VideoWriter(const std::filesystem::path& file, int width, int height, int framesPerSecond)
    : state_(std::make_unique<State>()) {
    av_log_set_level(AV_LOG_ERROR);
    const std::string name = file.string();
    Check(avformat_alloc_output_context2(&state_->format, nullptr, "mp4", name.c_str()), "cannot write MP4 files");
    for (const AVCodec* const codec : Encoders()) {
        if (state_->OpenEncoder(codec, width, height, framesPerSecond)) {
            break;
        }
    }
    if (state_->encoder == nullptr) {
        throw std::runtime_error("libavcodec has no H.264 encoder for this size");
    }
    state_->stream = NotNull(avformat_new_stream(state_->format, nullptr), "the video");
    state_->stream->time_base = state_->encoder->time_base;
    state_->stream->avg_frame_rate = state_->encoder->framerate;
    Check(avcodec_parameters_from_context(state_->stream->codecpar, state_->encoder), "cannot describe the video");

    state_->packet = NotNull(av_packet_alloc(), "a packet");
    state_->frame = NotNull(av_frame_alloc(), "a frame");
    state_->frame->format = AV_PIX_FMT_YUV420P;
    state_->frame->width = width;
    state_->frame->height = height;
    Check(av_frame_get_buffer(state_->frame, 0), "cannot allocate a frame");
    state_->converter = NotNull(sws_getContext(width, height, AV_PIX_FMT_BGR0, width, height, AV_PIX_FMT_YUV420P,
                                               SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr),
                                "the colour conversion");
    const int* const matrix = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(state_->converter, matrix, 1, matrix, 0, 0, 1 << 16, 1 << 16);

    Check(avio_open(&state_->format->pb, name.c_str(), AVIO_FLAG_WRITE), "cannot write \"" + name + "\"");
    Check(avformat_write_header(state_->format, nullptr), "cannot write \"" + name + "\"");
}

VideoWriter::~VideoWriter() = default;

void VideoWriter::Write(const std::uint8_t* pixels, int stride) {
    Check(av_frame_make_writable(state_->frame), "cannot allocate a frame");
    const std::uint8_t* const planes[] = {pixels, nullptr, nullptr, nullptr};
    const int strides[] = {stride, 0, 0, 0};
    sws_scale(state_->converter, planes, strides, 0, state_->frame->height, state_->frame->data,
              state_->frame->linesize);
    state_->frame->pts = state_->nextFrame++;
    state_->Encode(state_->frame);
}

void VideoWriter::Finish() {
    state_->Encode(nullptr);
    Check(av_write_trailer(state_->format), "cannot write the video");
}

std::string VideoWriter::EncoderName() const {
    return state_->encoder->codec->name;
}

}  // namespace road_clip
