/// The engine's configuration file.
#pragma once

#include <istream>
#include <stdexcept>

#include "reference/reader/plate_frame_reader.h"

namespace plate_reading {

/// What is wrong, in one line that names the line of the file.
class ConfigurationError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Reads lines of "key = value"; # begins a comment, empty lines are skipped, a key stands there once. The keys are
///
///     templates = none | br | eu | us | PATTERN...
///     confirmations = 1 to 9
///
/// where the words of templates are divided by spaces, regions and patterns may stand side by side, and a pattern is 4
/// to 9 of L (a letter) and D (a digit). Throws ConfigurationError.
ReadingOptions ReadConfiguration(std::istream& file);

}  // namespace plate_reading
