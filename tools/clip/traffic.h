/// Which vehicles drive through the clip, and where each of them is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/clip/geometry.h"

namespace road_clip {

enum class VehicleShape { Car, Van, Truck };

enum class Manner { Comes, Goes, ComesAndStops, ComesAndTurnsOff };

struct Colour {
    double red = 0;
    double green = 0;
    double blue = 0;
};

/// Where a vehicle is: the middle of the end that the camera sees, on the ground.
struct Place {
    double x = 0;
    double z = 0;
    double turn = 0;  ///< of the vehicle's length axis against the z axis, to the right, in radians
    bool standing = false;
};

struct Vehicle {
    std::string plate;
    VehicleShape shape = VehicleShape::Car;
    Manner manner = Manner::Comes;
    Colour colour;
    double speed = 0;         ///< metres per second, when nothing stops it
    double readableFrom = 0;  ///< the second at which its plate comes near enough, or into the picture

    bool ShowsItsRear() const { return manner == Manner::Goes; }
    double PlateHeight() const { return shape == VehicleShape::Truck ? 0.70 : 0.43; }  ///< of the middle, in metres
    Place PlaceAt(double second) const;
};

/// Distances between which plates are large enough to be read and not below the picture.
inline constexpr double farthestReading = 40.0;
inline constexpr double nearestReading = 14.6;
/// Behind this the road is out of the picture.
inline constexpr double farthestVisible = 130.0;

inline constexpr double plateWidth = 0.68;
inline constexpr double plateHeight = 0.165;

/// The x of the middle of the lane that turns off, at a distance.
double TurnOffLaneX(double z);
inline constexpr double comingLaneX = -1.9;
inline constexpr double goingLaneX = 1.9;

/// The clip's vehicles, in the order in which their plates become readable.
std::vector<Vehicle> MakeTraffic(std::uint64_t seed, double seconds);

/// Half the width, the height and the length of a vehicle, in metres.
struct Extent {
    double halfWidth;
    double height;
    double length;
};
Extent ExtentOf(VehicleShape shape);

/// A point of a vehicle, given by what lies to the right of its middle as the camera sees it, above the ground and
/// behind the end that the camera sees.
Point OnVehicle(const Place& place, double right, double up, double behind);

PlateCorners PlateCornersAt(const Vehicle& vehicle, const Place& place, const Camera& camera);

/// Each vehicle's plate where it can be read in that frame: large enough, wholly in the picture, hidden by nothing.
std::vector<std::optional<PlateCorners>> ReadablePlates(const std::vector<Vehicle>& vehicles, double second,
                                                        const Camera& camera, int width, int height);

}  // namespace road_clip
