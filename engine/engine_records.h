/// The recognition engine's two functions, and the records that cross its boundary.
///
/// Engines are binaries, so the sizes and the used offsets are frozen. The names are the engine's, because the mangled
/// names of the functions contain those of the records. Coordinates are in pixels; x grows to the right, y downwards.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// An image of interleaved pixels: blue, green, red, one byte each.
struct IMG {
    std::uint32_t width;          ///< pixels
    std::uint32_t height;         ///< rows
    std::uint32_t bytesPerPixel;  ///< 3
    std::uint32_t rowStride;      ///< bytes; 3 x width
    std::uint8_t* pixels;         ///< first byte of the top row; not owned
};

/// A region of interest in pixels. Not clipped to the image.
struct tagRECT {
    std::int32_t left;
    std::int32_t top;
    std::int32_t right;
    std::int32_t bottom;
};

/// A corner of a plate, in pixels.
struct EngineCorner {
    std::int32_t x;
    std::int32_t y;
};

/// A reading: one plate recognised in one image.
struct RPLATE {
    char text[16];                  ///< code page 936, padded with NULs; not terminated when all 16 are used
    char country[12];               ///< read by CountryCodeOf
    std::uint8_t confidenceSum[8];  ///< an unaligned double: the sum of the characters' confidences, each 0..100
    std::uint8_t notRead1[92];
    EngineCorner corner1;  ///< top left
    EngineCorner corner2;  ///< bottom left
    EngineCorner corner3;  ///< top right
    EngineCorner corner4;  ///< bottom right
    std::uint8_t notRead2[224];
};

static_assert(sizeof(IMG) == 24 && offsetof(IMG, rowStride) == 12 && offsetof(IMG, pixels) == 16);
static_assert(sizeof(tagRECT) == 16 && offsetof(tagRECT, bottom) == 12);
static_assert(sizeof(RPLATE) == 384 && offsetof(RPLATE, text) == 0 && offsetof(RPLATE, country) == 16 &&
              offsetof(RPLATE, confidenceSum) == 28);
static_assert(offsetof(RPLATE, corner1) == 128 && offsetof(RPLATE, corner2) == 136);
static_assert(offsetof(RPLATE, corner3) == 144 && offsetof(RPLATE, corner4) == 152);

/// The number of records in the array that is passed to the engine.
inline constexpr int engineRecordCount = 5;

/// Returns the sum of the characters' confidences, each 0..100. Any thread.
inline double ConfidenceSumOf(const RPLATE& plate) {
    double sum = 0.0;
    std::memcpy(&sum, plate.confidenceSum, sizeof sum);
    return sum;
}

/// Written before a country code, so that other contents of these bytes are not taken for one.
inline constexpr std::string_view countryTag = "ISO3166:";

/// Returns the plate's country, three capital letters (ISO 3166-1 alpha-3), if the engine wrote `countryTag`, such a
/// code and a NUL; else an empty text. Any thread.
inline std::string_view CountryCodeOf(const RPLATE& plate) {
    const std::string_view field(plate.country, sizeof plate.country);
    const std::string_view code = field.substr(countryTag.size(), 3);
    const auto isCapital = [](char letter) { return 'A' <= letter && letter <= 'Z'; };
    const bool isCode =
        field.starts_with(countryTag) && field.back() == '\0' && std::all_of(code.begin(), code.end(), isCapital);
    return isCode ? code : std::string_view();
}

/// Sets what CountryCodeOf returns. REQUIRES: three capital letters.
inline void SetCountryCode(RPLATE& plate, std::string_view code) {
    countryTag.copy(plate.country, countryTag.size());
    code.copy(plate.country + countryTag.size(), sizeof plate.country - countryTag.size() - 1);
}

/// Sets what ConfidenceSumOf returns.
inline void SetConfidenceSum(RPLATE& plate, double sum) {
    std::memcpy(plate.confidenceSum, &sum, sizeof sum);
}

/// Another image record of the engine; never used.
struct YUV420_IMG;

/// Recognises the plates of one image. The caller passes null for `unused`, null for `region` to search the whole
/// image, engineRecordCount zeroed records in `plates`, and 0 for `flags`; the engine keeps none of the pointers.
/// Returns the number of plates found but writes at most engineRecordCount records. The library treats plates beyond
/// the records as empty, and a count above 1024 as an error: the frame then has no plates. Several threads may call it
/// at once.
int Recognize2(YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags);

/// Sets the plate-size range: the smallest and largest plate width in pixels. Returns false when the engine refuses it,
/// because its server is not running.
bool SetPlateRange(int minimumWidth, int maximumWidth);
