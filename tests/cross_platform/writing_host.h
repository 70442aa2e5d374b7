/// A host that writes down every call that the library makes, with all arguments.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sdk/buffer.h"
#include "sdk/detector.h"
#include "tests/cross_platform/transcript.h"

namespace transcript {

/// What the host answers null to.
struct Refusals {
    bool logger = false;
    bool factory = false;
    bool enumerator = false;
    bool raiser = false;
    bool arguments = false;
    bool target = false;
    bool binarySetter = false;  // targets do not have it
};

struct BufferOptions {
    std::uint32_t width;
    std::uint32_t height;
    std::vector<std::uint8_t> pixels;
    std::uint32_t size;  // that is answered
    bool hasData = true;
    bool isComposite = true;
    std::uint64_t timeStamp;
};

/// Its objects live as long as it, which is longer than the library. One thread.
class WritingHost {
  public:
    explicit WritingHost(Transcript& written);
    ~WritingHost();
    WritingHost(const WritingHost&) = delete;
    WritingHost& operator=(const WritingHost&) = delete;

    void* Object();
    /// The peer of the detector that is to be made under that number.
    OKM8::IContract* NewPeer(int detectorNumber);
    OKM8::IContract* FrameDone();

    /// The library ends it by Release.
    OKM8::MFF::IMultimediaBuffer* NewBuffer(BufferOptions options);

    Refusals refusals;
    /// Called from inside Raise with the detector's number.
    std::function<void(int)> onRaise;

    int BuffersMade() const;
    int BuffersReleased() const;

    struct Objects;

  private:
    std::unique_ptr<Objects> objects;
};

}  // namespace transcript
