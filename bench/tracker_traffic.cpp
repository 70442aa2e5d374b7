#include "bench/tracker_traffic.h"

#include <boost/make_shared.hpp>

namespace bench {

LicencePlatePtr ReadingOf(int vehicle, const std::wstring& text, std::uint64_t time) {
    const std::int32_t x = 96 + vehicle % 10 * 192;
    const std::int32_t y = 54 + vehicle / 10 * 108;
    const auto reading = boost::make_shared<LicencePlate>();
    reading->timeStamp = time;
    reading->frameWidth = 1920;
    reading->frameHeight = 1080;
    reading->cornerA = {x - 50, y - 15};
    reading->cornerB = {x + 50, y - 15};
    reading->cornerC = {x - 50, y + 15};
    reading->cornerD = {x + 50, y + 15};
    reading->weight = 100;
    reading->text = text;
    return reading;
}

std::wstring TextOf(int vehicle, int number) {
    constexpr int length = 8;
    constexpr int alphabet = 16;
    std::wstring text;
    for (int position = 0; position < length; ++position) {
        text += static_cast<wchar_t>(L'0' + alphabet * vehicle + position);
    }
    // Misread at two positions, each as one of ten characters.
    text[2] = static_cast<wchar_t>(L'0' + alphabet * vehicle + number % 10 + (number % 10 < 2 ? 0 : 6));
    text[5] = static_cast<wchar_t>(L'0' + alphabet * vehicle + number / 10 + (number / 10 < 5 ? 0 : 6));
    return text;
}

}  // namespace bench
