/// The plates of vehicles: sizes, colours and text formats.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace road_clip {

struct Colour {
    double red = 0;
    double green = 0;
    double blue = 0;
};

enum class PlateBand { None, Left, Top };

struct PlateKind {
    const char* name;
    double width;   ///< metres
    double height;  ///< metres
    double characterHeight;
    std::string_view format;    ///< A stands for a letter, 1 for a digit
    std::array<int, 2> gapsAt;  ///< indices of the characters after a gap; 0 for none
    Colour field;
    Colour ink;
    PlateBand band;
    const char* typeface;
};

enum class PlateDesign { European, EuropeanYellow, EuropeanDark, SouthAmerican, NorthAmerican, NorthAmericanDark };

const PlateKind& KindOf(PlateDesign design);

inline constexpr std::array<const char*, 2> plateTypefaces = {"Roboto Condensed", "DejaVu Sans"};

}  // namespace road_clip
