/// What the throwing engine and its test agree on.
#pragma once

namespace throwing_engine {

/// The environment variable that names the function that throws.
inline constexpr char functionVariable[] = "VEXLANE_THROWING_FUNCTION";
/// Set when what is thrown shall be no standard exception.
inline constexpr char otherVariable[] = "VEXLANE_THROWS_OTHER";

inline constexpr char recognize[] = "Recognize2";
inline constexpr char setRange[] = "SetPlateRange";
inline constexpr char thrownText[] = "the engine has failed";

}  // namespace throwing_engine
