/// Points of the drawn world, and how the camera sees them. Metres: x to the right, y up, z away from the camera, which
/// stands above the middle of the road.
#pragma once

#include <array>
#include <cmath>

namespace road_clip {

struct Point {
    double x = 0;
    double y = 0;
    double z = 0;
};

inline Point operator+(const Point& a, const Point& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Point operator-(const Point& a, const Point& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Point operator*(const Point& a, double factor) {
    return {a.x * factor, a.y * factor, a.z * factor};
}
inline double Dot(const Point& a, const Point& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline Point Cross(const Point& a, const Point& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline Point Normalised(const Point& a) {
    const double length = std::sqrt(Dot(a, a));
    return length > 0 ? a * (1 / length) : a;
}

/// A place in the picture, in pixels from its top left corner.
struct Pixel {
    double x = 0;
    double y = 0;
};

class Camera {
  public:
    Camera(int width, int height) : middleX(width / 2.0), middleY(height / 2.0), focalLength(1.8 * width) {}

    Pixel Project(const Point& point) const {
        const Point seen = point - Position();
        const double depth = seen.z * std::cos(tilt) - seen.y * std::sin(tilt);
        const double up = seen.z * std::sin(tilt) + seen.y * std::cos(tilt);
        return {middleX + focalLength * seen.x / depth, middleY - focalLength * up / depth};
    }

    static Point Position() { return {0.0, 6.0, 0.0}; }

  private:
    static constexpr double tilt = 12.0 * 3.14159265358979323846 / 180.0;  // downwards
    double middleX;
    double middleY;
    double focalLength;  // pixels
};

/// The order in which the engine gives a plate's corners: top left, bottom left, top right, bottom right.
using PlateCorners = std::array<Pixel, 4>;

}  // namespace road_clip
