#include "tools/host/check_clip.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace plate_host {
namespace {

// The plate, as a camera sees it when the car is drawn at scale 1: one pixel a character, from dark to bright as in
// `tones`.
constexpr std::string_view tones = " .,-:;=+xoX*&8#@";
constexpr std::array<std::string_view, 28> plate{
    ",,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,-",
    ",,,,,,,,,,,,.,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,.,,.,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,-",
    ",.,,---,,,,--:::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::::,,,-",
    ",,,-::::::::+xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxo-,,-",
    ",,,-::::::::=xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx+o:,,-",
    ",,,-::::::::o*********************************************************************************************+o:,,-",
    ",,,-::::::::o&&Xoo*&&*ooo&&XooooX*&&&&&&&&&&&*x+xo*&&&&&&&&&ooo*&&&&&Xx+xX*&&&&&&&*ooooooX*&&&&&&&ooo&&&&&xo:,,-",
    ",,,-::::::::o&*;-:X&&o--=&*:----:=o&&&&&&&&&X;,,,:+*&&&&&&&o--:*&&&&o:,,,:x*&&&&&&X------;x*&&&&&X--;*&&&&xo:,,-",
    ",,,-::::::::o&*-,-X&&o,,;&*-,,,,,,;o&&&&&&&*;,,-,,-o&&&&&&*;,,-*&&&X-,,-,,-o&&&&&&o,,,,,,,-x&&&&&x,,-X&&&&xo:,,-",
    ",,,-::::::::o&*:,-X&&o,,;&*-,,=+;,,=*&&&&&&o,,:x=,,=&&&&&&o,,,-*&&&+,,;o=,,+&&&&&&o,,-++:,,;*&&&&=,,,x&&&&xo:,,-",
    ",,,-::::::::o&*-,-X&&o,,;**-,-X*o:,-X&&&&&&=,,x&o,,;*&&&&&;,,,-*&&&+::X&o,,;&&&&&&o,,:**o,,:*&&&*-,,,=&&&&xo:,,-",
    ",,,-::::::::o&*-,-X&&o,,;&*-,-X&*=,,x&&&&&&+;;X&X,,:*&&&&X,,,,-*&&&*XX&&o,,;&&&&&&o,,;*&X-,-*&&&X,,:,:*&&&xo:,,-",
    ",,,-::::::::o&*:,-X&&o,,;**-,-X&&+,,+&&&&&&***&&o,,=&&&&&=,;-,-*&&&&&&**+,,+&&&&&&o,,;**x,,;&&&&x,,+,,o&&&xo:,,-",
    ",,,-::::::::o&*:,-X&&o,,;**-,-X&&+,,+&&&&&&&&&&&;,,x&&&&X,,x-,-*&&&&&*+;,,:*&&&&&&o,,-==-,,o&&&&;,:o-,x&&&xo:,,-",
    ",,,-::::::::o&*:,-X&&o,,;**-,-X&&+,,+&&&&&&&&&&o,,:*&&&&=,:X-,-*&&&&&X-,,,+&&&&&&&o,,,,,,,;X&&&*-,=*:,;*&&xo-,,-",
    ",,,-::::::::o&*:,-X&&o,,;&*-,-X&&+,,+&&&&&&&&&*:,,o&&&&X-,x*-,-*&&&&&*;:-,:o&&&&&&o,,,;;:,-+&&&X,,x*;,:*&&xo:,,-",
    ",,,-::::::::o&*:,-X&&o,,;**-,-X&&+,,+&&&&&&&&&=,,=&&&&&+,,++,,-x*&&&&&XX+,,=&&&&&&o,,:X*o-,:*&&+,,+x;,,o&&xo:,,-",
    ",,,-::::::::o&*:,-X&&o,,;&*-,-X&&=,,x&&&&&&&&o,,:*&&&&*:,,,,,,,-X&&***&&X-,:*&&&&&o,,:*&*:,,X&&;,,--,,,+&&xo:,,-",
    ",,,-::::::::o&*:,-X&&x,,;&*-,-X&*:,,o&&&&&&&X-,,o&&&&&*;,,,,,,,-X&&x==X&X-,:*&&&&&o,,;*&*-,,X&*-,,,,,,,;*&xo:,,-",
    ",,,-::::::::o&*;,,+X*;,,+&*-,-oX+,,:*&&&&&&*;,,;XXXX*&&oxxxx-,,x&&&;,,x*x,,;&&&&&&o,,:XXx,,-*&o,,:+++:,-X&xo:,,-",
    ",,,-::::::::o&&+,,-;:,,,X&*-,,:-,,,x&&&&&&&o,,,::::;X&&&&&&*-,-*&&&+,,:;-,,x&&&&&&o,,-::,,,;&&+,,x*&*=,,o&xo:.,-",
    ",,,-::::::::o&&X=-,,,,,+&&*-,,,,,-+&&&&&&&&+,,,,,,,,X&&&&&&*-,-*&&&X;,,,,,;*&&&&&&o,,,,,,,:X&*:,,X&&&x,,+&xo:,,-",
    ",,,-::::::::o&&&X+;::;x*&&*=;;;;+o&&&&&&&&&x;;;;;;;=*&&&&&&*=;+*&&&&X+;:;+*&&&&&&&X;;;;;;+X&&*=;+&&&&X;;x&xo:,,-",
    ",,,-::::::::o&&&&*XXX*&&&&&*****&&&&&&&&&&&*********&&&&&&&&***&&&&&&*XX**&&&&&&&&*******&&&&&***&&&&&***&xo:,,-",
    ",,,-::::::::xXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX=o:,,-",
    ",,,-::::::::=xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx+X:.,-",
    ",,,--------:=+++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++,,,-",
    ",,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,--,,-,,,,,-,,,,,-,,,,,,,,,-,,--,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,-",
};

/// A part of the car with upright or slanting sides, in pixels at scale 1 from the upper left corner of the car.
struct Part {
    double top;
    double bottom;
    double leftAtTop;
    double rightAtTop;
    double leftAtBottom;
    double rightAtBottom;
    std::uint8_t grey;
};

// From back to front.
constexpr std::array parts{
    Part{310, 345, 20, 78, 20, 78, 18},       // wheels
    Part{310, 345, 295, 352, 295, 352, 18},   //
    Part{0, 130, 80, 320, 45, 360, 108},      // body
    Part{130, 310, 45, 360, 0, 370, 116},     //
    Part{22, 122, 88, 312, 58, 340, 48},      // windscreen
    Part{205, 232, 84, 272, 84, 272, 24},     // grille
    Part{212, 238, 12, 76, 12, 76, 225},      // lamps
    Part{212, 238, 280, 344, 280, 344, 225},  //
    Part{285, 305, 55, 308, 55, 308, 28},     // bumper
};

// The position of the plate on the car.
constexpr double plateLeft = 122;
constexpr double plateTop = 244;

double PlateTone(int column, int row) {
    const std::string_view line = plate[static_cast<std::size_t>(row)];
    return 17.0 * static_cast<double>(tones.find(line[static_cast<std::size_t>(column)]));
}

// Interpolates between the four nearest pixels.
double PlateAt(double x, double y) {
    const int column = std::clamp(static_cast<int>(x), 0, static_cast<int>(plate[0].size()) - 2);
    const int row = std::clamp(static_cast<int>(y), 0, static_cast<int>(plate.size()) - 2);
    const double right = std::clamp(x - column, 0.0, 1.0);
    const double below = std::clamp(y - row, 0.0, 1.0);
    return (1 - below) * ((1 - right) * PlateTone(column, row) + right * PlateTone(column + 1, row)) +
           below * ((1 - right) * PlateTone(column, row + 1) + right * PlateTone(column + 1, row + 1));
}

// A grey road with a bright line at each side, below a bright sky.
void DrawBackground(std::uint8_t* pixels, std::uint32_t row) {
    constexpr std::uint32_t horizon = 60;
    if (row < horizon) {
        std::fill_n(pixels, clipWidth, std::uint8_t{190});
        return;
    }
    std::fill_n(pixels, clipWidth, static_cast<std::uint8_t>(62 + row / 16));
    for (const double side : {-1.0, 1.0}) {
        const double middle = clipWidth / 2.0 + side * 0.92 * (row - horizon + 20);
        const double halfWidth = 0.025 * (row - horizon + 20);
        const auto first = static_cast<int>(std::clamp(middle - halfWidth, 0.0, double{clipWidth}));
        const auto last = static_cast<int>(std::clamp(middle + halfWidth, 0.0, double{clipWidth}));
        std::fill(pixels + first, pixels + last, std::uint8_t{215});
    }
}

/// The position of the car in the picture, in pixels.
struct Place {
    double left;
    double top;
    double scale;
};

// The first pixel at or after a position on the car.
int ColumnOf(const Place& place, double x) {
    return static_cast<int>(std::clamp(std::ceil(place.left + x * place.scale), 0.0, double{clipWidth}));
}

void DrawCar(std::uint8_t* pixels, std::uint32_t row, const Place& place) {
    const double y = (row - place.top) / place.scale;
    for (const Part& part : parts) {
        const double depth = (y - part.top) / (part.bottom - part.top);
        if (depth >= 0 && depth < 1) {
            const int first = ColumnOf(place, part.leftAtTop + depth * (part.leftAtBottom - part.leftAtTop));
            const int last = ColumnOf(place, part.rightAtTop + depth * (part.rightAtBottom - part.rightAtTop));
            std::fill(pixels + first, pixels + last, part.grey);
        }
    }
    const double plateY = y - plateTop;
    if (plateY >= 0 && plateY < static_cast<double>(plate.size())) {
        const int end = ColumnOf(place, plateLeft + static_cast<double>(plate[0].size()));
        for (int column = ColumnOf(place, plateLeft); column < end; ++column) {
            pixels[column] =
                static_cast<std::uint8_t>(PlateAt((column - place.left) / place.scale - plateLeft, plateY));
        }
    }
}

}  // namespace

Picture DrawClipFrame(int number) {
    constexpr double firstScale = 0.55;
    constexpr double growth = 2.1;  // from the first frame to the last one
    constexpr double firstPlateY = 170;
    constexpr double descent = 640;
    const double progress = static_cast<double>(number) / (clipFrameCount - 1);
    const double scale = firstScale * std::pow(growth, progress);
    const double plateMiddle = plateLeft + static_cast<double>(plate[0].size()) / 2;
    const Place place{clipWidth / 2.0 + 40 - 90 * progress - scale * plateMiddle,
                      firstPlateY + descent * (scale - firstScale) - scale * plateTop, scale};

    Picture picture = MakeEmptyScene(clipWidth, clipHeight, true);
    picture.timeMs = static_cast<std::uint64_t>(number) * clipFrameMs;
    for (std::uint32_t row = 0; row < std::uint32_t{clipHeight}; ++row) {
        std::uint8_t* const pixels = picture.bytes.get() + std::size_t{row} * clipWidth;
        DrawBackground(pixels, row);
        DrawCar(pixels, row, place);
    }
    return picture;
}

}  // namespace plate_host
