#include "bench/baselines.h"

#include <libyuv.h>

#include <algorithm>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

extern "C" {
#include <libswscale/swscale.h>
}

namespace bench {

namespace {

Conversion LibyuvConversion(std::int32_t width, std::int32_t height) {
    return [=](const std::uint8_t* source, std::uint8_t* target) {
        const std::uint8_t* const u = source + width * height;
        const std::uint8_t* const v = u + width * height / 4;
        // libyuv names formats by their order in a register, so this is blue first in memory.
        libyuv::I420ToRGB24(source, width, u, width / 2, v, width / 2, target, 3 * width, width, height);
    };
}

Conversion SwscaleConversion(std::int32_t width, std::int32_t height) {
    // For equal sizes an unscaled routine runs regardless of the filter, unless accurate rounding is requested.
    const std::shared_ptr<SwsContext> context(sws_getContext(width, height, AV_PIX_FMT_YUV420P, width, height,
                                                             AV_PIX_FMT_BGR24, SWS_POINT, nullptr, nullptr, nullptr),
                                              sws_freeContext);
    return [=](const std::uint8_t* source, std::uint8_t* target) {
        const std::uint8_t* const u = source + width * height;
        const std::uint8_t* const planes[] = {source, u, u + width * height / 4};
        const int steps[] = {width, width / 2, width / 2};
        std::uint8_t* const targets[] = {target};
        const int targetSteps[] = {3 * width};
        sws_scale(context.get(), planes, steps, 0, height, targets, targetSteps);
    };
}

Conversion OpenCvConversion(std::int32_t width, std::int32_t height) {
    cv::setNumThreads(1);
    return [=](const std::uint8_t* source, std::uint8_t* target) {
        const cv::Mat frame(height * 3 / 2, width, CV_8UC1, const_cast<std::uint8_t*>(source));
        cv::Mat bgr(height, width, CV_8UC3, target);
        cv::cvtColor(frame, bgr, cv::COLOR_YUV2BGR_I420);
    };
}

void RequireBlueFirst(const Baseline& baseline) {
    constexpr std::int32_t width = 64;
    constexpr std::int32_t height = 2;
    constexpr std::int32_t pixels = width * height;
    std::vector<std::uint8_t> blue(pixels * 3 / 2, 110);
    std::fill_n(blue.begin(), pixels, std::uint8_t{41});
    std::fill_n(blue.begin() + pixels, pixels / 4, std::uint8_t{240});
    std::vector<std::uint8_t> target(3 * pixels);
    baseline.conversionFor(width, height)(blue.data(), target.data());
    if (target[0] < 200 || target[2] > 50) {
        throw std::runtime_error(baseline.name + " does not write blue first");
    }
}

}  // namespace

std::vector<Baseline> AllBaselines() {
    std::vector<Baseline> baselines = {
        {"libyuv", LibyuvConversion}, {"swscale", SwscaleConversion}, {"OpenCV", OpenCvConversion}};
    for (const Baseline& baseline : baselines) {
        RequireBlueFirst(baseline);
    }
    return baselines;
}

}  // namespace bench
