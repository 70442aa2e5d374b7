/// A detector whose engine operations are the test's.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "detector/base_detector_impl.h"
#include "tools/validate/recording_host.h"

namespace detector_tests {

using BufferPointer = boost::shared_ptr<OKM8::MFF::ICompositeBuffer>;
using plate_recognition::FrameImage;

class TestDetector final : public plate_recognition::BaseDetectorImpl {
  public:
    TestDetector(OKM8::IContract* peer, void* hostObject) : BaseDetectorImpl(peer, hostObject) {}
    ~TestDetector() {
        if (wasDestroyed != nullptr) {
            ++*wasDestroyed;
        }
    }
    OKM8_OBJECT_DESTRUCTOR_SLOT(TestDetector)

    void OnSettingsApplied() override {
        ++applied;
        if (onApplied) {
            onApplied();
        }
    }

    void Recognize(FrameImage& frame, BufferPointer buffer) override {
        ++recognized;
        if (onRecognize) {
            onRecognize(frame, std::move(buffer));
        }
    }

    void BeginSingleCall(const OKM8::FrameArea& callArea) override {
        BaseDetectorImpl::BeginSingleCall(callArea);
        if (onSingleCallBegun) {
            onSingleCallBegun();
        }
    }

    void EndSingleCall() override {
        if (onSingleCallEnding) {
            onSingleCallEnding();
        }
        BaseDetectorImpl::EndSingleCall();
    }

    std::function<void()> onApplied;
    std::function<void(FrameImage&, BufferPointer)> onRecognize;
    std::function<void()> onSingleCallBegun;   // after the base's part
    std::function<void()> onSingleCallEnding;  // before it
    int applied = 0;
    int recognized = 0;
    int* wasDestroyed = nullptr;

    using BaseDetectorImpl::area;
    using BaseDetectorImpl::detectorPeer;
    using BaseDetectorImpl::effectiveHeight;
    using BaseDetectorImpl::errorCode;
    using BaseDetectorImpl::errorText;
    using BaseDetectorImpl::Fail;
    using BaseDetectorImpl::frameMutex;
    using BaseDetectorImpl::frameValues;
    using BaseDetectorImpl::halfFrame;
    using BaseDetectorImpl::height;
    using BaseDetectorImpl::holdFrame;
    using BaseDetectorImpl::host;
    using BaseDetectorImpl::id;
    using BaseDetectorImpl::inSingleCall;
    using BaseDetectorImpl::lastTimeStamp;
    using BaseDetectorImpl::logger;
    using BaseDetectorImpl::name;
    using BaseDetectorImpl::singleArea;
    using BaseDetectorImpl::singleAreaActive;
    using BaseDetectorImpl::singleAreaValid;
    using BaseDetectorImpl::singleCallFlag;
    using BaseDetectorImpl::transformer;
    using BaseDetectorImpl::useArea;
    using BaseDetectorImpl::width;
};

struct DestroyDetector {
    void operator()(TestDetector* detector) const { detector->Destroy(); }
};
using DetectorPointer = std::unique_ptr<TestDetector, DestroyDetector>;

inline DetectorPointer MakeDetector(recording_host::RecordingHost& host) {
    return DetectorPointer(new TestDetector(host.Peer(), host.Object()));
}

inline OKM8::IAsyncAdjuster& SettingsOf(TestDetector& detector) {
    return detector;
}
inline OKM8::Analytics::IMediaReceiver& ReceiverOf(TestDetector& detector) {
    return detector;
}
inline OKM8::Analytics::IMediaReceiverSingle2& SingleReceiverOf(TestDetector& detector) {
    return detector;
}
inline OKM8::IErrorInfoProvider& ErrorsOf(TestDetector& detector) {
    return detector;
}

/// Code and text of the error state.
inline std::pair<std::int32_t, std::string> ErrorOf(TestDetector& detector) {
    return {ErrorsOf(detector).GetErrorCode(), ErrorsOf(detector).GetErrorMessage()};
}

inline std::pair<std::int32_t, std::string> Error(std::int32_t code, const std::string& text) {
    return {code, text};
}

/// Sets the error state, so that a test can check whether a call clears it.
inline void RefuseASetting(TestDetector& detector) {
    SettingsOf(detector).SetIntValue("no such setting", 1);
}

}  // namespace detector_tests
