#include "tools/clip/lettering.h"

#include <cairo-ft.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <stdexcept>

#include "tools/clip/drawing.h"

namespace road_clip {
namespace {

constexpr double size = 200;

struct PatternDeleter {
    void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
using PatternPtr = std::unique_ptr<FcPattern, PatternDeleter>;

/// Finds a bold typeface. Fontconfig returns another one if it is missing, so the result's family is compared.
PatternPtr Find(const std::string& family) {
    const PatternPtr wanted(FcPatternCreate());
    FcPatternAddString(wanted.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
    FcPatternAddInteger(wanted.get(), FC_WEIGHT, FC_WEIGHT_BOLD);
    FcPatternAddInteger(wanted.get(), FC_SLANT, FC_SLANT_ROMAN);
    FcConfigSubstitute(nullptr, wanted.get(), FcMatchPattern);
    FcDefaultSubstitute(wanted.get());
    FcResult result = FcResultNoMatch;
    PatternPtr found(FcFontMatch(nullptr, wanted.get(), &result));
    for (int i = 0; found; ++i) {
        FcChar8* name = nullptr;
        if (FcPatternGetString(found.get(), FC_FAMILY, i, &name) != FcResultMatch) {
            break;
        }
        if (family == reinterpret_cast<const char*>(name)) {
            return found;
        }
    }
    throw std::runtime_error("the typeface \"" + family + "\" is not installed; run scripts/setup to install it");
}

}  // namespace

struct Lettering::Face {
    SurfacePtr surface{cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1)};
    CairoPtr context{cairo_create(surface.get())};
    double capitalHeight = 0;

    explicit Face(const std::string& family) {
        const PatternPtr pattern = Find(family);
        cairo_font_face_t* const face = cairo_ft_font_face_create_for_pattern(pattern.get());
        cairo_set_font_face(context.get(), face);
        cairo_font_face_destroy(face);
        cairo_set_font_size(context.get(), size);
        cairo_font_options_t* const options = cairo_font_options_create();
        cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
        cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
        cairo_set_font_options(context.get(), options);
        cairo_font_options_destroy(options);
        cairo_text_extents_t capital;
        cairo_text_extents(context.get(), "H", &capital);
        capitalHeight = capital.height;
    }
};

Lettering::Lettering() = default;
Lettering::~Lettering() = default;

const Outline& Lettering::Of(std::string_view typeface, char character) {
    const std::pair key(std::string(typeface), character);
    const auto known = outlines_.find(key);
    if (known != outlines_.end()) {
        return known->second;
    }
    std::unique_ptr<Face>& face = faces_[key.first];
    if (!face) {
        face = std::make_unique<Face>(key.first);
    }
    cairo_t* const context = face->context.get();
    const std::string text(1, character);
    cairo_text_extents_t extents;
    cairo_text_extents(context, text.c_str(), &extents);
    const double unit = 1 / face->capitalHeight;

    Outline outline;
    outline.width = extents.width * unit;
    outline.step = extents.x_advance * unit;
    cairo_new_path(context);
    cairo_move_to(context, 0, 0);
    cairo_text_path(context, text.c_str());
    cairo_path_t* const path = cairo_copy_path_flat(context);
    cairo_new_path(context);
    for (int i = 0; i < path->num_data; i += path->data[i].header.length) {
        const cairo_path_data_t* const data = &path->data[i];
        if (data->header.type == CAIRO_PATH_CLOSE_PATH) {
            continue;
        }
        if (data->header.type == CAIRO_PATH_MOVE_TO) {
            outline.contours.emplace_back();
        }
        outline.contours.back().push_back({(data[1].point.x - extents.x_bearing) * unit, -data[1].point.y * unit});
    }
    cairo_path_destroy(path);
    std::erase_if(outline.contours, [](const std::vector<Pixel>& contour) { return contour.size() < 3; });
    return outlines_.emplace(key, std::move(outline)).first->second;
}

}  // namespace road_clip
