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

/// In units of the height of a capital letter: x to the right from the character's left edge, y up from the line that
/// it stands on.
struct Outline {
    std::vector<std::vector<Pixel>> contours;
    double width = 0;  ///< of what is drawn
    double step = 0;   ///< to the next character of a text
};

/// One thread at a time.
class Lettering {
  public:
    Lettering();
    ~Lettering();

    /// Bold. Throws std::runtime_error where the typeface is not installed. The answer stays valid.
    const Outline& Of(std::string_view typeface, char character);

  private:
    struct Face;

    std::map<std::string, std::unique_ptr<Face>, std::less<>> faces_;
    std::map<std::pair<std::string, char>, Outline> outlines_;
};

}  // namespace road_clip
