#include "tools/host/check_clip.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace plate_host {
namespace {

constexpr std::uint32_t frameWidth = 640;
constexpr std::uint32_t frameHeight = 480;

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
    double grey;
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

// Negative where there is no car.
double CarAt(double x, double y) {
    const double plateX = x - plateLeft;
    const double plateY = y - plateTop;
    if (plateX >= 0 && plateX < static_cast<double>(plate[0].size()) && plateY >= 0 &&
        plateY < static_cast<double>(plate.size())) {
        return PlateAt(plateX, plateY);
    }
    double grey = -1;
    for (const Part& part : parts) {
        const double depth = (y - part.top) / (part.bottom - part.top);
        if (depth >= 0 && depth < 1 && x >= part.leftAtTop + depth * (part.leftAtBottom - part.leftAtTop) &&
            x < part.rightAtTop + depth * (part.rightAtBottom - part.rightAtTop)) {
            grey = part.grey;
        }
    }
    return grey;
}

// A grey road with a bright line at each side, below a bright sky.
double BackgroundAt(double x, double y) {
    constexpr double horizon = 60;
    if (y < horizon) {
        return 190;
    }
    const double fromMiddle = std::abs(x - frameWidth / 2.0) / (y - horizon + 20);
    return fromMiddle > 0.9 && fromMiddle < 0.95 ? 215 : 62 + y / 16;
}

}  // namespace

Picture DrawClipFrame(int number) {
    constexpr double firstScale = 0.55;
    constexpr double growth = 2.1;  // from the first frame to the last one
    constexpr double firstPlateY = 170;
    constexpr double descent = 640;
    const double progress = static_cast<double>(number) / (clipFrameCount - 1);
    const double scale = firstScale * std::pow(growth, progress);
    const double carLeft = 320 + 40 - 90 * progress - scale * (plateLeft + plate[0].size() / 2.0);
    const double carTop = firstPlateY + descent * (scale - firstScale) - scale * plateTop;

    Picture picture = MakeEmptyScene(frameWidth, frameHeight, true);
    picture.timeMs = static_cast<std::uint64_t>(number) * clipFrameMs;
    for (std::uint32_t row = 0; row < frameHeight; ++row) {
        for (std::uint32_t column = 0; column < frameWidth; ++column) {
            const double car = CarAt((column - carLeft) / scale, (row - carTop) / scale);
            picture.bytes[row * frameWidth + column] =
                static_cast<std::uint8_t>(car >= 0 ? car : BackgroundAt(column, row));
        }
    }
    return picture;
}

}  // namespace plate_host
