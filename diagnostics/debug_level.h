/// The debug level, which enables the detailed trace lines.
#pragma once

#include <cstdint>

namespace diagnostics {

/// Returns the level in the registry: decimal text in the value "DebugLevel" of the key SOFTWARE\Tellumark\KORA\DEBUG
/// in the machine hive or, if the key cannot be opened there, in the user hive. If neither can be opened, the key is
/// created, without a value. Returns 0 when there is no number, and on allocation failure. Any thread.
std::int32_t ReadDebugLevel() noexcept;

/// Returns the process-wide level: 0 is quiet, any other number verbose. Any thread.
std::int32_t DebugLevel();

/// Sets the process-wide level. REQUIRES: no detector exists.
void SetDebugLevel(std::int32_t level);

}  // namespace diagnostics
