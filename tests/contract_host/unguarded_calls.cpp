// Calls into the host and the engine without a guard, instead of the library's guarded calls.

#include "platform/foreign_call.h"

std::uint32_t platform::internal::vexlane_guard_foreign_call(std::uint32_t (*function)(void*), void* context) {
    return function(context);
}
