/// The vehicles of one camera. Each frame is a 25th of a second.
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>

#include "engine/engine_records.h"

namespace idle_engine {

/// A record of one reading, the plate's centre in pixels.
RPLATE PlateRecord(const std::string& text, std::int32_t x, std::int32_t y, const IMG& image);

/// One thread.
class Road {
  public:
    explicit Road(std::uint32_t seed) : random(seed) {}

    /// Moves everything on by a frame and writes what is read of it; answers the number of plates.
    int Read(const IMG& image, RPLATE* plates);

  private:
    struct Vehicle {
        bool isThere = false;
        std::array<char, 7> text = {};
        double across = 0.0;  ///< of the picture's width
        double along = 0.0;   ///< of its height
        double step = 0.0;    ///< of its height, a frame
        int framesBeforeStop = 0;
        int framesOfStop = 0;
    };

    bool Chance(unsigned percent) { return Below(100) < percent; }
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); }
    char Character();
    void Enter(Vehicle& vehicle);
    static void Move(Vehicle& vehicle);

    std::minstd_rand random;
    std::array<Vehicle, engineRecordCount> vehicles;
};

}  // namespace idle_engine
