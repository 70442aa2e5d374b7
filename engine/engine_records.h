/// The recognition engine's two functions, and the records that cross its boundary.
///
/// The library and every engine agree on the bytes, so sizes and all offsets in use are frozen. The names are the
/// engine's own: the functions are bound by names that contain those of the records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// An image of 3 bytes a pixel, blue, green, red.
struct IMG {
    std::uint32_t width;          ///< pixels
    std::uint32_t height;         ///< rows
    std::uint32_t bytesPerPixel;  ///< 3
    std::uint32_t rowStride;      ///< bytes
    std::uint8_t* pixels;         ///< first byte of the top row; not owned
};

/// A search region in pixels.
struct tagRECT {
    std::int32_t left;
    std::int32_t top;
    std::int32_t right;
    std::int32_t bottom;
};

struct EngineCorner {
    std::int32_t x;  ///< pixels
    std::int32_t y;
};

/// One recognised plate.
struct RPLATE {
    char text[16];  ///< code page 936, padded with NULs; all 16 may be in use
    std::uint8_t notRead1[12];
    std::uint8_t confidenceSum[8];  ///< a 64-bit float, not aligned: the sum over the characters, 0 to 100 each
    std::uint8_t notRead2[92];
    EngineCorner corner1;  ///< top left
    EngineCorner corner2;  ///< bottom left
    EngineCorner corner3;  ///< top right
    EngineCorner corner4;  ///< bottom right
    std::uint8_t notRead3[224];
};

static_assert(sizeof(IMG) == 24 && offsetof(IMG, rowStride) == 12 && offsetof(IMG, pixels) == 16);
static_assert(sizeof(tagRECT) == 16 && offsetof(tagRECT, bottom) == 12);
static_assert(sizeof(RPLATE) == 384 && offsetof(RPLATE, text) == 0 && offsetof(RPLATE, confidenceSum) == 28);
static_assert(offsetof(RPLATE, corner1) == 128 && offsetof(RPLATE, corner2) == 136);
static_assert(offsetof(RPLATE, corner3) == 144 && offsetof(RPLATE, corner4) == 152);

/// The size of the array of records that an engine is handed.
inline constexpr int engineRecordCount = 5;

inline double ConfidenceSumOf(const RPLATE& plate) {
    double sum = 0.0;
    std::memcpy(&sum, plate.confidenceSum, sizeof sum);
    return sum;
}

inline void SetConfidenceSum(RPLATE& plate, double sum) {
    std::memcpy(plate.confidenceSum, &sum, sizeof sum);
}

/// Another image record of the engine, never handed over.
struct YUV420_IMG;

/// Reads the plates of one image: `unused` is null, `region` null for the whole image, `plates` points to
/// engineRecordCount zeroed records, `flags` is 0. Returns the number of plates found and writes no more of them than
/// there are records: the library takes plates without a record as empty ones, and a count above 1,024 as an error, by
/// which the frame has no plates. May be called from several threads at once.
int Recognize2(YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags);

/// Sets the range of plate widths in pixels; false when the engine could not take it because its server does not run.
bool SetPlateRange(int minimumWidth, int maximumWidth);
