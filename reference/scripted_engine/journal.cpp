#include "reference/scripted_engine/journal.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

namespace scripted_engine {
namespace {

using nlohmann::ordered_json;

/// 64-bit FNV-1a hash of the pixels, without the padding of the rows.
std::string Checksum(const IMG& image) {
    std::uint64_t sum = 0xcbf29ce484222325U;
    const std::size_t rowBytes = std::size_t{image.width} * image.bytesPerPixel;
    for (std::size_t row = 0; row < image.height; ++row) {
        const std::uint8_t* bytes = image.pixels + row * image.rowStride;
        for (std::size_t i = 0; i < rowBytes; ++i) {
            sum = (sum ^ bytes[i]) * 0x100000001b3U;
        }
    }
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(sum));
    return text.data();
}

ordered_json DescribeImage(const IMG* image) {
    if (image == nullptr) {
        return nullptr;
    }
    return {{"width", image->width},
            {"height", image->height},
            {"bytes_per_pixel", image->bytesPerPixel},
            {"row_stride", image->rowStride},
            {"checksum", image->pixels == nullptr ? ordered_json(nullptr) : ordered_json(Checksum(*image))}};
}

ordered_json DescribeRegion(const tagRECT* region) {
    if (region == nullptr) {
        return nullptr;
    }
    return {{"left", region->left}, {"top", region->top}, {"right", region->right}, {"bottom", region->bottom}};
}

ordered_json StartLine(const char* function, const CallNumber& number) {
    return {
        {"call", function}, {"number", number.process}, {"thread", number.thread}, {"thread_number", number.onThread}};
}

}  // namespace

Journal::Journal(const std::filesystem::path& file) : open_(false) {
    if (file.empty()) {
        return;
    }
    stream_.open(file, std::ios::app | std::ios::binary);
    open_ = stream_.is_open();
    if (!open_) {
        std::fprintf(stderr, "Recon64: the journal %s cannot be written\n", file.string().c_str());
    }
}

void Journal::WriteRecognition(const CallNumber& number, const IMG* image, const tagRECT* region,
                               bool firstArgumentIsNull, int flags, int result) {
    if (!open_) {
        return;
    }
    ordered_json line = StartLine("Recognize2", number);
    line["image"] = DescribeImage(image);
    line["region"] = DescribeRegion(region);
    line["first_argument_is_null"] = firstArgumentIsNull;
    line["flags"] = flags;
    line["answer"] = result;
    const std::string text = line.dump() + "\n";
    const std::lock_guard lock(mutex_);
    stream_ << text << std::flush;
}

void Journal::WriteRange(const CallNumber& number, int minimumWidth, int maximumWidth, bool accepted) {
    if (!open_) {
        return;
    }
    ordered_json line = StartLine("SetPlateRange", number);
    line["minimum_width"] = minimumWidth;
    line["maximum_width"] = maximumWidth;
    line["answer"] = accepted;
    const std::string text = line.dump() + "\n";
    const std::lock_guard lock(mutex_);
    stream_ << text << std::flush;
}

}  // namespace scripted_engine
