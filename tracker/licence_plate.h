/// One plate reading of one frame.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

struct PlateCorner {
    std::int32_t x = 0;  ///< pixels
    std::int32_t y = 0;
};

/// Filled once, then only read; held by shared pointer.
struct LicencePlate {
    std::uint64_t timeStamp = 0;   ///< the frame's, in milliseconds
    std::uint32_t frameWidth = 0;  ///< pixels; the tracker reads both sizes as signed
    std::uint32_t frameHeight = 0;
    PlateCorner cornerA;
    PlateCorner cornerB;
    PlateCorner cornerC;
    PlateCorner cornerD;
    std::int32_t weight = 0;
    std::wstring text;
    std::uint64_t id = 0;
    std::uint64_t frameNumber = 0;
};

using LicencePlatePtr = boost::shared_ptr<LicencePlate>;
