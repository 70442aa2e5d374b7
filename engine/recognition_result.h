/// A result: what the detector keeps for a reading until the tracker reports or drops it.
#pragma once

#include <array>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

#include "sdk/buffer.h"

namespace plate_recognition {

/// A plate's rectangle in pixels.
struct PlateRect {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
};

/// The description of a reading.
struct PlateDescription {
    std::wstring text;
    std::array<std::string, 6> strings;  ///< the first is the country
    std::int32_t confidence = 0;         ///< the mean of the characters' confidences, each 0..100
    std::int32_t value = 0;              ///< the direction
    bool isFinished = false;             ///< true for a frame of a single call
    bool flag = false;
    PlateRect rect;
    std::array<std::int32_t, 3> values = {};
};

/// Held by shared pointer and constant after construction. It keeps the host's frame until it is destroyed.
class RecognitionResult {
  public:
    /// `timeStamp` is the frame's, in milliseconds. Throws std::exception with "RecognitionResult constructor: Buffer
    /// is NULL" when `frameHandle` is null.
    RecognitionResult(const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& frameHandle, PlateDescription description,
                      std::uint32_t plateId, std::uint64_t timeStamp);
    virtual ~RecognitionResult() = default;

    boost::shared_ptr<OKM8::MFF::ICompositeBuffer> frame;
    std::uint32_t id;
    std::wstring text;
    std::array<std::string, 6> strings;
    std::int32_t confidence;
    std::int32_t value;
    bool isFinished;
    bool flag;
    PlateRect rect;
    std::array<std::int32_t, 3> values;
    std::uint64_t creationTime;  ///< the frame's time stamp, in milliseconds
    std::uint64_t lastTime;
    std::array<bool, 5> stateFlags = {};
    std::array<std::int32_t, 2> stateValues = {0, 2};
    bool lost = false;  ///< the plate's event is then "NUMBER_LOST"
};

}  // namespace plate_recognition
