/// The vehicles of one camera. Each frame is a 25th of a second.
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>

#include "engine/engine_records.h"

namespace soak {

/// One thread at a time.
class Road {
  public:
    explicit Road(std::uint32_t seed) : random_(seed) {}

    /// Moves all vehicles by one frame, writes the plates that are read and returns their number.
    int Read(const IMG& image, RPLATE* plates);

    /// Removes all vehicles. None appears while the road is closed.
    void Close();
    void Open() { isOpen_ = true; }
    bool IsOpen() const { return isOpen_; }

  private:
    struct Vehicle {
        bool isPresent = false;
        std::array<char, 7> text = {};
        double across = 0.0;  ///< of the frame's width
        double along = 0.0;   ///< of its height
        double step = 0.0;    ///< of its height, per frame
        int framesBeforeStop = 0;
        int framesOfStop = 0;
    };

    bool Chance(unsigned percent) { return Below(100) < percent; }
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
    char Character();
    void Enter(Vehicle& vehicle);
    static void Move(Vehicle& vehicle);

    std::mt19937 random_;
    bool isOpen_ = true;
    std::array<Vehicle, engineRecordCount> vehicles_;
};

}  // namespace soak
