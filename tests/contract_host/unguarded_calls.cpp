// Calls into the host and the engine as they would be without a guard, in place of the library's.

#include "platform/foreign_call.h"

std::uint32_t platform::internal::vexlane_guard_foreign_call(std::uint32_t (*function)(void*), void* context) {
    return function(context);
}
