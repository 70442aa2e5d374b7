/// The files of the page, which the build puts into the program.
#pragma once

#include <cstddef>

namespace report {

/// Bytes and not a text, because compilers limit the length of string literals.
struct PagePart {
    const unsigned char* bytes;
    std::size_t size;
    const char* checksum;  ///< SHA-256, hexadecimal
};

extern const PagePart pageHtml;
extern const PagePart pageCss;
extern const PagePart pageJs;

}  // namespace report
