/// The engine-independent base class of a detector: frame intake, settings, error state, log and events.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <string>
#include <tuple>

#include "detector/interface_adapters.h"
#include "detector/settings.h"
#include "image_transform/image_transformer.h"
#include "platform/mutex.h"
#include "sdk/buffer.h"
#include "sdk/contract.h"
#include "sdk/detector.h"
#include "sdk/events.h"
#include "sdk/host.h"

namespace plate_recognition {

/// The frame that the transform chain and the engine process.
using FrameImage = image_transform::ImageData;

/// A part of the frame, in percent of its width and height.
struct PercentArea {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
};

/// A part of the frame in pixels.
struct PixelRect {
    std::int32_t left;
    std::int32_t top;
    std::int32_t right;
    std::int32_t bottom;
};

/// Threads: the host calls from any thread. Frames and ApplySettings of one detector hold `frameMutex`, which is
/// recursive because a frame of a new size applies the settings, and because the host may send a frame or apply
/// settings from inside OnFrameDone. Setters and reads of the error state never take it. They share `stateMutex_` with
/// the frame path: a leaf that is held only to copy a value, and never during a call to the host, so the host may call
/// them from inside any of its operations. Operations marked FRAME require that the caller holds the frame mutex or
/// that no other thread uses the detector.
///
/// Errors: every call from the host clears the error state; a failure sets its code and text. The only exception that
/// can reach the host is one that is not derived from std::exception, from ApplySettings.
class BaseDetectorImpl : public OKM8::Analytics::IDetector,
                         public ReceiverAdapter<BaseDetectorImpl>,
                         public SingleReceiverAdapter<BaseDetectorImpl>,
                         public AdjusterAdapter<BaseDetectorImpl>,
                         public ErrorInfoAdapter<BaseDetectorImpl>,
                         public ControllerAdapter {
  public:
    BaseDetectorImpl(const BaseDetectorImpl&) = delete;
    BaseDetectorImpl& operator=(const BaseDetectorImpl&) = delete;

    // The slots of the first virtual table; their order must not change.

    OKM8_OVERLOADS_IN_SLOT_ORDER(void* QueryContract(const char* contractName) override,
                                 void* QueryContract(const char* contractName) const override);
    void Destroy() override;

    /// Called each time the settings are applied, after RebuildTransforms. A std::exception becomes the error. FRAME.
    virtual void OnSettingsApplied();

    /// Writes a message to the host's log, or to the debug output when the host has no log or `errorCode` is -1 (no
    /// code). `level` is passed to the log unchanged. Throws std::exception. Any thread.
    virtual void Log(const std::string& message, std::int32_t errorCode, std::int32_t level);

    /// Returns the setting "id" as a decimal number. Throws std::invalid_argument with "invalid stoi argument" when the
    /// text does not begin with a number, and std::out_of_range with "stoi argument out of range". Any thread.
    virtual std::int32_t GetIdNumber();

    /// Stores the frame's size in pixels. Returns the effective height: half the height, rounded down, if
    /// IsHalfFrame(). FRAME.
    virtual std::uint32_t SetFrameSize(std::uint32_t frameWidth, std::uint32_t frameHeight);

    /// Calls SetFrameSize, then ApplySettings. FRAME.
    virtual void SetFrameSizeAndApply(std::uint32_t frameWidth, std::uint32_t frameHeight);

    /// Builds the transform chain for the current frame size and settings. Throws std::bad_alloc; then the chain is
    /// unchanged. FRAME.
    virtual void RebuildTransforms();

    /// The engine hook: recognises the plates of one frame that the chain has transformed. `buffer` may be kept after
    /// the call; its last copy releases it to the host. An exception becomes the frame's error. FRAME.
    virtual void Recognize(FrameImage& frame, boost::shared_ptr<OKM8::MFF::ICompositeBuffer> buffer) = 0;

    /// Returns true when "use_half_cadr" is on and the frame is at least 640 x 480 pixels. FRAME.
    virtual bool IsHalfFrame();

    /// Processes one frame and returns its error code: 0, or 1 with a text. Takes ownership of the buffer, which may be
    /// null, and releases it. `frameDoneCallback` is not owned and may be null. Any thread.
    virtual std::int32_t ProcessInput(OKM8::MFF::IMultimediaBuffer* inputData, OKM8::IContract* frameDoneCallback);

    /// Returns the prefix of the log lines: "[NAME] ", followed by "[id:ID] " when there is an id. Any thread.
    virtual std::string GetLogPrefix();

    /// Logs that the engine did not start on a device, given by number or name. Any thread.
    OKM8_OVERLOADS_IN_SLOT_ORDER(virtual void ReportEngineInitFailure(std::int32_t device, const std::string& info),
                                 virtual void ReportEngineInitFailure(const std::string& device,
                                                                      const std::string& info));

    /// Logs the text, which may be null, when `code` is not 0. Returns true when it did. Any thread.
    virtual bool LogError(const char* text, std::int32_t code);

    /// Returns "NAME.ID", from the settings "name" and "id". Any thread.
    virtual std::string GetDefaultFiguresKey();

    /// Read a value of the current single call. Each returns 0, or 2816 when the value does not exist or has another
    /// type; then `value` is unchanged. Any thread.
    virtual std::int32_t GetFrameString(const char* valueName, std::string& value);
    virtual std::int32_t GetFrameDouble(const char* valueName, double& value);
    virtual std::int32_t GetFrameInt(const char* valueName, std::int32_t& value);
    virtual std::int32_t GetFrameBool(const char* valueName, bool& value);
    /// Sets `value` to the stored text, which is valid until it is replaced or EndSingleCall.
    virtual std::int32_t GetFrameText(const char* valueName, const char*& value);

    /// Begins a single call with its own area, in percent of the frame. FRAME.
    virtual void BeginSingleCall(const OKM8::FrameArea& callArea);

    /// Ends a single call: clears its values. Plate events still use its area. FRAME.
    virtual void EndSingleCall();

    // End of the first table of this class.

    /// Returns the region of interest in pixels, vertically of the effective height: in a single call its area,
    /// otherwise the configured one; the whole frame if that area is empty or off. Not clipped to the frame. FRAME.
    PixelRect GetDetectionRect() const;

    /// Prepares an event: gets a target list, a raiser and its arguments from the host, which owns them. Returns false,
    /// with the error set, when one of them is null; a raiser is then discarded. `timeMs` is in milliseconds since
    /// 1970, and `image` may be null. Throws what the host throws. FRAME.
    bool PrepareEvent(const std::string& eventName, std::int64_t timeMs, OKM8::IContract* image,
                      OKM8::Analytics::ITargetEnumeratorAdjuster** targets,
                      OKM8::Analytics::IDetectorEventRaiser** raiser);

    /// Prepares an event of the current time (UTC) with one empty target, like PrepareEvent. The caller fills the
    /// target and then calls Raise or Discard on the raiser. FRAME.
    bool CreateEventWithTarget(const std::string& eventName, OKM8::Analytics::ITargetAdjuster** target,
                               OKM8::Analytics::IDetectorEventRaiser** raiser);

    /// The same for an event at `timeMs`.
    bool CreateEventWithTarget(const std::string& eventName, std::int64_t timeMs,
                               OKM8::Analytics::ITargetAdjuster** target,
                               OKM8::Analytics::IDetectorEventRaiser** raiser);

    /// Raises "DEBUG_FIGURES" with 32 bytes of figures. An empty key stands for GetDefaultFiguresKey(). FRAME.
    void RaiseDebugFigures(const void* figures, const std::string& figuresKey);

  protected:
    /// Neither object is null. The host owns both, and they must outlive the detector.
    BaseDetectorImpl(OKM8::IContract* hostPeer, void* hostObject);
    ~BaseDetectorImpl();

    /// Sets the error state to code 1 and the text, so that the frame call returns 1. Returns false. FRAME.
    bool Fail(const char* text) noexcept;

    /// Binds a setting's name to a member. Called only by constructors.
    template <class Value>
    void BindSetting(const char* settingName, Value* member) {
        settings.Bind(settingName, member);
    }

    /// Returns a copy of a bound member. Any thread.
    template <class Value>
    Value Bound(const Value& member) const {
        const platform::Lock lock(stateMutex_);
        return member;
    }

    /// Returns copies of several bound members, taken at one time. Any thread.
    template <class First, class Second, class... More>
    std::tuple<First, Second, More...> Bound(const First& first, const Second& second, const More&... more) const {
        const platform::Lock lock(stateMutex_);
        return {first, second, more...};
    }

    OKM8::Analytics::IDetectorPeer* detectorPeer;
    OKM8::IHost* host;
    std::uint32_t width = 0;  // of the last frame, in pixels; guarded by frameMutex like all members without a note
    std::uint32_t effectiveHeight = 0;
    std::uint32_t height = 0;
    bool useArea = false;  // bound: set through BindSetting and guarded by stateMutex_
    PercentArea area;      // bound
    image_transform::ImageTransformer transformer;
    std::string id;    // bound
    std::string name;  // bound
    platform::RecursiveMutex frameMutex;
    std::int32_t errorCode VEXLANE_GUARDED_BY(stateMutex_) = 0;
    std::string errorText VEXLANE_GUARDED_BY(stateMutex_);
    BoundSettings settings;  // constant after construction; stateMutex_ guards the bound members
    FreeValues frameValues VEXLANE_GUARDED_BY(stateMutex_);
    bool halfFrame = false;  // bound
    std::uint64_t lastTimeStamp = 0;
    bool holdFrame = false;  // set by Recognize to suppress OnFrameDone
    OKM8::ILogger* logger = nullptr;
    bool inSingleCall = false;
    bool singleAreaValid = false;
    bool singleAreaActive = false;
    PercentArea singleArea;
    bool singleCallFlag = false;  // only cleared, after each single call

  private:
    friend ReceiverAdapter<BaseDetectorImpl>;
    friend SingleReceiverAdapter<BaseDetectorImpl>;
    friend AdjusterAdapter<BaseDetectorImpl>;
    friend ErrorInfoAdapter<BaseDetectorImpl>;

    class SavedFrameState;

    std::int32_t ReceiveFrame(OKM8::MFF::IMultimediaBuffer* inputData);
    std::int32_t ReceiveSingleFrame(OKM8::MFF::IMultimediaBuffer* inputData, const OKM8::FrameArea* callArea,
                                    OKM8::IContract* frameDoneCallback);
    void HandleFrame(OKM8::MFF::IMultimediaBuffer* inputData,
                     const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer, OKM8::IContract* frameDoneCallback);
    bool IsHalved(std::uint32_t frameWidth, std::uint32_t frameHeight) const;
    void ApplyBoundSettings();

    template <class Value>
    std::int32_t SetBoundValue(const char* settingName, const Value& value);
    std::int32_t SetBoundString(const char* settingName, const char* value);
    template <class Value>
    std::int32_t SetFrameValue(const char* valueName, const Value& value);
    std::int32_t SetFrameString(const char* valueName, const char* value);
    template <class Value, class Copy>
    std::int32_t ReadFrameValue(const char* valueName, Copy copy);

    std::int32_t CurrentErrorCode() const;
    const char* CurrentErrorText() noexcept;
    void ClearError() noexcept;
    void SetErrorLocked(std::int32_t code, const char* text) noexcept VEXLANE_REQUIRES(stateMutex_);
    void PublishFrameOutcome() noexcept;
    template <class Action>
    std::int32_t AccessValue(const char* valueName, Action action) noexcept;

    mutable platform::Mutex stateMutex_;
    std::string reportedText_ VEXLANE_GUARDED_BY(stateMutex_);  // GetErrorMessage returns a pointer into it
    bool mustApply_ = false;  // applying the settings failed, so the chain may not be the one that the engine needs
    // The result of the current frame, which setters do not change.
    std::int32_t frameOutcome_ = 0;
    std::string frameErrorText_;
};

}  // namespace plate_recognition
