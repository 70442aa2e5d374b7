#include "tests/host/video_writer.h"

#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include "tests/host/pictures.h"

namespace host_test {
namespace {

void Require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(std::string("the test's video cannot be made: ") + what);
    }
}

class VideoWriter {
  public:
    VideoWriter(const std::string& path, const VideoTraits& newTraits)
        : traits(newTraits), packet(av_packet_alloc()), frame(av_frame_alloc()) {
        av_log_set_level(AV_LOG_QUIET);
        Require(avformat_alloc_output_context2(&format, nullptr, nullptr, path.c_str()) >= 0, "container");
        OpenEncoder();
        stream = avformat_new_stream(format, nullptr);
        stream->time_base = codec->time_base;
        stream->avg_frame_rate = codec->framerate;
        Require(avcodec_parameters_from_context(stream->codecpar, codec) >= 0, "parameters");
        Require(avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0, "file");
        if (traits.indexFirst) {
            Require(av_opt_set(format->priv_data, "movflags", "faststart", 0) >= 0, "order");
        }
        Require(avformat_write_header(format, nullptr) >= 0, "header");
    }
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;

    ~VideoWriter() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&codec);
        avio_closep(&format->pb);
        avformat_free_context(format);
    }

    void WriteAll() {
        for (int number = 0; number < traits.frames; ++number) {
            FillFrame(number);
            frame->pts = traits.firstFrameNumber + number;
            Encode(frame);
        }
        Encode(nullptr);
        Require(av_write_trailer(format) >= 0, "trailer");
    }

  private:
    void OpenEncoder() {
        const AVCodec* const encoder = avcodec_find_encoder_by_name(traits.codec.c_str());
        Require(encoder != nullptr, "encoder");
        codec = avcodec_alloc_context3(encoder);
        codec->width = traits.width;
        codec->height = traits.height;
        codec->pix_fmt = av_get_pix_fmt(traits.pixelFormat.c_str());
        codec->time_base = {traits.rateDenominator, traits.rateNumerator};
        codec->framerate = {traits.rateNumerator, traits.rateDenominator};
        codec->gop_size = 5;
        codec->thread_count = 1;
        codec->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
        if ((format->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        Require(avcodec_open2(codec, encoder, nullptr) >= 0, "opening the encoder");
    }

    void FillFrame(int number) {
        av_frame_unref(frame);
        frame->format = codec->pix_fmt;
        frame->width = codec->width;
        frame->height = codec->height;
        Require(av_frame_get_buffer(frame, 0) >= 0, "frame");
        const AVPixFmtDescriptor* const description = av_pix_fmt_desc_get(codec->pix_fmt);
        for (int plane = 0; plane < description->nb_components; ++plane) {
            const int width = plane == 0 ? codec->width : AV_CEIL_RSHIFT(codec->width, description->log2_chroma_w);
            const int height = plane == 0 ? codec->height : AV_CEIL_RSHIFT(codec->height, description->log2_chroma_h);
            const std::vector<std::uint8_t> bytes = MakePlane(width, height, number, plane);
            for (int row = 0; row < height; ++row) {
                std::memcpy(frame->data[plane] + row * frame->linesize[plane],
                            bytes.data() + static_cast<std::ptrdiff_t>(row) * width, static_cast<std::size_t>(width));
            }
        }
    }

    void Encode(const AVFrame* input) {
        Require(avcodec_send_frame(codec, input) >= 0, "encoding");
        while (avcodec_receive_packet(codec, packet) >= 0) {
            av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
            packet->stream_index = stream->index;
            Require(av_interleaved_write_frame(format, packet) >= 0, "writing");
        }
    }

    const VideoTraits traits;
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVStream* stream = nullptr;
    AVPacket* packet;
    AVFrame* frame;
};

}  // namespace

void WriteVideo(const std::string& path, const VideoTraits& traits) {
    VideoWriter writer(path, traits);
    writer.WriteAll();
}

}  // namespace host_test
