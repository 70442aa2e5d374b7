#include "tools/clip/traffic.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "tools/clip/random.h"

namespace road_clip {
namespace {

// Stopping and starting again: duration (s), distance (m) and accelerations (m/s^2).
constexpr double stopSeconds = 2.8;
constexpr double beforeStopLine = 0.9;
constexpr double startAcceleration = 2.2;
constexpr double brakeAcceleration = 3.6;

// The turn-off: the distances between which the lane bends, and its slope after the bend.
constexpr double bendBegin = 33.0;
constexpr double bendEnd = 26.0;
constexpr double bendSlope = 0.45;

/// The distance that a vehicle has travelled which stops after `toStop`.
double StoppingDistance(double speed, double toStop, double seconds, bool& standing) {
    const double brakeDistance = speed * speed / (2 * brakeAcceleration);
    const double cruiseSeconds = (toStop - brakeDistance) / speed;
    const double brakeSeconds = speed / brakeAcceleration;
    standing = false;
    if (seconds <= cruiseSeconds) {
        return speed * seconds;
    }
    double left = seconds - cruiseSeconds;
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

struct ScheduledVehicle {
    double second;
    double speed;
    Manner manner;
    VehicleShape shape;
    PlateDesign design;
};

// The traffic of one round. The tracker keeps a track for three seconds after its last reading. A departing vehicle
// becomes unreadable up the road, and the tracker expects it to move on towards the point where all lanes meet; until
// its track ends, no other departing vehicle may get that far and no oncoming one may become readable. The next vehicle
// follows an oncoming one only at a distance at which the roof hides no plate.
constexpr ScheduledVehicle schedule[] = {
    {0.4, 9.0, Manner::Comes, VehicleShape::Car, PlateDesign::European},
    {1.5, 7.0, Manner::Goes, VehicleShape::Van, PlateDesign::EuropeanYellow},
    {6.2, 8.0, Manner::Comes, VehicleShape::Car, PlateDesign::NorthAmerican},
    {9.1, 6.0, Manner::ComesAndTurnsOff, VehicleShape::Car, PlateDesign::European},
    {10.1, 7.5, Manner::Goes, VehicleShape::Car, PlateDesign::SouthAmerican},
    {15.8, 7.0, Manner::ComesAndStops, VehicleShape::Van, PlateDesign::European},
    {18.0, 6.5, Manner::Goes, VehicleShape::Truck, PlateDesign::EuropeanYellow},
    {24.8, 9.5, Manner::Comes, VehicleShape::Car, PlateDesign::NorthAmericanDark},
    {26.1, 7.0, Manner::Goes, VehicleShape::Car, PlateDesign::EuropeanDark},
    {31.5, 7.0, Manner::Comes, VehicleShape::Car, PlateDesign::SouthAmerican},
    {34.7, 6.0, Manner::ComesAndTurnsOff, VehicleShape::Van, PlateDesign::EuropeanYellow},
    {35.6, 7.0, Manner::Goes, VehicleShape::Car, PlateDesign::European},
    {41.7, 7.0, Manner::ComesAndStops, VehicleShape::Car, PlateDesign::European},
    {43.6, 6.5, Manner::Goes, VehicleShape::Car, PlateDesign::SouthAmerican},
    {48.2, 6.5, Manner::Goes, VehicleShape::Van, PlateDesign::European},
};

// The seconds after a vehicle's last reading until the tracker has reported and removed its track.
constexpr double secondsToGiveUp = 3.2;

constexpr Colour paints[] = {
    {0.62, 0.10, 0.10}, {0.14, 0.26, 0.50}, {0.78, 0.79, 0.80}, {0.16, 0.17, 0.19}, {0.93, 0.93, 0.91},
    {0.12, 0.36, 0.27}, {0.40, 0.43, 0.46}, {0.66, 0.38, 0.14}, {0.90, 0.70, 0.12},
};

constexpr std::string_view letters = "ABCDEFGHJKLMNPRSTUVWXYZ";
constexpr std::string_view allLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view digits = "23456789";
constexpr std::string_view allDigits = "0123456789";

/// The characters allowed at a place: letters that look like digits only where no format has a digit, and digits that
/// look like letters only where every format has a digit.
std::string_view CharactersFor(std::string_view format, std::size_t place) {
    if (place == 1) {
        return allLetters;
    }
    if (place == 3) {
        return allDigits;
    }
    return format[place] == '1' ? digits : letters;
}

/// Makes a random text that prefers the `wanted` characters among those allowed at a place.
std::string MakePlate(std::string_view format, const std::string& wanted, Random& random) {
    constexpr double preference = 0.6;
    const auto anyOf = [&](std::string_view characters) {
        return characters[static_cast<std::size_t>(random.Below(static_cast<int>(characters.size())))];
    };
    std::string plate;
    for (std::size_t i = 0; i < format.size(); ++i) {
        const std::string_view possible = CharactersFor(format, i);
        std::string preferred;
        std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(preferred),
                     [&](char character) { return possible.find(character) != std::string_view::npos; });
        plate += !preferred.empty() && random.Unit() < preference ? anyOf(preferred) : anyOf(possible);
    }
    return plate;
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

/// True when the point is in the convex hull of the points, that is, in a triangle of three of them.
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

bool IsReadable(const PlateCorners& corners, int width, int height) {
    const double plateWidth = std::hypot(corners[2].x - corners[0].x, corners[2].y - corners[0].y);
    return plateWidth >= minReadableWidth * width && std::min(corners[0].y, corners[2].y) >= minReadableTop * height;
}

/// The seconds between which a vehicle's plate can be read.
struct Appearance {
    double first = 0;
    double last = 0;
};

Appearance AppearanceOf(const Vehicle& vehicle) {
    const Camera camera(1280, 720);
    constexpr double step = 0.04;
    constexpr double maxSeconds = 20.0;
    Appearance appearance{vehicle.entryTime, vehicle.entryTime};
    for (double second = vehicle.entryTime; second < vehicle.entryTime + maxSeconds; second += step) {
        const auto view = ViewPlates({vehicle}, second, camera, 1280, 720)[0];
        if (view && view->readable) {
            appearance.last = second;
        }
    }
    return appearance;
}

/// Assigns plates that the tracker cannot confuse. While a vehicle has no readings, the tracker assigns a reading of a
/// later vehicle to its track, even far away, if the texts have two characters in common in the same order; one or two
/// misread characters may add as many common ones.
void AssignPlates(std::vector<Vehicle>& vehicles, Random& random) {
    std::vector<Appearance> appearances;
    for (const Vehicle& vehicle : vehicles) {
        appearances.push_back(AppearanceOf(vehicle));
    }
    const auto avoidsLookAlikes = [](const std::string& plate) {
        const auto has = [&](char character) { return plate.find(character) != std::string::npos; };
        return !(has('0') && has('O')) && !(has('1') && has('I'));
    };
    const auto differEnough = [&](std::size_t earlier, std::size_t later) {
        constexpr double spare = 1.5;  // seconds
        if (appearances[later].first > appearances[earlier].last + secondsToGiveUp + spare) {
            return vehicles[earlier].plate != vehicles[later].plate;
        }
        return CommonCharacters(vehicles[earlier].plate, vehicles[later].plate) == 0;
    };
    constexpr int tries = 2000;
    constexpr int attempts = 200;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string wanted(allLetters);
        wanted += allDigits;
        bool found = true;
        for (std::size_t i = 0; i < vehicles.size() && found; ++i) {
            found = false;
            for (int trial = 0; trial < tries && !found; ++trial) {
                vehicles[i].plate = MakePlate(KindOf(vehicles[i].design).format, wanted, random);
                found = avoidsLookAlikes(vehicles[i].plate);
                for (std::size_t other = 0; other < i && found; ++other) {
                    found = differEnough(other, i);
                }
            }
            std::erase_if(wanted,
                          [&](char character) { return vehicles[i].plate.find(character) != std::string::npos; });
        }
        if (found && wanted.empty()) {
            return;
        }
    }
    throw std::runtime_error("cannot find plates that differ enough; try another --seed or fewer --seconds");
}

}  // namespace

double TurnOffLaneX(double z) {
    const double along = std::max(bendBegin - z, 0.0);
    const double bend = bendBegin - bendEnd;
    const double offset = along < bend ? bendSlope * along * along / (2 * bend) : bendSlope * (along - bend / 2);
    return comingLaneX - offset;
}

Place Vehicle::PlaceAt(double second) const {
    const double since = second - entryTime;
    Place place;
    double travelled = speed * since;
    if (manner == Manner::ComesAndStops) {
        travelled = StoppingDistance(speed, comingFrom - stopLineZ - beforeStopLine, since, place.standing);
    }
    if (ShowsItsRear()) {
        place.x = goingLaneX + lateralOffset;
        place.z = goingFrom + travelled;
        return place;
    }
    place.x = comingLaneX + lateralOffset;
    place.z = comingFrom - travelled;
    if (manner == Manner::ComesAndTurnsOff) {
        place.x = TurnOffLaneX(place.z) + lateralOffset;
        constexpr double step = 0.5;
        place.turn = std::atan2(TurnOffLaneX(place.z + step) - TurnOffLaneX(place.z - step), 2 * step);
    }
    return place;
}

std::vector<Vehicle> MakeTraffic(std::uint64_t seed, double seconds) {
    Random random(seed);
    std::vector<Vehicle> vehicles;
    for (double roundStart = 0; roundStart < seconds; roundStart += roundSeconds) {
        for (const ScheduledVehicle& scheduled : schedule) {
            Vehicle vehicle;
            vehicle.design = scheduled.design;
            vehicle.shape = scheduled.shape;
            vehicle.manner = scheduled.manner;
            vehicle.colour = paints[static_cast<std::size_t>(random.Below(static_cast<int>(std::size(paints))))];
            vehicle.speed = scheduled.speed * random.Between(0.99, 1.01);
            vehicle.entryTime = roundStart + scheduled.second + random.Between(-0.02, 0.02);
            vehicle.lateralOffset = random.Between(-0.2, 0.2);
            vehicle.plateRotation = random.Between(-0.05, 0.05);
            vehicle.dirt = random.Between(0.0, 0.35);
            vehicles.push_back(vehicle);
        }
    }
    AssignPlates(vehicles, random);
    std::erase_if(vehicles,
                  [&](const Vehicle& vehicle) { return AppearanceOf(vehicle).last + secondsToGiveUp > seconds; });
    return vehicles;
}

std::size_t CommonCharacters(const std::string& a, const std::string& b) {
    std::vector<std::size_t> above(b.size() + 1);
    for (const char character : a) {
        std::vector<std::size_t> row(b.size() + 1);
        for (std::size_t i = 0; i < b.size(); ++i) {
            row[i + 1] = character == b[i] ? above[i] + 1 : std::max(above[i + 1], row[i]);
        }
        above = row;
    }
    return above.back();
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

Point OnPlate(const Vehicle& vehicle, const Place& place, double right, double up) {
    const double cosine = std::cos(vehicle.plateRotation);
    const double sine = std::sin(vehicle.plateRotation);
    return OnVehicle(place, right * cosine + up * sine, vehicle.PlateHeight() - right * sine + up * cosine, 0);
}

PlateCorners PlateCornersAt(const Vehicle& vehicle, const Place& place, const Camera& camera) {
    const double right = KindOf(vehicle.design).width / 2;
    const double up = KindOf(vehicle.design).height / 2;
    return {camera.Project(OnPlate(vehicle, place, -right, up)), camera.Project(OnPlate(vehicle, place, -right, -up)),
            camera.Project(OnPlate(vehicle, place, right, up)), camera.Project(OnPlate(vehicle, place, right, -up))};
}

PlateViews ViewPlates(const std::vector<Vehicle>& vehicles, double second, const Camera& camera, int width,
                      int height) {
    constexpr double maxDistance = 60.0;
    constexpr double minDistance = 8.0;
    PlateViews views(vehicles.size());
    for (std::size_t i = 0; i < vehicles.size(); ++i) {
        const Place place = vehicles[i].PlaceAt(second);
        if (place.z < minDistance || place.z > maxDistance) {
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
            views[i] = PlateView{corners, IsReadable(corners, width, height)};
        }
    }
    return views;
}

}  // namespace road_clip
