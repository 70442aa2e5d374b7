/// The half of a detector that knows no engine: frames in, settings, error state, log and events.
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

/// The frame as the transform chain and the engine see it.
using FrameImage = image_transform::ImageData;

/// A part of the frame in percent of its size.
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

/// Threads: the host calls from any thread. Frames and ApplySettings of one detector take `frameMutex`,
/// which is recursive: a frame of a new size applies the settings, and the host may send a frame or apply settings from
/// inside OnFrameDone. Setters and reads of the error state never take it; they and the frame path meet in
/// `stateMutex_`, a leaf that is held for the copy of a value alone. The host is never called with it, so that these
/// may be called from inside every operation of the host. Operations that say FRAME need the frame mutex, or a detector
/// that no other thread uses.
///
/// Errors: every call from the host clears the error state; a failure leaves code and text there. Nothing is thrown to
/// the host, but for what is no std::exception out of ApplySettings.
class BaseDetectorImpl : public OKM8::Analytics::IDetector,
                         public ReceiverFace<BaseDetectorImpl>,
                         public SingleReceiverFace<BaseDetectorImpl>,
                         public AdjusterFace<BaseDetectorImpl>,
                         public ErrorInfoFace<BaseDetectorImpl>,
                         public ControllerFace {
  public:
    BaseDetectorImpl(const BaseDetectorImpl&) = delete;
    BaseDetectorImpl& operator=(const BaseDetectorImpl&) = delete;

    // The first table, slot by slot; what stands here must stay in this order.

    OKM8_OVERLOADS_IN_SLOT_ORDER(void* QueryContract(const char* contractName) override,
                                 void* QueryContract(const char* contractName) const override);
    void Destroy() override;

    /// Called whenever the settings are applied, after RebuildTransforms. FRAME.
    virtual void OnSettingsApplied();

    /// Reports to the host's log; to the debug output when the host has none, or when `errorCode` is -1, which stands
    /// for no code. `level` goes to the log as it is. Any thread.
    virtual void Log(const std::string& message, std::int32_t errorCode, std::int32_t level);

    /// The setting "id" as a decimal number. Throws std::invalid_argument with "invalid stoi argument" when the text
    /// does not begin with one, and std::out_of_range with "stoi argument out of range". Any thread.
    virtual std::int32_t GetIdNumber();

    /// Stores the frame's size in pixels and returns the effective height. FRAME.
    virtual std::uint32_t SetFrameSize(std::uint32_t frameWidth, std::uint32_t frameHeight);

    /// SetFrameSize, then ApplySettings. FRAME.
    virtual void SetFrameSizeAndApply(std::uint32_t frameWidth, std::uint32_t frameHeight);

    /// Sets up the transform chain anew. FRAME.
    virtual void RebuildTransforms();

    /// The engine hook: reads one frame, which the chain has transformed. `buffer` may be kept beyond the call and
    /// goes back to the host with its last copy. What it throws becomes the frame's error. FRAME.
    virtual void Recognize(FrameImage& frame, boost::shared_ptr<OKM8::MFF::ICompositeBuffer> buffer) = 0;

    /// Whether the frame is handled at half its height: set, and at least 640 by 480. FRAME.
    virtual bool IsHalfFrame();

    /// The frame path; returns the frame's error code. Owns the buffer, which may be null. Any thread.
    virtual std::int32_t ProcessInput(OKM8::MFF::IMultimediaBuffer* inputData, OKM8::IContract* frameDoneCallback);

    /// What the framework's log lines begin with: "[NAME] ", and "[id:ID] " when there is an id. Any thread.
    virtual std::string GetLogPrefix();

    /// Logs that the engine did not start on a device, which has a number or a name. Any thread.
    OKM8_OVERLOADS_IN_SLOT_ORDER(virtual void ReportEngineInitFailure(std::int32_t device, const std::string& info),
                                 virtual void ReportEngineInitFailure(const std::string& device,
                                                                      const std::string& info));

    /// Logs the text when `code` is not 0, and returns whether it did. Any thread.
    virtual bool LogError(const char* text, std::int32_t code);

    /// "NAME.ID". Any thread.
    virtual std::string GetDefaultFiguresKey();

    /// The values of this single call. Each returns 0, or 2816 when there is no such value or it is of another type;
    /// then `value` stays as it was. Any thread.
    virtual std::int32_t GetFrameString(const char* valueName, std::string& value);
    virtual std::int32_t GetFrameDouble(const char* valueName, double& value);
    virtual std::int32_t GetFrameInt(const char* valueName, std::int32_t& value);
    virtual std::int32_t GetFrameBool(const char* valueName, bool& value);
    /// A text in place, valid until it is replaced or the values are emptied.
    virtual std::int32_t GetFrameText(const char* valueName, const char*& value);

    /// Begins a call with an area of its own. FRAME.
    virtual void BeginSingleCall(const OKM8::FrameArea& callArea);

    /// Ends it: its values go, its area stays known to plate events. FRAME.
    virtual void EndSingleCall();

    // End of the first table of this class.

    /// The part of the frame to look at, in pixels of the effective height: the single call's area, or the configured
    /// one, or all of it. FRAME.
    PixelRect GetDetectionRect() const;

    /// Prepares an event: a target list, a raiser and its arguments. False when the host does not give one of them; a
    /// raiser that exists is then discarded. `image` may be null. FRAME.
    bool PrepareEvent(const std::string& eventName, std::int64_t timeMs, OKM8::IContract* image,
                      OKM8::Analytics::ITargetEnumeratorAdjuster** targets,
                      OKM8::Analytics::IDetectorEventRaiser** raiser);

    /// Prepares an event of the present time with one empty target. The caller fills the target and raises. FRAME.
    bool CreateEventWithTarget(const std::string& eventName, OKM8::Analytics::ITargetAdjuster** target,
                               OKM8::Analytics::IDetectorEventRaiser** raiser);

    /// The same for an event of a given time.
    bool CreateEventWithTarget(const std::string& eventName, std::int64_t timeMs,
                               OKM8::Analytics::ITargetAdjuster** target,
                               OKM8::Analytics::IDetectorEventRaiser** raiser);

    /// Raises "DEBUG_FIGURES" with 32 bytes of figures, under that key or the default one. FRAME.
    void RaiseDebugFigures(const void* figures, const std::string& figuresKey);

  protected:
    /// Both objects are the host's and outlive the detector; neither is null.
    BaseDetectorImpl(OKM8::IContract* hostPeer, void* hostObject);
    ~BaseDetectorImpl();

    /// Sets the error state to code 1 and that text; the frame call returns 1. Returns false. FRAME.
    bool Fail(const char* text) noexcept;

    /// Binds a setting's name to a member. Construction alone.
    template <class Value>
    void BindSetting(const char* settingName, Value* member) {
        settings.Bind(settingName, member);
    }

    /// A copy of a bound member. Any thread.
    template <class Value>
    Value Bound(const Value& member) const {
        const platform::Lock lock(stateMutex_);
        return member;
    }

    /// Copies of several bound members, as they stand together. Any thread.
    template <class First, class Second, class... More>
    std::tuple<First, Second, More...> Bound(const First& first, const Second& second, const More&... more) const {
        const platform::Lock lock(stateMutex_);
        return {first, second, more...};
    }

    OKM8::Analytics::IDetectorPeer* detectorPeer;
    OKM8::IHost* host;
    std::uint32_t width = 0;  // of the last frame, in pixels; guarded by frameMutex, as all that says nothing else
    std::uint32_t effectiveHeight = 0;
    std::uint32_t height = 0;
    bool useArea = false;  // bound, as all members of BindSetting: guarded by stateMutex_
    PercentArea area;      // bound
    image_transform::ImageTransformer transformer;
    std::string id;    // bound
    std::string name;  // bound
    platform::RecursiveMutex frameMutex;
    std::int32_t errorCode VEXLANE_GUARDED_BY(stateMutex_) = 0;
    std::string errorText VEXLANE_GUARDED_BY(stateMutex_);
    BoundSettings settings;  // filled by construction, then only read; its members guarded by stateMutex_
    FreeValues frameValues VEXLANE_GUARDED_BY(stateMutex_);
    bool halfFrame = false;  // bound
    std::uint64_t lastTimeStamp = 0;
    bool holdFrame = false;  // set by Recognize to keep OnFrameDone from being called
    OKM8::ILogger* logger = nullptr;
    bool inSingleCall = false;
    bool singleAreaValid = false;
    bool singleAreaActive = false;
    PercentArea singleArea;
    bool singleCallFlag = false;  // cleared after each single call, and nothing else

  private:
    friend ReceiverFace<BaseDetectorImpl>;
    friend SingleReceiverFace<BaseDetectorImpl>;
    friend AdjusterFace<BaseDetectorImpl>;
    friend ErrorInfoFace<BaseDetectorImpl>;

    class SetAside;

    std::int32_t ReceiveFrame(OKM8::MFF::IMultimediaBuffer* inputData);
    std::int32_t ReceiveSingleFrame(OKM8::MFF::IMultimediaBuffer* inputData, const OKM8::FrameArea* callArea,
                                    OKM8::IContract* frameDoneCallback);
    void HandleFrame(OKM8::MFF::IMultimediaBuffer* inputData,
                     const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer, OKM8::IContract* frameDoneCallback);
    bool IsHalved(std::uint32_t frameWidth, std::uint32_t frameHeight) const;
    void TakeSettings();

    template <class Value>
    std::int32_t SetBoundValue(const char* settingName, const Value& value);
    std::int32_t SetBoundString(const char* settingName, const char* value);
    template <class Value>
    std::int32_t SetFrameValue(const char* valueName, const Value& value);
    std::int32_t SetFrameString(const char* valueName, const char* value);
    template <class Value, class Take>
    std::int32_t ReadFrameValue(const char* valueName, Take take);

    std::int32_t CurrentErrorCode() const;
    const char* CurrentErrorText() noexcept;
    void ClearError() noexcept;
    void SetErrorLocked(std::int32_t code, const char* text) noexcept VEXLANE_REQUIRES(stateMutex_);
    void PublishFrameOutcome() noexcept;
    template <class Action>
    std::int32_t ReachValue(const char* valueName, Action action) noexcept;

    mutable platform::Mutex stateMutex_;
    std::string reportedText_ VEXLANE_GUARDED_BY(stateMutex_);  // what GetErrorMessage points into
    bool mustApply_ = false;  // the settings could not be applied, so that the chain may not be what the engine needs
    // Of the frame in hand, whatever setters do to the error state meanwhile.
    std::int32_t frameOutcome_ = 0;
    std::string frameErrorText_;
};

}  // namespace plate_recognition
