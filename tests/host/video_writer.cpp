#include "tests/host/video_writer.h"

#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include "tests/host/pictures.h"

namespace host_test {
namespace {

void Require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(std::string("the test's video cannot be created: ") + what);
    }
}

class VideoWriter {
  public:
    VideoWriter(const std::string& path, const VideoTraits& traits)
        : traits_(traits), packet_(av_packet_alloc()), frame_(av_frame_alloc()) {
        av_log_set_level(AV_LOG_QUIET);
        Require(avformat_alloc_output_context2(&format_, nullptr, nullptr, path.c_str()) >= 0, "container");
        OpenEncoder();
        stream_ = avformat_new_stream(format_, nullptr);
        stream_->time_base = codec_->time_base;
        stream_->avg_frame_rate = codec_->framerate;
        if (traits_.turnedClockwise != 0) {
            std::uint8_t* const matrix =
                av_stream_new_side_data(stream_, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(std::int32_t));
            Require(matrix != nullptr, "rotation");
            av_display_rotation_set(reinterpret_cast<std::int32_t*>(matrix), traits_.turnedClockwise);
        }
        Require(avcodec_parameters_from_context(stream_->codecpar, codec_) >= 0, "parameters");
        Require(avio_open(&format_->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0, "file");
        if (traits_.indexFirst) {
            Require(av_opt_set(format_->priv_data, "movflags", "faststart", 0) >= 0, "order");
        }
        Require(avformat_write_header(format_, nullptr) >= 0, "header");
    }
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;

    ~VideoWriter() {
        av_frame_free(&frame_);
        av_packet_free(&packet_);
        avcodec_free_context(&codec_);
        avio_closep(&format_->pb);
        avformat_free_context(format_);
    }

    void WriteAll() {
        for (int number = 0; number < traits_.frames; ++number) {
            FillFrame(number);
            frame_->pts = traits_.firstFrameNumber + number;
            Encode(frame_);
        }
        Encode(nullptr);
        Require(av_write_trailer(format_) >= 0, "trailer");
    }

  private:
    void OpenEncoder() {
        const AVCodec* const encoder = avcodec_find_encoder_by_name(traits_.codec.c_str());
        Require(encoder != nullptr, "encoder");
        codec_ = avcodec_alloc_context3(encoder);
        codec_->width = traits_.width;
        codec_->height = traits_.height;
        codec_->pix_fmt = av_get_pix_fmt(traits_.pixelFormat.c_str());
        codec_->time_base = {traits_.rateDenominator, traits_.rateNumerator};
        codec_->framerate = {traits_.rateNumerator, traits_.rateDenominator};
        codec_->gop_size = 5;
        if (traits_.interlaced) {
            codec_->level = 3;  // of FFV1, which stores the kind of a frame from this level on
        }
        if (traits_.fullRange) {
            codec_->color_range = AVCOL_RANGE_JPEG;
        }
        codec_->thread_count = 1;
        codec_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
        if ((format_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        Require(avcodec_open2(codec_, encoder, nullptr) >= 0, "opening the encoder");
    }

    void FillFrame(int number) {
        av_frame_unref(frame_);
        frame_->format = codec_->pix_fmt;
        frame_->width = codec_->width;
        frame_->height = codec_->height;
        Require(av_frame_get_buffer(frame_, 0) >= 0, "frame");
        const AVPixFmtDescriptor* const description = av_pix_fmt_desc_get(codec_->pix_fmt);
        frame_->interlaced_frame = traits_.interlaced ? 1 : 0;
        frame_->top_field_first = frame_->interlaced_frame;
        for (int plane = 0; plane < description->nb_components; ++plane) {
            const int width = plane == 0 ? codec_->width : AV_CEIL_RSHIFT(codec_->width, description->log2_chroma_w);
            const int height = plane == 0 ? codec_->height : AV_CEIL_RSHIFT(codec_->height, description->log2_chroma_h);
            const std::vector<std::uint8_t> bytes = MakePlane(width, height, number, plane);
            for (int row = 0; row < height; ++row) {
                std::uint8_t* const target = frame_->data[plane] + row * frame_->linesize[plane];
                const std::uint8_t* const source = bytes.data() + static_cast<std::ptrdiff_t>(row) * width;
                const int shift = description->comp[plane].depth - 8;
                for (int x = 0; x < width; ++x) {
                    const int value = traits_.white || (traits_.interlaced && row % 2 == 1) ? 255 : source[x];
                    if (shift == 0) {
                        target[x] = static_cast<std::uint8_t>(value);
                    } else {
                        AV_WL16(target + 2 * x, static_cast<std::uint16_t>(value << shift));
                    }
                }
            }
        }
    }

    void Encode(const AVFrame* input) {
        Require(avcodec_send_frame(codec_, input) >= 0, "encoding");
        while (avcodec_receive_packet(codec_, packet_) >= 0) {
            av_packet_rescale_ts(packet_, codec_->time_base, stream_->time_base);
            packet_->stream_index = stream_->index;
            Require(av_interleaved_write_frame(format_, packet_) >= 0, "writing");
        }
    }

    const VideoTraits traits_;
    AVFormatContext* format_ = nullptr;
    AVCodecContext* codec_ = nullptr;
    AVStream* stream_ = nullptr;
    AVPacket* packet_;
    AVFrame* frame_;
};

}  // namespace

void WriteVideo(const std::string& path, const VideoTraits& traits) {
    VideoWriter writer(path, traits);
    writer.WriteAll();
}

}  // namespace host_test
