/// The calling thread's last system error.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// The error of this thread's last failed call into this folder; 0 for none. A success leaves it as it was.
std::uint32_t LastError();

/// Sets this thread's last error; 0 clears it.
void SetLastError(std::uint32_t error);

/// The system's message for an error, a trailing line end included where the system has one; empty for 0 and for an
/// error without a message.
std::string SystemErrorText(std::uint32_t error);

}  // namespace platform
