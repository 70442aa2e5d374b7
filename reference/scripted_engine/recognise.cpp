// The engine's two functions: each looks its call up in the script.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "engine/engine_records.h"
#include "reference/scripted_engine/journal.h"
#include "reference/scripted_engine/script.h"

namespace scripted_engine {
namespace {

constexpr const char* scriptVariable = "VEXLANE_SCRIPT";

/// The calls of one thread.
struct ThreadCounters {
    bool numbered = false;
    std::uint64_t thread = 0;
    std::uint64_t recognitions = 0;
    std::uint64_t ranges = 0;
};

thread_local ThreadCounters threadCounters;

/// Returns an empty script, which finds no plates and accepts every range, if none can be read.
Script LoadScript() {
    const char* const name = std::getenv(scriptVariable);
    if (name == nullptr || *name == '\0') {
        std::fprintf(stderr, "Recon64: no script: the environment variable %s is not set; no plates will be found\n",
                     scriptVariable);
        return {};
    }
    try {
        return ReadScript(name);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Recon64: script %s: %s; no plates will be found\n", name, error.what());
    }
    return {};
}

/// Any thread.
class Engine {
  public:
    Engine() : script_(LoadScript()), journal_(script_.journal) {}

    int Recognise(bool firstArgumentIsNull, const IMG* image, const tagRECT* region, RPLATE* plates, int flags) {
        const CallNumber number = NextNumber(recognitions_, &ThreadCounters::recognitions);
        const ScriptedFrame* const frame = script_.FrameAt(NumberInScript(number));
        int result = 0;
        if (frame != nullptr && plates != nullptr) {
            std::copy(frame->plates.begin(), frame->plates.end(), plates);
            result = frame->count;
        }
        journal_.WriteRecognition(number, image, region, firstArgumentIsNull, flags, result);
        return result;
    }

    bool SetRange(int minimumWidth, int maximumWidth) {
        const CallNumber number = NextNumber(ranges_, &ThreadCounters::ranges);
        const bool accepted = !script_.RefusesRange(NumberInScript(number));
        journal_.WriteRange(number, minimumWidth, maximumWidth, accepted);
        return accepted;
    }

  private:
    CallNumber NextNumber(std::atomic<std::uint64_t>& processCounter, std::uint64_t ThreadCounters::*threadCounter) {
        ThreadCounters& counters = threadCounters;
        if (!counters.numbered) {
            counters.numbered = true;
            counters.thread = threads_++;
        }
        return {processCounter++, counters.thread, (counters.*threadCounter)++};
    }

    std::uint64_t NumberInScript(const CallNumber& number) const {
        return script_.counting == Counting::Thread ? number.onThread : number.process;
    }

    const Script script_;
    Journal journal_;
    std::atomic<std::uint64_t> threads_{0};
    std::atomic<std::uint64_t> recognitions_{0};
    std::atomic<std::uint64_t> ranges_{0};
};

Engine& TheEngine() {
    static Engine engine;
    return engine;
}

}  // namespace
}  // namespace scripted_engine

int Recognize2(YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
    try {
        return scripted_engine::TheEngine().Recognise(unused == nullptr, image, region, plates, flags);
    } catch (...) {
        return 0;
    }
}

bool SetPlateRange(int minimumWidth, int maximumWidth) {
    try {
        return scripted_engine::TheEngine().SetRange(minimumWidth, maximumWidth);
    } catch (...) {
        return true;
    }
}
