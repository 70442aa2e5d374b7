/// Points of the drawn world and their projection. In metres: x to the right, y up, z away from the camera, which is
/// above the oncoming lane.
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

/// A road camera on a pole, slightly tilted and rolled.
class Camera {
  public:
    Camera(int width, int height) : middleX_(width / 2.0), middleY_(height / 2.0), focalLength_(3.28 * width) {}

    Pixel Project(const Point& point) const {
        const Point seen = point - Position();
        const double right = seen.x * std::cos(yaw) - seen.z * std::sin(yaw);
        const double ahead = seen.x * std::sin(yaw) + seen.z * std::cos(yaw);
        const double depth = ahead * std::cos(tilt) - seen.y * std::sin(tilt);
        const double up = ahead * std::sin(tilt) + seen.y * std::cos(tilt);
        const double x = focalLength_ * right / depth;
        const double y = -focalLength_ * up / depth;
        return {middleX_ + x * std::cos(roll) - y * std::sin(roll), middleY_ + x * std::sin(roll) + y * std::cos(roll)};
    }

    static Point Position() { return {0.0, 2.65, 0.0}; }

  private:
    static constexpr double degree = 3.14159265358979323846 / 180.0;
    static constexpr double tilt = 6.4 * degree;   // downwards
    static constexpr double yaw = 1.0 * degree;    // to the right
    static constexpr double roll = -1.8 * degree;  // clockwise
    double middleX_;
    double middleY_;
    double focalLength_;  // pixels
};

/// A plate's corners in the engine's order: top left, bottom left, top right, bottom right.
using PlateCorners = std::array<Pixel, 4>;

}  // namespace road_clip
