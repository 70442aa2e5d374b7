#include "platform/debug_output.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

class CountingSink : public platform::DebugOutputSink {
  public:
    void Write(const char* text) override {
        narrowLength += std::strlen(text);
        ++count;
    }
    void Write(const wchar_t* text) override {
        wideLength += std::wstring(text).size();
        ++count;
    }

    std::atomic<std::size_t> count = 0;
    std::atomic<std::size_t> narrowLength = 0;
    std::atomic<std::size_t> wideLength = 0;
};

std::string Format(const char* format, ...) {
    std::vector<char> line(platform::debugLineCapacity + 1, '#');
    std::va_list arguments;
    va_start(arguments, format);
    platform::FormatDebugLine(line.data(), format, arguments);
    va_end(arguments);
    EXPECT_EQ(line.back(), '#');
    return line.data();
}

TEST(DebugOutputSink, ReceivesTextsUntilItIsReplaced) {
    CountingSink first;
    CountingSink second;
    EXPECT_EQ(platform::ExchangeDebugOutputSink(&first), nullptr);
    platform::WriteDebugOutput("abc");
    platform::WriteDebugOutput(L"defgh");
    EXPECT_EQ(platform::ExchangeDebugOutputSink(&second), &first);
    platform::WriteDebugOutput("ij");
    EXPECT_EQ(platform::ExchangeDebugOutputSink(nullptr), &second);
    EXPECT_EQ(first.count, 2u);
    EXPECT_EQ(first.narrowLength, 3u);
    EXPECT_EQ(first.wideLength, 5u);
    EXPECT_EQ(second.count, 1u);
}

TEST(DebugOutputSink, EveryTextReachesOneSinkDuringAnExchange) {
    constexpr int writerCount = 4;
    constexpr int linesPerWriter = 2000;
    CountingSink sinks[2];
    platform::ExchangeDebugOutputSink(&sinks[0]);
    std::atomic<int> running = writerCount;
    std::vector<std::thread> writers;
    for (int i = 0; i < writerCount; ++i) {
        writers.emplace_back([&running] {
            for (int line = 0; line < linesPerWriter; ++line) {
                platform::WriteDebugOutput("x");
            }
            --running;
        });
    }
    for (std::size_t turn = 1; running > 0; ++turn) {
        platform::DebugOutputSink* before = platform::ExchangeDebugOutputSink(&sinks[turn % 2]);
        EXPECT_EQ(before, &sinks[(turn + 1) % 2]);
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    platform::ExchangeDebugOutputSink(nullptr);
    EXPECT_EQ(sinks[0].count + sinks[1].count, static_cast<std::size_t>(writerCount) * linesPerWriter);
}

TEST(DebugOutputSink, ExchangeWaitsForWriters) {
    class SlowSink final : public platform::DebugOutputSink {
      public:
        explicit SlowSink(std::atomic<bool>& begun) : hasBegun_(begun) {}
        void Write(const char*) override {
            hasBegun_ = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            hasEnded_ = true;
        }
        void Write(const wchar_t*) override {}
        bool HasEnded() const { return hasEnded_; }

      private:
        std::atomic<bool>& hasBegun_;
        bool hasEnded_ = false;
    };
    std::atomic<bool> hasBegun = false;
    auto sink = std::make_unique<SlowSink>(hasBegun);
    platform::ExchangeDebugOutputSink(sink.get());
    std::thread writer([] { platform::WriteDebugOutput("x"); });
    while (!hasBegun) {
        std::this_thread::yield();
    }
    platform::ExchangeDebugOutputSink(nullptr);
    EXPECT_TRUE(sink->HasEnded());
    sink.reset();
    writer.join();
}

TEST(FormatDebugLine, FormatsTextsAndNumbers) {
    EXPECT_EQ(Format("CreatedProcess(%s) - ok Process ID: 0x%x\r\n", "a.exe", 0xBEEFu),
              "CreatedProcess(a.exe) - ok Process ID: 0xbeef\r\n");
    EXPECT_EQ(Format(""), "");
}

TEST(FormatDebugLine, ALongLineIsTruncatedAt1024Characters) {
    EXPECT_EQ(Format("%s", std::string(1023, 'a').c_str()), std::string(1023, 'a'));
    EXPECT_EQ(Format("%s", std::string(5000, 'a').c_str()).substr(0, 1023), std::string(1023, 'a'));
    EXPECT_LE(Format("%s", std::string(5000, 'a').c_str()).size(), 1024u);
}

}  // namespace
