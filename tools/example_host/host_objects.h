/// The objects that a host hands to the library: host object, log, frames, events.
#pragma once

#include <sdk/buffer.h>
#include <sdk/contract_names.h>
#include <sdk/events.h>
#include <sdk/host.h>
#include <sdk/plate_events.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace example_host {

using namespace OKM8;
using namespace OKM8::Analytics;

/// An object of the host. The library reaches most of them by the interface that it was given, and never queries them.
template <class Interface>
struct HostSide : Interface {
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
};

/// One frame, planar 4:2:0. The library releases it when no plate needs it any more.
struct Frame final : HostSide<MFF::ICompositeBuffer> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Frame)
    Frame(uint32_t frameWidth, uint32_t frameHeight, uint64_t frameTimeMs)
        : width(frameWidth), height(frameHeight), timeMs(frameTimeMs), data(std::size_t(width) * height * 3 / 2) {}

    void* QueryContract(const char* name) override {
        return std::strcmp(name, ContractName::ICompositeBuffer) == 0 ? this : nullptr;
    }
    void* QueryContract(const char* name) const override { return const_cast<Frame*>(this)->QueryContract(name); }
    uint64_t GetTimeStamp() override { return timeMs; }
    void Unused1() override {}
    void Unused2() override {}
    void Release() override { delete this; }
    uint8_t* GetData() override { return data.data(); }
    uint32_t GetDataSize() override { return static_cast<uint32_t>(data.size()); }
    uint32_t GetWidth() override { return width; }
    uint32_t GetHeight() override { return height; }

    const uint32_t width, height;
    const uint64_t timeMs;
    std::vector<uint8_t> data;
};

/// The frames of a file of raw frames, and after them four seconds of black frames: a vehicle is reported when it has
/// left the picture, so one that is in view at the end needs a few frames more.
class Video {
  public:
    /// Throws std::runtime_error if the file cannot be opened.
    Video(const std::string& path, uint32_t width, uint32_t height, uint32_t rate)
        : file_(path, std::ios::binary), width_(width), height_(height), rate_(rate), framesAfterEnd_(4 * rate) {
        if (!file_) {
            throw std::runtime_error("cannot open \"" + path + "\"");
        }
    }

    /// Returns the next frame, null after the last one.
    Frame* Next() {
        std::unique_ptr<Frame> frame(new Frame(width_, height_, count_++ * 1000 / rate_));
        if (!file_.read(reinterpret_cast<char*>(frame->data.data()),
                        static_cast<std::streamsize>(frame->data.size()))) {
            if (framesAfterEnd_-- == 0) {
                return nullptr;
            }
            const std::size_t luminance = std::size_t(width_) * height_;
            std::fill(frame->data.begin(), frame->data.end(), uint8_t(128));
            std::fill_n(frame->data.begin(), luminance, uint8_t(0));
        }
        return frame.release();
    }

  private:
    std::ifstream file_;
    const uint32_t width_, height_, rate_;
    uint32_t framesAfterEnd_;
    uint64_t count_ = 0;
};

/// What an event says about a plate. More keys: sdk/plate_events.h.
struct Target final : HostSide<ITargetAdjuster> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Target)
    void SetStringValue(const char* name, const char* value) override {
        if (std::strcmp(name, PlateKey::Text) == 0) {
            text = value;
        }
    }
    void SetIntValue(const char* name, int32_t value) override {
        if (std::strcmp(name, PlateKey::Confidence) == 0) {
            confidence = value;
        }
    }
    void SetDoubleValue(const char*, double) override {}
    void SetBoolValue(const char*, bool) override {}

    std::string text;
    int confidence = 0;
};

/// The list of targets of an event: a plate event has one.
struct TargetList final : HostSide<ITargetEnumeratorAdjuster> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(TargetList)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    ITargetAdjuster* AddTarget(int32_t) override { return &target; }

    Target target;
};

/// The service that creates target lists. EventArguments owns each list afterwards.
struct TargetListFactory final : HostSide<ITargetEnumeratorFactory> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(TargetListFactory)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    ITargetEnumeratorAdjuster* CreateTargetEnumerator(int64_t) override { return new TargetList; }
};

/// The arguments of an event.
struct EventArguments final : HostSide<IEventArgsAdjuster> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(EventArguments)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    void SetObjectValue(const char* name, IContract* value) override {
        if (std::strcmp(name, EventKey::Targets) == 0) {
            targets.reset(static_cast<TargetList*>(value));
        }
    }

    std::unique_ptr<TargetList> targets;
};

/// One event. Prints it when the library raises it.
struct Event final : HostSide<IDetectorEventRaiser> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Event)
    Event(const char* eventName, int64_t eventTimeMs) : name(eventName), timeMs(eventTimeMs) {}

    void Unused1() override {}
    IEventArgsAdjuster* GetEventArgs() override { return &arguments; }
    void Raise() override {
        if (name == EventName::Plate && arguments.targets) {
            const Target& plate = arguments.targets->target;
            std::printf("%.2f s  %s  %d %%\n", double(timeMs) / 1000, plate.text.c_str(), plate.confidence);
        }
        delete this;
    }
    void Discard() override { delete this; }

    const std::string name;
    const int64_t timeMs;
    EventArguments arguments;
};

/// The host's object for one detector.
struct DetectorPeer final : HostSide<IDetectorPeer> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(DetectorPeer)
    IDetectorEventRaiser* CreateEventRaiser(IDetector*, const char* name, int64_t timeMs, int32_t) override {
        return new Event(name, timeMs);
    }
};

/// The log, on standard error.
struct Logger final : HostSide<ILogger> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Logger)
    void Unused1() override {}
    void Unused2() override {}
    void WriteLog(int32_t level, const char* text) override { std::fprintf(stderr, "log %d: %s", int(level), text); }
};

/// The host object.
struct Host final : HostSide<IHost> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Host)
    void* GetInterface(const char* name) override {
        if (std::strcmp(name, ContractName::ILogger) == 0) {
            return static_cast<ILogger*>(&logger);
        }
        if (std::strcmp(name, ContractName::ITargetEnumeratorFactory) == 0) {
            return static_cast<ITargetEnumeratorFactory*>(&targetLists);
        }
        return nullptr;
    }

    Logger logger;
    TargetListFactory targetLists;
};

}  // namespace example_host
