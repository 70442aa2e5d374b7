#include "tests/evaluate/jpeg.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace evaluate_test {
namespace {

template <class Object, void (*End)(Object**)>
struct FreeThroughPointer {
    void operator()(Object* object) const { End(&object); }
};

using Codec = std::unique_ptr<AVCodecContext, FreeThroughPointer<AVCodecContext, avcodec_free_context>>;
using Packet = std::unique_ptr<AVPacket, FreeThroughPointer<AVPacket, av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, FreeThroughPointer<AVFrame, av_frame_free>>;

void Require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

AVPixelFormat FormatOf(const YuvPicture& picture) {
    return picture.halfHeight ? AV_PIX_FMT_YUVJ420P : picture.halfWidth ? AV_PIX_FMT_YUVJ422P : AV_PIX_FMT_YUVJ444P;
}

}  // namespace

YuvPicture MakeYuv(int width, int height, bool halfWidth, bool halfHeight,
                   const std::function<std::uint8_t(int plane, int x, int y)>& sample) {
    YuvPicture picture{width, height, halfWidth, halfHeight, {}};
    for (int plane = 0; plane < 3; ++plane) {
        const auto [planeWidth, planeHeight] = picture.SizeOf(plane);
        for (int y = 0; y < planeHeight; ++y) {
            for (int x = 0; x < planeWidth; ++x) {
                picture.planes[static_cast<std::size_t>(plane)].push_back(sample(plane, x, y));
            }
        }
    }
    return picture;
}

std::string Jpeg(const YuvPicture& picture) {
    const AVCodec* const encoder = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    Require(encoder != nullptr, "no encoder");
    const Codec codec(avcodec_alloc_context3(encoder));
    codec->width = picture.width;
    codec->height = picture.height;
    codec->pix_fmt = FormatOf(picture);
    codec->color_range = AVCOL_RANGE_JPEG;
    codec->time_base = {1, 25};
    codec->thread_count = 1;
    codec->flags |= AV_CODEC_FLAG_QSCALE;
    codec->global_quality = FF_QP2LAMBDA;
    codec->qmin = 1;
    Require(avcodec_open2(codec.get(), encoder, nullptr) >= 0, "opening the encoder");

    const Frame frame(av_frame_alloc());
    frame->format = codec->pix_fmt;
    frame->width = picture.width;
    frame->height = picture.height;
    frame->quality = FF_QP2LAMBDA;
    frame->pts = 0;
    Require(av_frame_get_buffer(frame.get(), 0) >= 0, "frame");
    for (int plane = 0; plane < 3; ++plane) {
        const auto [width, height] = picture.SizeOf(plane);
        const std::vector<std::uint8_t>& bytes = picture.planes[static_cast<std::size_t>(plane)];
        for (int row = 0; row < height; ++row) {
            std::memcpy(frame->data[plane] + row * frame->linesize[plane],
                        bytes.data() + static_cast<std::ptrdiff_t>(row) * width, static_cast<std::size_t>(width));
        }
    }
    const Packet packet(av_packet_alloc());
    Require(avcodec_send_frame(codec.get(), frame.get()) >= 0 && avcodec_send_frame(codec.get(), nullptr) >= 0 &&
                avcodec_receive_packet(codec.get(), packet.get()) >= 0,
            "encoding");
    return {packet->data, packet->data + packet->size};
}

YuvPicture DecodeJpeg(const std::string& file) {
    const Packet packet(av_packet_alloc());
    Require(av_new_packet(packet.get(), static_cast<int>(file.size())) >= 0, "packet");
    std::memcpy(packet->data, file.data(), file.size());

    const AVCodec* const decoder = avcodec_find_decoder(AV_CODEC_ID_MJPEG);
    const Codec codec(avcodec_alloc_context3(decoder));
    codec->thread_count = 1;
    const Frame frame(av_frame_alloc());
    Require(avcodec_open2(codec.get(), decoder, nullptr) >= 0 && avcodec_send_packet(codec.get(), packet.get()) >= 0 &&
                avcodec_receive_frame(codec.get(), frame.get()) >= 0,
            "decoding");
    const bool halfHeight = frame->format == AV_PIX_FMT_YUVJ420P;
    const bool halfWidth = halfHeight || frame->format == AV_PIX_FMT_YUVJ422P;
    Require(halfWidth || frame->format == AV_PIX_FMT_YUVJ444P, "another format");
    return MakeYuv(frame->width, frame->height, halfWidth, halfHeight,
                   [&frame](int plane, int x, int y) { return frame->data[plane][y * frame->linesize[plane] + x]; });
}

}  // namespace evaluate_test
