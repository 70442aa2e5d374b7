/// C++ exceptions as the Microsoft compiler throws them, built by hand. Windows only; includes no system headers, so
/// that code without them can use it.
#pragma once

#include <stdint.h>

extern "C" {
__declspec(dllimport) void RaiseException(unsigned long code, unsigned long flags, unsigned long count,
                                          const unsigned long long* arguments);
extern char __ImageBase;
}

namespace microsoft_exception {

inline constexpr unsigned long code = 0xE06D7363;
inline constexpr unsigned long nonContinuable = 1;
inline constexpr uint64_t intactMark = 0x1234567890ABCDEF;

/// An object that is thrown: counts how often it is destroyed while it is intact.
struct Thrown {
    int* destroyed;
    uint64_t mark = intactMark;
};

/// The compiler's description of a thrown type; functions and lists are offsets from the beginning of the image.
struct ThrowInfo {
    uint32_t attributes;
    uint32_t destructor;
    uint32_t forwardCompatible;
    uint32_t catchableTypes;
};

/// The types that the object can be caught as: none.
inline const uint32_t catchableTypes[1] = {0};

inline void Destroy(Thrown* object) {
    if (object->mark == intactMark) {
        ++*object->destroyed;
    }
    object->mark = 0;
}

inline uint32_t OffsetInImage(const void* address) {
    return static_cast<uint32_t>(static_cast<const char*>(address) - &__ImageBase);
}

/// Throws an object of another stack frame, as a throw without an operand does.
[[gnu::noinline]] inline void ThrowAgain(Thrown& object) {
    const ThrowInfo info = {0, OffsetInImage(reinterpret_cast<const void*>(&Destroy)), 0,
                            OffsetInImage(catchableTypes)};
    const unsigned long long arguments[] = {0x19930520, reinterpret_cast<unsigned long long>(&object),
                                            reinterpret_cast<unsigned long long>(&info),
                                            reinterpret_cast<unsigned long long>(&__ImageBase)};
    RaiseException(code, nonContinuable, 4, arguments);
}

/// Throws an object of this stack frame.
[[gnu::noinline]] inline void Throw(int* destroyed) {
    Thrown object = {destroyed};
    ThrowAgain(object);
}

}  // namespace microsoft_exception
