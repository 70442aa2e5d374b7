// caller ENGINE THREADS CALLS: loads an engine, makes that many recognitions on each thread at the same time, and
// prints all that they returned and wrote. With CALLS 0 it calls until it is killed.

#include <atomic>
#include <boost/dll/shared_library.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <thread>

#include "platform/foreign_call.h"
#include "tests/recording_engine/calls.h"
#include "tools/recording_engine/engine_tap.h"

using namespace recording_engine_test;

namespace {

using Recognise = decltype(::Recognize2);
using SetRange = decltype(::SetPlateRange);

int CallRecognise(Recognise* function, YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
    return function(unused, image, region, plates, flags);
}

bool CallSetRange(SetRange* function, int minimumWidth, int maximumWidth) {
    return function(minimumWidth, maximumWidth);
}

std::string HexOf(const void* bytes, std::size_t size) {
    std::string text;
    for (std::size_t index = 0; index < size; ++index) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<const unsigned char*>(bytes)[index]);
        text += digits;
    }
    return text;
}

/// What the action returns, or what it throws.
template <class Action>
std::string ResultOf(const Action& action) {
    try {
        return std::to_string(action());
    } catch (const std::exception& error) {
        return std::string("exception ") + error.what();
    } catch (int number) {
        return "int " + std::to_string(number);
    } catch (const platform::ForeignException&) {
        return "exception of another compiler";
    }
}

std::string CallOnce(Recognise* recognise, SetRange* setRange, int thread, int call) {
    std::string line = std::to_string(thread) + ' ' + std::to_string(call);
    if (HasRange(call)) {
        line += " range " + ResultOf([&] {
                    return platform::CallForeign<&CallSetRange>(setRange, SmallestWidth(thread), LargestWidth(call));
                });
    }
    IMG image{WidthOf(call), HeightOf(thread), 3, WidthOf(call) * 3 + PaddingOf(call), nullptr};
    std::vector<std::uint8_t> pixels(std::size_t{image.rowStride} * image.height);
    for (std::size_t index = 0; index < pixels.size(); ++index) {
        pixels[index] = PixelByte(thread, call, index);
    }
    if (HasPixels(call)) {
        image.pixels = pixels.data();
    }
    std::optional<tagRECT> region = RegionOf(thread, call);
    std::vector<RPLATE> plates(engineRecordCount);
    auto* const unused = reinterpret_cast<YUV420_IMG*>(pixels.data());
    line += " recognition " + ResultOf([&] {
                return platform::CallForeign<&CallRecognise>(recognise, unused, &image, region ? &*region : nullptr,
                                                             plates.data(), call);
            });
    line += ' ' + HexOf(plates.data(), plates.size() * sizeof(RPLATE));
    line += ' ' + HexOf(&image, offsetof(IMG, pixels));
    if (region) {
        line += ' ' + HexOf(&*region, sizeof *region);
    }
    return line + '\n';
}

}  // namespace

int main(int, char** arguments) {
    const boost::dll::shared_library engine(std::filesystem::path(arguments[1]), boost::dll::load_mode::rtld_now);
    auto* const recognise = &engine.get<Recognise>(engine_names::recognise);
    auto* const setRange = &engine.get<SetRange>(engine_names::setRange);
    const int threadCount = std::atoi(arguments[2]);
    const int callCount = std::atoi(arguments[3]);
    std::vector<std::string> outputs(static_cast<std::size_t>(threadCount));
    std::atomic<int> callingThreads = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        std::atomic<bool> hasCalled = false;
        threads.emplace_back([&, thread] {
            std::string& output = outputs[static_cast<std::size_t>(thread)];
            output = CallOnce(recognise, setRange, thread, 0);
            hasCalled = true;
            for (int call = 1; callCount == 0 || call < callCount; ++call) {
                const std::string line = CallOnce(recognise, setRange, thread, call);
                if (callCount != 0) {
                    output += line;
                } else if (call == callsBeforeOutput && ++callingThreads == threadCount) {
                    std::puts("calling");
                    std::fflush(stdout);
                }
            }
        });
        // The engines number the threads in the order of their first calls.
        while (!hasCalled) {
            std::this_thread::yield();
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& output : outputs) {
        std::fputs(output.c_str(), stdout);
    }
    return 0;
}
