/// The calling thread's last system error.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// Returns the error of this thread's last failed call to a function of platform/; 0 for none. Successful calls do not
/// change it.
std::uint32_t LastError();

/// Sets this thread's last error; 0 clears it.
void SetLastError(std::uint32_t error);

/// Returns the system's message for an error, including a line end where the system adds one; empty for 0 and for an
/// error without a message. Any thread.
std::string SystemErrorText(std::uint32_t error);

}  // namespace platform
