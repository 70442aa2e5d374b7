#include "diagnostics/debug_level.h"

#include <atomic>
#include <cstdlib>
#include <exception>

#include "diagnostics/registry_key.h"
#include "sdk/module.h"

namespace diagnostics {

namespace {

// Written before it is read; atomic because a host may initialise the module again while an old thread is ending.
std::atomic<std::int32_t> debugLevel = 0;

// Like atoi, but clamped: the text comes from outside.
std::int32_t ParseNumber(const std::string& text) {
    const long long number = std::strtoll(text.c_str(), nullptr, 10);
    if (number > INT32_MAX) {
        return INT32_MAX;
    }
    return number < INT32_MIN ? INT32_MIN : static_cast<std::int32_t>(number);
}

}  // namespace

std::int32_t ReadDebugLevel() noexcept {
    try {
        const RegistryKey key(OKM8::DebugLevelValue::Key);
        const std::string text = key.ReadString(OKM8::DebugLevelValue::Name);
        return text.empty() ? 0 : ParseNumber(text);
    } catch (const std::exception&) {
        return 0;
    }
}

std::int32_t DebugLevel() {
    return debugLevel.load(std::memory_order_relaxed);
}

void SetDebugLevel(std::int32_t level) {
    debugLevel.store(level, std::memory_order_relaxed);
}

}  // namespace diagnostics
