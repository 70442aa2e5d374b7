/// Names shared by the throwing engine and its test.
#pragma once

namespace throwing_engine {

/// The environment variable that names the function that throws.
inline constexpr char functionVariable[] = "VEXLANE_THROWING_FUNCTION";
/// Set when the exception must not be derived from std::exception.
inline constexpr char otherVariable[] = "VEXLANE_THROWS_OTHER";

inline constexpr char recognize[] = "Recognize2";
inline constexpr char setRange[] = "SetPlateRange";
inline constexpr char thrownText[] = "the engine has failed";

}  // namespace throwing_engine
