/// The error that ends an evaluation, and the exit statuses.
#pragma once

#include <stdexcept>

namespace plate_evaluation {

/// The text is one line for standard error.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

inline constexpr int exitUnreadablePictures = 1;  ///< there are results, but some pictures could not be read
inline constexpr int exitFailure = 2;             ///< any other error

}  // namespace plate_evaluation
