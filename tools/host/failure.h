/// The end of a run that cannot be carried out.
#pragma once

#include <stdexcept>
#include <string>

namespace plate_host {

/// Ends the run: the text is one line for standard error, and the exit status is 2.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

inline constexpr int exitDefect = 1;   ///< the library broke a rule, or the output could not be written
inline constexpr int exitFailure = 2;  ///< the run could not be carried out

}  // namespace plate_host
