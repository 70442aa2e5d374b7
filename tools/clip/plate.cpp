#include "tools/clip/plate.h"

namespace road_clip {
namespace {

constexpr Colour white{0.94, 0.94, 0.91};
constexpr Colour yellow{0.93, 0.76, 0.16};
constexpr Colour black{0.06, 0.06, 0.08};
constexpr Colour darkGreen{0.05, 0.20, 0.15};
constexpr Colour pale{0.90, 0.91, 0.86};
constexpr Colour blueInk{0.08, 0.11, 0.33};

constexpr PlateKind european{"white, blue band", 0.520, 0.112, 0.075, "AA111AA", {2, 5}, white, black, PlateBand::Left,
                             plateTypefaces[0]};
constexpr PlateKind europeanYellow{"yellow", 0.520,  0.112, 0.077,           "AA11AAA",
                                   {4, 0},   yellow, black, PlateBand::None, plateTypefaces[0]};
constexpr PlateKind europeanDark{
    "black, light letters", 0.520, 0.112, 0.075, "AA111AA", {2, 5}, black, pale, PlateBand::None, plateTypefaces[1]};
constexpr PlateKind southAmerican{
    "white, blue band above", 0.400, 0.130, 0.065, "AAA1A11", {3, 0}, white, black, PlateBand::Top, plateTypefaces[0]};
constexpr PlateKind northAmerican{
    "white, blue letters", 0.305, 0.152, 0.068, "1AA1111", {0, 0}, white, blueInk, PlateBand::None, plateTypefaces[0]};
constexpr PlateKind northAmericanDark{
    "green, light letters", 0.305, 0.152, 0.068, "AAA1111", {3, 0}, darkGreen, pale, PlateBand::None,
    plateTypefaces[1]};

}  // namespace

const PlateKind& KindOf(PlateDesign design) {
    switch (design) {
        case PlateDesign::EuropeanYellow:
            return europeanYellow;
        case PlateDesign::EuropeanDark:
            return europeanDark;
        case PlateDesign::SouthAmerican:
            return southAmerican;
        case PlateDesign::NorthAmerican:
            return northAmerican;
        case PlateDesign::NorthAmericanDark:
            return northAmericanDark;
        case PlateDesign::European:
            break;
    }
    return european;
}

}  // namespace road_clip
