/// The error that ends a run, and the exit statuses.
#pragma once

#include <stdexcept>
#include <string>

namespace plate_host {

/// Ends the run: the text is one line for standard error, and the exit status is 2.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The frames of a video cannot be kept.
class KeepFailure : public Failure {
  public:
    using Failure::Failure;
};

inline constexpr int exitDefect = 1;   ///< the library violated the contract, or the output could not be written
inline constexpr int exitFailure = 2;  ///< any other error

}  // namespace plate_host
