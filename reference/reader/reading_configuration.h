/// The engine's configuration file.
#pragma once

#include <istream>
#include <stdexcept>

#include "reference/reader/plate_frame_reader.h"

namespace plate_reading {

/// The message is one line and contains the number of the line in the file.
class ConfigurationError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Reads lines of "key = value"; # begins a comment, empty lines are skipped, a key may appear once. The keys are
///
///     templates = none | br | eu | us | PATTERN...
///     countries = COUNTRY, ...
///     confirmations = 1 to 9
///
/// The words of templates are separated by spaces and may mix regions and patterns; a pattern is 4 to 12 of L (a
/// letter) and D (a digit). Countries are ISO 3166-1 alpha-3 codes, separated by commas or spaces, whose formats are
/// known. Throws ConfigurationError.
ReadingOptions ReadConfiguration(std::istream& file);

}  // namespace plate_reading
