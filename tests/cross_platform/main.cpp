// transcript FIRST COUNT FILE: plays COUNT random rounds from seed FIRST on and writes everything that the library does
// in them to FILE. The output is identical on every system, byte by byte.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/cross_platform/round.h"

int main(int count, char** arguments) {
    if (count != 4) {
        std::fprintf(stderr, "usage: transcript FIRST COUNT FILE\n");
        return 2;
    }
    try {
        const std::uint64_t first = std::stoull(arguments[1]);
        const std::uint64_t rounds = std::stoull(arguments[2]);
        std::ofstream file(arguments[3], std::ios::binary);
        // A current folder in which the server's program cannot be found.
        const std::filesystem::path before = std::filesystem::current_path();
        std::filesystem::current_path(std::filesystem::temp_directory_path());
        for (std::uint64_t seed = first; seed < first + rounds; ++seed) {
            file << transcript::PlayRound(seed);
        }
        std::filesystem::current_path(before);
        file << "end\n";
        file.close();
        if (!file) {
            throw std::runtime_error("the transcript cannot be written");
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "transcript: %s\n", error.what());
        return 1;
    }
    return 0;
}
