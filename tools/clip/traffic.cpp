#include "tools/clip/traffic.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "tools/clip/random.h"

namespace road_clip {
namespace {

// Stopping and starting again: where, for how long, and how hard.
constexpr double stopZ = 24.0;
constexpr double stopSeconds = 3.6;
constexpr double startAcceleration = 2.2;
constexpr double brakeAcceleration = 4.0;

// The turn-off: the distances between which the lane bends, and its slope behind the bend.
constexpr double bendBegin = 46.0;
constexpr double bendEnd = 32.0;
constexpr double bendSlope = 0.42;

/// How far the stopping vehicle has come, having been readable for `seconds`.
double StoppingDistance(double speed, double seconds, bool& standing) {
    const double brakeDistance = speed * speed / (2 * brakeAcceleration);
    const double cruiseSeconds = (farthestReading - stopZ - brakeDistance) / speed;
    const double brakeSeconds = speed / brakeAcceleration;
    standing = false;
    if (seconds <= cruiseSeconds) {
        return speed * seconds;
    }
    double left = seconds - cruiseSeconds;
    const double toStop = farthestReading - stopZ;
    if (left <= brakeSeconds) {
        return speed * cruiseSeconds + speed * left - brakeAcceleration * left * left / 2;
    }
    left -= brakeSeconds;
    if (left <= stopSeconds) {
        standing = true;
        return toStop;
    }
    left -= stopSeconds;
    const double startSeconds = speed / startAcceleration;
    if (left <= startSeconds) {
        return toStop + startAcceleration * left * left / 2;
    }
    return toStop + startAcceleration * startSeconds * startSeconds / 2 + speed * (left - startSeconds);
}

struct Appointment {
    double second;
    double speed;
    Manner manner;
    VehicleShape shape;
};

// The traffic of one round. The tracker looks for a vehicle for three seconds after its last reading; one that goes is
// lost far up the road, so nothing new may come down from there during that time, nor may the next one that goes have
// come so far. A vehicle that comes is followed only at a distance at which its roof hides no plate.
constexpr double roundSeconds = 25.2;
constexpr Appointment appointments[] = {
    {0.4, 8.0, Manner::Comes, VehicleShape::Car},
    {1.4, 8.5, Manner::Goes, VehicleShape::Van},
    {2.1, 8.0, Manner::Comes, VehicleShape::Car},
    {7.4, 9.5, Manner::Goes, VehicleShape::Car},
    {7.6, 8.0, Manner::ComesAndTurnsOff, VehicleShape::Car},
    {13.3, 8.0, Manner::ComesAndStops, VehicleShape::Van},
    {13.7, 10.0, Manner::Goes, VehicleShape::Truck},
    {18.2, 10.0, Manner::Goes, VehicleShape::Car},
    {23.9, 9.0, Manner::Comes, VehicleShape::Car},
};
constexpr std::size_t firstTaxi = 0;
constexpr std::size_t secondTaxi = 2;

// The seconds that must be left behind a vehicle's last reading, for the tracker to give it up.
constexpr double secondsToGiveUp = 3.2;

constexpr Colour taxiColour{0.90, 0.70, 0.12};
constexpr Colour paints[] = {
    {0.62, 0.10, 0.10}, {0.14, 0.26, 0.50}, {0.78, 0.79, 0.80}, {0.16, 0.17, 0.19},
    {0.93, 0.93, 0.91}, {0.12, 0.36, 0.27}, {0.40, 0.43, 0.46}, {0.66, 0.38, 0.14},
};

char Letter(Random& random) {
    // Without those that look like digits.
    constexpr std::string_view letters = "ABCDEFGHJKLMNPRSTUVWXYZ";
    return letters[static_cast<std::size_t>(random.Below(static_cast<int>(letters.size())))];
}

char Digit(Random& random) {
    return static_cast<char>('0' + random.Below(10));
}

std::string MakePlate(Random& random) {
    std::string plate;
    plate += Letter(random);
    plate += Letter(random);
    for (int i = 0; i < 4; ++i) {
        plate += Digit(random);
    }
    plate += Letter(random);
    plate += Letter(random);
    return plate;
}

double SecondsReadable(const Appointment& appointment) {
    const double seconds = (farthestReading - nearestReading) / appointment.speed;
    return appointment.manner == Manner::ComesAndStops ? seconds + stopSeconds + 4.0 : seconds;
}

std::vector<Pixel> HullOf(const Vehicle& vehicle, const Place& place, const Camera& camera) {
    const Extent extent = ExtentOf(vehicle.shape);
    std::vector<Pixel> corners;
    for (const double right : {-extent.halfWidth, extent.halfWidth}) {
        for (const double up : {0.0, extent.height}) {
            for (const double behind : {0.0, extent.length}) {
                corners.push_back(camera.Project(OnVehicle(place, right, up, behind)));
            }
        }
    }
    return corners;
}

double Side(const Pixel& a, const Pixel& b, const Pixel& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

/// True when the point lies in the convex hull of the points: in one of the triangles between them.
bool InHull(const std::vector<Pixel>& points, const Pixel& point) {
    for (std::size_t i = 0; i < points.size(); ++i) {
        for (std::size_t j = i + 1; j < points.size(); ++j) {
            for (std::size_t k = j + 1; k < points.size(); ++k) {
                const double first = Side(points[i], points[j], point);
                const double second = Side(points[j], points[k], point);
                const double third = Side(points[k], points[i], point);
                if ((first >= 0 && second >= 0 && third >= 0) || (first <= 0 && second <= 0 && third <= 0)) {
                    return true;
                }
            }
        }
    }
    return false;
}

bool InPicture(const PlateCorners& corners, int width, int height) {
    constexpr double margin = 3.0;
    return std::all_of(corners.begin(), corners.end(), [&](const Pixel& corner) {
        return corner.x >= margin && corner.x <= width - 1 - margin && corner.y >= margin &&
               corner.y <= height - 1 - margin;
    });
}

}  // namespace

double TurnOffLaneX(double z) {
    const double along = std::max(bendBegin - z, 0.0);
    const double bend = bendBegin - bendEnd;
    const double aside = along < bend ? bendSlope * along * along / (2 * bend) : bendSlope * (along - bend / 2);
    return comingLaneX - aside;
}

Place Vehicle::PlaceAt(double second) const {
    const double since = second - readableFrom;
    Place place;
    if (manner == Manner::Goes) {
        place.x = goingLaneX;
        place.z = nearestReading + speed * since;
        return place;
    }
    place.x = comingLaneX;
    place.z = farthestReading - speed * since;
    if (manner == Manner::ComesAndStops) {
        place.z = farthestReading - StoppingDistance(speed, since, place.standing);
    }
    if (manner == Manner::ComesAndTurnsOff) {
        place.x = TurnOffLaneX(place.z);
        constexpr double step = 0.5;
        place.turn = std::atan2(TurnOffLaneX(place.z + step) - TurnOffLaneX(place.z - step), 2 * step);
    }
    return place;
}

std::vector<Vehicle> MakeTraffic(std::uint64_t seed, double seconds) {
    Random random(seed);
    std::vector<Vehicle> vehicles;
    for (double roundStart = 0; roundStart < seconds; roundStart += roundSeconds) {
        std::string firstTaxiPlate;
        for (std::size_t i = 0; i < std::size(appointments); ++i) {
            const Appointment& appointment = appointments[i];
            Vehicle vehicle;
            vehicle.plate = MakePlate(random);
            vehicle.shape = appointment.shape;
            vehicle.manner = appointment.manner;
            vehicle.colour = paints[static_cast<std::size_t>(random.Below(static_cast<int>(std::size(paints))))];
            vehicle.speed = appointment.speed * random.Between(0.99, 1.01);
            vehicle.readableFrom = roundStart + appointment.second + random.Between(-0.02, 0.02);
            if (i == firstTaxi) {
                firstTaxiPlate = vehicle.plate;
                vehicle.colour = taxiColour;
            }
            if (i == secondTaxi) {
                // Two of one owner, whose plates differ in one digit.
                char& digit = firstTaxiPlate[5];
                digit = digit == '9' ? '0' : static_cast<char>(digit + 1);
                vehicle.plate = firstTaxiPlate;
                vehicle.colour = taxiColour;
            }
            if (vehicle.readableFrom + SecondsReadable(appointment) + secondsToGiveUp <= seconds) {
                vehicles.push_back(vehicle);
            }
        }
    }
    return vehicles;
}

Extent ExtentOf(VehicleShape shape) {
    switch (shape) {
        case VehicleShape::Van:
            return {0.98, 2.05, 5.0};
        case VehicleShape::Truck:
            return {1.22, 3.30, 8.0};
        case VehicleShape::Car:
            break;
    }
    return {0.90, 1.45, 4.3};
}

Point OnVehicle(const Place& place, double right, double up, double behind) {
    const double cosine = std::cos(place.turn);
    const double sine = std::sin(place.turn);
    return {place.x + right * cosine + behind * sine, up, place.z - right * sine + behind * cosine};
}

PlateCorners PlateCornersAt(const Vehicle& vehicle, const Place& place, const Camera& camera) {
    const double top = vehicle.PlateHeight() + plateHeight / 2;
    const double bottom = vehicle.PlateHeight() - plateHeight / 2;
    return {camera.Project(OnVehicle(place, -plateWidth / 2, top, 0)),
            camera.Project(OnVehicle(place, -plateWidth / 2, bottom, 0)),
            camera.Project(OnVehicle(place, plateWidth / 2, top, 0)),
            camera.Project(OnVehicle(place, plateWidth / 2, bottom, 0))};
}

std::vector<std::optional<PlateCorners>> ReadablePlates(const std::vector<Vehicle>& vehicles, double second,
                                                        const Camera& camera, int width, int height) {
    std::vector<std::optional<PlateCorners>> plates(vehicles.size());
    for (std::size_t i = 0; i < vehicles.size(); ++i) {
        const Place place = vehicles[i].PlaceAt(second);
        if (place.z < nearestReading - 1 || place.z > farthestReading) {
            continue;
        }
        const PlateCorners corners = PlateCornersAt(vehicles[i], place, camera);
        if (!InPicture(corners, width, height)) {
            continue;
        }
        const bool hidden = std::any_of(vehicles.begin(), vehicles.end(), [&](const Vehicle& other) {
            const Place otherPlace = other.PlaceAt(second);
            if (&other == &vehicles[i] || otherPlace.z >= place.z || otherPlace.z < 1) {
                return false;
            }
            const std::vector<Pixel> hull = HullOf(other, otherPlace, camera);
            return std::any_of(corners.begin(), corners.end(),
                               [&](const Pixel& corner) { return InHull(hull, corner); });
        });
        if (!hidden) {
            plates[i] = corners;
        }
    }
    return plates;
}

}  // namespace road_clip
