/// The one number that switches the detailed lines on.
#pragma once

#include <cstdint>

namespace diagnostics {

/// Reads the level from the registry: value "DebugLevel" of the key SOFTWARE\Tellumark\KORA\DEBUG, decimal text, of the
/// machine hive or else of the user hive. A missing key is made, without a value. 0 whenever there is nothing to read,
/// and on allocation failure. Any thread.
std::int32_t ReadDebugLevel() noexcept;

/// The process-wide level: 0 is quiet, anything else verbose. Any thread.
std::int32_t DebugLevel();

/// Called while no detector exists.
void SetDebugLevel(std::int32_t level);

}  // namespace diagnostics
