#include "reference/reader/networks.h"

#ifdef _WIN32
#define CONSTANTS ".section .rdata,\"dr\"\n"
#else
#define CONSTANTS ".section .rodata\n"
#endif

// The assembler embeds the files, because a C++ array would take longer to compile than all other code.
#define EMBED(symbol, path)                                      \
    __asm__(CONSTANTS ".balign 16\n" #symbol                     \
                      "Begin:\n"                                 \
                      ".incbin \"" path "\"\n" #symbol           \
                      "End:\n.byte 0\n"                          \
                      ".globl " #symbol "Begin\n.globl " #symbol \
                      "End\n"                                    \
                      ".text\n");                                \
    extern "C" const unsigned char symbol##Begin[];              \
    extern "C" const unsigned char symbol##End[]

EMBED(plateDetectorNetwork, VEXLANE_DETECTOR_NETWORK);
EMBED(plateReaderNetwork, VEXLANE_READER_NETWORK);
EMBED(plateFormatsTable, VEXLANE_FORMATS_TABLE);

namespace plate_reading {

std::vector<unsigned char> DetectorNetwork() {
    return {plateDetectorNetworkBegin, plateDetectorNetworkEnd};
}

std::vector<unsigned char> ReaderNetwork() {
    return {plateReaderNetworkBegin, plateReaderNetworkEnd};
}

std::string_view FormatsTable() {
    return {reinterpret_cast<const char*>(plateFormatsTableBegin), reinterpret_cast<const char*>(plateFormatsTableEnd)};
}

}  // namespace plate_reading
