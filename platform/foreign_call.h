/// Calls into code that may have been built by another compiler: the host's objects and the engine.
///
/// GCC on Windows handles only its own exceptions. A C++ exception of the Microsoft runtime would pass through this
/// library without running destructors or catch blocks: locks would stay locked and buffers would never be released.
#pragma once

#include <cstdint>
#include <functional>
#include <type_traits>

#if defined(_WIN32) && defined(__GNUC__)
#if !defined(__x86_64__) || !defined(__SEH__)
#error "only the table-based exceptions of 64-bit Windows are supported"
#endif
#define VEXLANE_GUARDS_FOREIGN_CALLS 1
#else
#define VEXLANE_GUARDS_FOREIGN_CALLS 0
#endif

namespace platform {

/// Replaces an exception of another compiler's runtime, which has been destroyed. Not derived from std::exception,
/// because only the code of the original is known.
struct ForeignException {
    std::uint32_t code;  ///< the exception's code in Windows
};

#if VEXLANE_GUARDS_FOREIGN_CALLS

namespace internal {

/// Calls `function(context)`. Returns 0, or the code of the foreign exception that left it. GCC's stack frames between
/// this function and the throw are skipped, including their destructors and catch blocks.
extern "C" std::uint32_t vexlane_guard_foreign_call(std::uint32_t (*function)(void*), void* context);

template <class Action>
void GuardForeignCall(Action& action) {
    const auto run = [](void* context) -> std::uint32_t {
        (*static_cast<Action*>(context))();
        return 0;
    };
    if (const std::uint32_t code = vexlane_guard_foreign_call(run, &action); code != 0) [[unlikely]] {
        throw ForeignException{code};
    }
}

}  // namespace internal

#endif

/// Calls a function, or an operation of the object that is the first argument, and returns its result:
///
///     CallForeign<&ICompositeBuffer::GetWidth>(buffer)
///
/// A C++ exception of another compiler that leaves the call is rethrown as ForeignException. All others pass unchanged:
/// those of this compiler, and those of the system, such as access violations, breakpoints and debug output. Arguments
/// are scalars made by the caller, so only the call itself is between the guard and the foreign code. Any thread.
template <auto operation, class... Arguments>
std::invoke_result_t<decltype(operation), Arguments...> CallForeign(Arguments... arguments) {
    using Result = std::invoke_result_t<decltype(operation), Arguments...>;
    static_assert((std::is_scalar_v<Arguments> && ...), "arguments must be scalars");
    static_assert(std::is_void_v<Result> || std::is_scalar_v<Result>, "compilers return class objects differently");
#if VEXLANE_GUARDS_FOREIGN_CALLS
    if constexpr (std::is_void_v<Result>) {
        auto action = [&] { std::invoke(operation, arguments...); };
        internal::GuardForeignCall(action);
    } else {
        Result result{};
        auto action = [&] { result = std::invoke(operation, arguments...); };
        internal::GuardForeignCall(action);
        return result;
    }
#else
    return std::invoke(operation, arguments...);
#endif
}

}  // namespace platform
