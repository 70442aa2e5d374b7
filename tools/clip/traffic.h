/// Which vehicles drive through the clip, and where each of them is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/clip/geometry.h"
#include "tools/clip/plate.h"

namespace road_clip {

enum class VehicleShape { Car, Van, Truck };

enum class Manner { Comes, Goes, ComesAndStops, ComesAndTurnsOff };

/// Where a vehicle is: the middle of the end that the camera sees, on the ground.
struct Place {
    double x = 0;
    double z = 0;
    double turn = 0;  ///< angle of the vehicle's length axis to the z axis, to the right, in radians
    bool standing = false;
};

struct Vehicle {
    std::string plate;
    PlateDesign design = PlateDesign::European;
    VehicleShape shape = VehicleShape::Car;
    Manner manner = Manner::Comes;
    Colour colour;
    double speed = 0;          ///< metres per second, while it does not brake
    double entryTime = 0;      ///< when it passes the place from which its plate may be readable, in seconds
    double lateralOffset = 0;  ///< offset to the right of the middle of its lane, in metres
    double plateRotation = 0;  ///< rotation of its plate, clockwise, in radians
    double dirt = 0;           ///< on its plate, 0 to 1

    bool ShowsItsRear() const { return manner == Manner::Goes; }
    double PlateHeight() const { return shape == VehicleShape::Truck ? 0.70 : 0.43; }  ///< of the middle, in metres
    Place PlaceAt(double second) const;
};

/// Where vehicles enter: oncoming and departing ones.
inline constexpr double comingFrom = 36.5;
inline constexpr double goingFrom = 18.0;
/// Vehicles farther away than this are not drawn.
inline constexpr double maxVisibleDistance = 130.0;

/// The length of one round of traffic and the default length of the clip.
inline constexpr double roundSeconds = 54.2;

/// The x of the middle of the lane that turns off, at distance `z`.
double TurnOffLaneX(double z);
inline constexpr double comingLaneX = -1.1;
inline constexpr double goingLaneX = 2.9;
inline constexpr double stopLineZ = 18.6;

/// The clip's vehicles, in the order in which they enter.
std::vector<Vehicle> MakeTraffic(std::uint64_t seed, double seconds);

/// The length of the longest common subsequence of both texts.
std::size_t CommonCharacters(const std::string& a, const std::string& b);

/// Half the width, the height and the length of a vehicle, in metres.
struct Extent {
    double halfWidth;
    double height;
    double length;
};
Extent ExtentOf(VehicleShape shape);

/// A point of a vehicle, in metres as the camera sees it: to the right of the vehicle's middle, above the ground, and
/// away from the camera, counted from the vehicle's near end.
Point OnVehicle(const Place& place, double right, double up, double behind);

/// A point of a vehicle's plate, relative to the plate's middle.
Point OnPlate(const Vehicle& vehicle, const Place& place, double right, double up);

PlateCorners PlateCornersAt(const Vehicle& vehicle, const Place& place, const Camera& camera);

/// The smallest plate and the top of the region that the demonstration searches, relative to the picture's size.
inline constexpr double minReadableWidth = 0.04;
inline constexpr double minReadableTop = 0.20;

/// A plate that is entirely in the picture and not hidden.
struct PlateView {
    PlateCorners corners;
    bool readable = false;  ///< wide enough, and in the searched region
};

/// Each vehicle's plate in one frame.
using PlateViews = std::vector<std::optional<PlateView>>;

PlateViews ViewPlates(const std::vector<Vehicle>& vehicles, double second, const Camera& camera, int width, int height);

}  // namespace road_clip
