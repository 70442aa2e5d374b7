#include "tools/report/base64.h"

#include <cstddef>
#include <cstdint>

namespace report {

std::string Base64Of(std::string_view bytes) {
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byteAt = [bytes](std::size_t index) {
        return index < bytes.size() ? std::uint32_t{static_cast<unsigned char>(bytes[index])} : 0;
    };
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t index = 0; index < bytes.size(); index += 3) {
        const std::uint32_t group = byteAt(index) << 16 | byteAt(index + 1) << 8 | byteAt(index + 2);
        text += {digits[group >> 18], digits[group >> 12 & 63], digits[group >> 6 & 63], digits[group & 63]};
    }
    const std::size_t missing = (3 - bytes.size() % 3) % 3;
    text.replace(text.size() - missing, missing, missing, '=');
    return text;
}

}  // namespace report
