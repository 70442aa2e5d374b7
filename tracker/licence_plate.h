/// One plate reading of one frame.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

/// A corner of a plate, in pixels; x grows to the right and y downwards.
struct PlateCorner {
    std::int32_t x = 0;
    std::int32_t y = 0;
};

/// A reading. Held by shared pointer and constant once it is filled, so any thread may read it.
struct LicencePlate {
    std::uint64_t timeStamp = 0;   ///< the frame's, in milliseconds
    std::uint32_t frameWidth = 0;  ///< pixels; the tracker reads both sizes as signed
    std::uint32_t frameHeight = 0;
    PlateCorner cornerA;      ///< top left
    PlateCorner cornerB;      ///< top right
    PlateCorner cornerC;      ///< bottom left
    PlateCorner cornerD;      ///< bottom right; the tracker does not use it
    std::int32_t weight = 0;  ///< the best reading of a track has the highest weight
    std::wstring text;        ///< the plate number
    std::uint64_t id = 0;
    std::uint64_t frameNumber = 0;  ///< counts from 1
};

using LicencePlatePtr = boost::shared_ptr<LicencePlate>;
