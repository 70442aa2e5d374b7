// The fuzzer's entry function with input from a seed. On an error it prints the bytes and ends the process.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "reference/transport/messages.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

class MessagesFuzzer : public testing::Test {
  protected:
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); }
    std::uint8_t Byte() { return static_cast<std::uint8_t>(random()); }

    void Try(const Bytes& bytes) {
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        accepted += transport::Decode(bytes) ? 1 : 0;
    }

    void Mutate(Bytes& bytes) {
        const std::uint32_t at = Below(static_cast<std::uint32_t>(bytes.size()));
        switch (Below(7)) {
            case 0:
                bytes[at] = Byte();
                break;
            case 1:
                bytes[at] = static_cast<std::uint8_t>(bytes[at] ^ 1u << Below(8));
                break;
            case 2:
                bytes[at] = Below(2) == 0 ? 0 : 0xFF;
                break;
            case 3:
                bytes.resize(1 + Below(400));
                break;
            case 4:
                bytes.insert(bytes.begin() + at, Byte());
                break;
            case 5:
                bytes.erase(bytes.begin() + at, bytes.begin() + at + 1);
                bytes.push_back(0);
                break;
            default:  // a size and a kind that may be right
                if (bytes.size() >= 8) {
                    bytes[0] = static_cast<std::uint8_t>(Below(9));
                    bytes[4] = static_cast<std::uint8_t>(bytes.size());
                    bytes[5] = static_cast<std::uint8_t>(bytes.size() >> 8);
                }
                break;
        }
    }

    std::mt19937_64 random{20240117};
    int accepted = 0;
};

std::vector<Bytes> Corpus() {
    const transport::Reading reading = {"AB123C", 87.5, {{{1, -2}, {3, 4}, {5, 6}, {7, 8}}}};
    std::vector<Bytes> corpus;
    for (const transport::Contents& contents : std::vector<transport::Contents>{
             transport::Greeting(), transport::GreetingReply(), transport::Range{64, 256}, transport::RangeAccepted(),
             transport::Frame{1920, 1080, {}}, transport::Frame{640, 480, {1, 2, 30, 40}}, transport::Readings(),
             transport::Readings{1, 0, {reading}},
             transport::Readings{5, 0, {reading, reading, reading, reading, reading}}, transport::Busy()}) {
        corpus.push_back(transport::Encode({1, contents}));
    }
    return corpus;
}

TEST_F(MessagesFuzzer, ToleratesRandomBytes) {
    for (int round = 0; round < 30000; ++round) {
        Bytes bytes(Below(round % 4 == 0 ? 600 : 60));
        std::generate(bytes.begin(), bytes.end(), [this] { return Byte(); });
        Try(bytes);
    }
}

TEST_F(MessagesFuzzer, ToleratesMutatedMessages) {
    const std::vector<Bytes> corpus = Corpus();
    constexpr int rounds = 60000;
    for (int round = 0; round < rounds; ++round) {
        Bytes bytes = corpus[Below(static_cast<std::uint32_t>(corpus.size()))];
        for (std::uint32_t changes = Below(5); changes > 0; --changes) {
            Mutate(bytes);
        }
        Try(bytes);
    }
    // Enough messages were accepted, and enough refused.
    EXPECT_GT(accepted, rounds / 10);
    EXPECT_LT(accepted, rounds * 9 / 10);
}

TEST_F(MessagesFuzzer, ToleratesEveryMessageWithOneByteChanged) {
    for (const Bytes& right : Corpus()) {
        for (std::size_t at = 0; at < right.size(); ++at) {
            for (unsigned value = 0; value < 256; ++value) {
                Bytes bytes = right;
                bytes[at] = static_cast<std::uint8_t>(value);
                Try(bytes);
            }
        }
    }
}

TEST_F(MessagesFuzzer, ToleratesEmptyInput) {
    LLVMFuzzerTestOneInput(nullptr, 0);
}

}  // namespace
