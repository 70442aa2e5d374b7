/// The outlines of letters and digits.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/clip/geometry.h"

namespace road_clip {

/// In units of the height of a capital letter: x to the right from the character's left edge, y up from the baseline.
struct Outline {
    std::vector<std::vector<Pixel>> contours;
    double width = 0;  ///< of the drawn character
    double step = 0;   ///< to the next character of a text
};

/// One thread at a time.
class Lettering {
  public:
    Lettering();
    ~Lettering();

    /// Returns the outline of a bold character. Throws std::runtime_error when the typeface is not installed. The
    /// reference stays valid.
    const Outline& Of(std::string_view typeface, char character);

  private:
    struct Face;

    std::map<std::string, std::unique_ptr<Face>, std::less<>> faces_;
    std::map<std::pair<std::string, char>, Outline> outlines_;
};

}  // namespace road_clip
