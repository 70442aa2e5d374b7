/// Adapters for the secondary interfaces of a detector. Each forwards its operations to the detector that derives from
/// it.
///
/// In the Itanium ABI a class that overrides an operation of a later base gets a slot for it in its own first table; in
/// the Microsoft ABI it does not. Because the adapters override the operations, the detector's first table is the same
/// in both. They also allow two interfaces to have setters of the same names.
#pragma once

#include <cstdint>

#include "sdk/detector.h"

namespace plate_recognition {

template <class Detector>
class ReceiverAdapter : public OKM8::Analytics::IMediaReceiver {
  public:
    std::int32_t Receive(OKM8::MFF::IMultimediaBuffer* inputData) final {
        return static_cast<Detector*>(this)->ReceiveFrame(inputData);
    }
};

template <class Detector>
class SingleReceiverAdapter : public OKM8::Analytics::IMediaReceiverSingle2 {
  public:
    std::int32_t ReceiveSingle(OKM8::MFF::IMultimediaBuffer* inputData, const OKM8::FrameArea* area,
                               OKM8::IContract* frameDoneCallback) final {
        return static_cast<Detector*>(this)->ReceiveSingleFrame(inputData, area, frameDoneCallback);
    }
    std::int32_t SetStringValue(const char* name, const char* value) final {
        return static_cast<Detector*>(this)->SetFrameString(name, value);
    }
    std::int32_t SetDoubleValue(const char* name, double value) final {
        return static_cast<Detector*>(this)->SetFrameValue(name, value);
    }
    std::int32_t SetIntValue(const char* name, std::int32_t value) final {
        return static_cast<Detector*>(this)->SetFrameValue(name, value);
    }
    std::int32_t SetBoolValue(const char* name, bool value) final {
        return static_cast<Detector*>(this)->SetFrameValue(name, value);
    }
};

template <class Detector>
class AdjusterAdapter : public OKM8::IAsyncAdjuster {
  public:
    std::int32_t SetStringValue(const char* name, const char* value) final {
        return static_cast<Detector*>(this)->SetBoundString(name, value);
    }
    std::int32_t SetDoubleValue(const char* name, double value) final {
        return static_cast<Detector*>(this)->SetBoundValue(name, value);
    }
    std::int32_t SetIntValue(const char* name, std::int32_t value) final {
        return static_cast<Detector*>(this)->SetBoundValue(name, value);
    }
    std::int32_t SetBoolValue(const char* name, bool value) final {
        return static_cast<Detector*>(this)->SetBoundValue(name, value);
    }
    void ApplySettings() final { static_cast<Detector*>(this)->ApplyBoundSettings(); }
};

template <class Detector>
class ErrorInfoAdapter : public OKM8::IErrorInfoProvider {
  public:
    std::int32_t GetErrorCode() final { return static_cast<Detector*>(this)->CurrentErrorCode(); }
    const char* GetErrorMessage() final { return static_cast<Detector*>(this)->CurrentErrorText(); }
};

/// Stream control has no effect: each operation returns 0.
class ControllerAdapter : public OKM8::Analytics::IMediaReceiverController {
  public:
    std::int32_t Control1() final { return 0; }
    std::int32_t Control2() final { return 0; }
    std::int32_t Control3() final { return 0; }
    std::int32_t Control4() final { return 0; }
    std::int32_t Control5() final { return 0; }
};

}  // namespace plate_recognition
