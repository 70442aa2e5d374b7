/// This system's error messages.
#pragma once

#include <cstdint>
#include <string>

#include "platform/last_error.h"

namespace host_test::SystemText {

/// Returns the message without the dot and the line end that Windows adds.
inline std::string TextOf(std::uint32_t error) {
    const std::string text = platform::SystemErrorText(error);
    return text.substr(0, text.find_last_not_of(".\r\n ") + 1);
}

inline std::string NoSuchFile() {
    return TextOf(2);  // on every system
}

#ifdef _WIN32
inline std::string Folder() {
    return "it is a folder";
}
inline std::string UnwritableOutput() {
    return TextOf(5);  // access denied
}
inline std::string NoLibrary(const std::string&) {
    return "it is not a library for 64-bit Windows";
}
inline std::string ShortLibrary(const std::string& path) {
    return NoLibrary(path);
}
inline std::string LibraryWithoutEngine() {
    return "a library that it needs is missing";
}
#else
inline std::string Folder() {
    return "Is a directory";
}
inline std::string UnwritableOutput() {
    return "No space left on device";
}
inline std::string NoLibrary(const std::string& path) {
    return path + ": invalid ELF header";
}
inline std::string ShortLibrary(const std::string& path) {
    return path + ": file too short";
}
inline std::string LibraryWithoutEngine() {
    return "libRecon64.so: cannot open shared object file: No such file or directory";
}
#endif

}  // namespace host_test::SystemText
