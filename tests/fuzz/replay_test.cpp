// Runs one fuzzer's entry function on its corpus and on mutations of it from a fixed seed. On an error the function
// ends the process and the input is printed.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "fuzz/input.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

#if defined(__SANITIZE_THREAD__)
constexpr int runs = VEXLANE_REPLAY_RUNS / 10;
#else
constexpr int runs = VEXLANE_REPLAY_RUNS;
#endif
constexpr std::size_t maxInputSize = 256;

const Bytes* fed = nullptr;

// The process is about to end, so calls that are unsafe in a signal handler do not matter here.
void PrintInput() {
    if (fed != nullptr) {
        fuzz::PrintForTest(*fed);
    }
}

void PrintInputAndEnd(int signal) {
    PrintInput();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void Feed(const Bytes& input) {
    fed = &input;
    LLVMFuzzerTestOneInput(input.data(), input.size());
    fed = nullptr;
}

class Replay : public testing::Test {
  protected:
    Replay() {
        for (const int signal : {SIGABRT, SIGSEGV, SIGFPE, SIGILL}) {
            std::signal(signal, PrintInputAndEnd);
        }
#if defined(__SANITIZE_ADDRESS__)
        __sanitizer_set_death_callback(PrintInput);
#endif
        std::vector<std::filesystem::path> files;
        for (const auto& file : std::filesystem::directory_iterator(VEXLANE_REPLAY_CORPUS)) {
            files.push_back(file.path());
        }
        std::ranges::sort(files);
        for (const std::filesystem::path& file : files) {
            std::ifstream stream(file, std::ios::binary);
            corpus.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
        }
    }

    std::size_t Below(std::size_t limit) {
        return static_cast<std::size_t>(random() % limit);
    }
    std::uint8_t Byte() {
        return static_cast<std::uint8_t>(random());
    }
    const Bytes& AnyFile() {
        return corpus[Below(corpus.size())];
    }

    Bytes RandomBytes(std::size_t size) {
        Bytes bytes(size);
        std::ranges::generate(bytes, [this] { return Byte(); });
        return bytes;
    }

    void Change(Bytes& bytes) {
        const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(Below(bytes.size() + 1));
        switch (Below(6)) {
            case 0:
                bytes.insert(at, Byte());
                break;
            case 1: {
                const Bytes& other = AnyFile();
                bytes.insert(at, other.begin() + static_cast<std::ptrdiff_t>(Below(other.size() + 1)), other.end());
                break;
            }
            case 2:
                bytes.erase(at, bytes.end());
                break;
            default:
                if (at == bytes.end()) {
                    break;
                }
                switch (Below(4)) {
                    case 0:
                        bytes.erase(at);
                        break;
                    case 1:
                        *at = static_cast<std::uint8_t>(*at ^ 1u << Below(8));
                        break;
                    case 2:
                        *at = Below(2) == 0 ? 0 : 0xff;
                        break;
                    default:
                        *at = Byte();
                        break;
                }
                break;
        }
        bytes.resize(std::min(bytes.size(), maxInputSize));
    }

    std::mt19937_64 random{20240117};
    std::vector<Bytes> corpus;
};

TEST_F(Replay, ToleratesTheCorpus) {
    ASSERT_FALSE(corpus.empty()) << VEXLANE_REPLAY_CORPUS;
    for (const Bytes& file : corpus) {
        Feed(file);
    }
}

TEST_F(Replay, ToleratesTheMutatedCorpus) {
    ASSERT_FALSE(corpus.empty()) << VEXLANE_REPLAY_CORPUS;
    for (int run = 0; run < runs; ++run) {
        Bytes bytes = AnyFile();
        for (std::size_t changes = 1 + Below(4); changes > 0; --changes) {
            Change(bytes);
        }
        Feed(bytes);
    }
}

TEST_F(Replay, ToleratesRandomBytes) {
    Feed({});
    for (int run = 0; run < runs / 4; ++run) {
        Feed(RandomBytes(Below(run % 4 == 0 ? maxInputSize : 40)));
    }
}

}  // namespace
