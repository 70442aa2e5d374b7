#include "tests/host/png.h"

#include <cairo.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "tools/host/system.h"

namespace host_test {

PngPicture ReadPng(const std::string& path) {
    const std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> surface(
        cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy);
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error(path + ": " + cairo_status_to_string(cairo_surface_status(surface.get())));
    }
    PngPicture picture{cairo_image_surface_get_width(surface.get()), cairo_image_surface_get_height(surface.get()), {}};
    const unsigned char* const bytes = cairo_image_surface_get_data(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    for (int y = 0; y < picture.height; ++y) {
        const auto* const row = reinterpret_cast<const std::uint32_t*>(bytes + static_cast<std::ptrdiff_t>(y) * stride);
        for (int x = 0; x < picture.width; ++x) {
            const auto sample = [value = row[x]](int shift) { return static_cast<int>(value >> shift & 0xFFU); };
            picture.pixels.push_back({sample(16), sample(8), sample(0)});
        }
    }
    return picture;
}

std::vector<std::string> NamesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(plate_host::ToPath(folder))) {
        names.push_back(plate_host::ToText(entry.path().filename()));
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace host_test
