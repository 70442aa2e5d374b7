#include "tests/reference/faults/plate_frame.h"

#include <opencv2/imgproc.hpp>

namespace reading_faults {

std::vector<std::uint8_t> DrawPlateFrame() {
    // Neutral colour planes follow the luma rows.
    std::vector<std::uint8_t> frame(std::size_t{frameWidth} * frameHeight * 3 / 2, 128);
    cv::Mat picture(frameHeight, frameWidth, CV_8UC1, frame.data());
    picture = 102;
    int y = 60;
    for (const char* const text : {"AB123CD", "KLM4567"}) {
        cv::rectangle(picture, cv::Rect(100, y, 200, 44), 237, cv::FILLED);
        cv::putText(picture, text, cv::Point(118, y + 34), cv::FONT_HERSHEY_DUPLEX, 1.1, 25, 3, cv::LINE_AA);
        y += 180;
    }
    return frame;
}

}  // namespace reading_faults
