/// The end of an evaluation that cannot be carried out.
#pragma once

#include <stdexcept>

namespace plate_evaluation {

/// The text is one line for standard error.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

inline constexpr int exitUnreadablePictures = 1;  ///< figures were made, and some pictures could not be read
inline constexpr int exitFailure = 2;             ///< the evaluation could not be carried out

}  // namespace plate_evaluation
