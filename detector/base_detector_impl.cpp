#include "detector/base_detector_impl.h"

#include <boost/gil.hpp>
#include <boost/make_shared.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "arithmetic/arithmetic.h"
#include "diagnostics/trace.h"
#include "image_transform/image_deinterlacer.h"
#include "platform/foreign_call.h"
#include "sdk/contract_names.h"
#include "sdk/setting_keys.h"

namespace plate_recognition {

namespace {

namespace ContractName = OKM8::ContractName;
namespace SettingKey = OKM8::Analytics::SettingKey;
using diagnostics::Compose;
using OKM8::MFF::ICompositeBuffer;
using platform::CallForeign;

// The overload of QueryContract that is called on buffers.
constexpr void* (OKM8::IContract::*queryContract)(const char*) = &OKM8::IContract::QueryContract;

constexpr std::uint32_t halfFrameMinimumWidth = 640;
constexpr std::uint32_t halfFrameMinimumHeight = 480;

constexpr std::size_t maxOwnErrorText = 64;
constexpr std::int32_t noErrorCode = -1;
constexpr std::int32_t engineInitFailureCode = 769;
constexpr std::int32_t engineInitFailureLevel = 2;
constexpr std::int32_t errorLevel = 3;

// Releases a buffer to the host. An exception from the host is ignored.
void ReleaseBuffer(OKM8::MFF::IMultimediaBuffer* buffer) noexcept {
    try {
        CallForeign<&OKM8::MFF::IMultimediaBuffer::Release>(buffer);
    } catch (...) {
        // There is nothing to undo, and the caller may be a destructor.
    }
}

}  // namespace

BaseDetectorImpl::BaseDetectorImpl(OKM8::IContract* hostPeer, void* hostObject)
    : detectorPeer(static_cast<OKM8::Analytics::IDetectorPeer*>(hostPeer)),
      host(static_cast<OKM8::IHost*>(hostObject)) {
    BindSetting(SettingKey::UseHalfCadr, &halfFrame);
    BindSetting(SettingKey::Id, &id);
    BindSetting(SettingKey::Name, &name);
    BindSetting(SettingKey::UseArea, &useArea);
    BindSetting(SettingKey::AreaLeft, &area.left);
    BindSetting(SettingKey::AreaTop, &area.top);
    BindSetting(SettingKey::AreaRight, &area.right);
    BindSetting(SettingKey::AreaBottom, &area.bottom);
    // The detector's own error texts then need no allocation and reach the host even on allocation failure.
    for (std::string* const text : {&errorText, &reportedText_, &frameErrorText_}) {
        text->reserve(maxOwnErrorText);
    }
    logger = static_cast<OKM8::ILogger*>(CallForeign<&OKM8::IHost::GetInterface>(host, ContractName::ILogger));
}

BaseDetectorImpl::~BaseDetectorImpl() = default;

void* BaseDetectorImpl::QueryContract(const char* contractName) {
    if (contractName == nullptr) {
        return nullptr;
    }
    const auto isRequested = [contractName](const char* known) { return std::strcmp(contractName, known) == 0; };
    if (isRequested(ContractName::IContract) || isRequested(ContractName::IDestroyable) ||
        isRequested(ContractName::IDetector)) {
        return static_cast<OKM8::Analytics::IDetector*>(this);
    }
    if (isRequested(ContractName::IMediaReceiver)) {
        return static_cast<OKM8::Analytics::IMediaReceiver*>(this);
    }
    if (isRequested(ContractName::IMediaReceiverSingle) || isRequested(ContractName::IMediaReceiverSingle2)) {
        return static_cast<OKM8::Analytics::IMediaReceiverSingle2*>(this);
    }
    if (isRequested(ContractName::IAsyncAdjuster)) {
        return static_cast<OKM8::IAsyncAdjuster*>(this);
    }
    if (isRequested(ContractName::IErrorInfoProvider)) {
        return static_cast<OKM8::IErrorInfoProvider*>(this);
    }
    if (isRequested(ContractName::IMediaReceiverController)) {
        return static_cast<OKM8::Analytics::IMediaReceiverController*>(this);
    }
    return nullptr;
}

void* BaseDetectorImpl::QueryContract(const char* contractName) const {
    return const_cast<BaseDetectorImpl*>(this)->QueryContract(contractName);
}

void BaseDetectorImpl::Destroy() {
    OKM8::DestroyThroughSlot(static_cast<OKM8::Analytics::IDetector*>(this));
}

// Frames.

// Saves the state of the current frame during OnFrameDone, from inside which the host may send further frames or apply
// settings: these have their own outcomes and are not part of the current single call.
class BaseDetectorImpl::SavedFrameState {
  public:
    explicit SavedFrameState(BaseDetectorImpl& owner)
        : detector_(owner),
          outcome_(std::exchange(owner.frameOutcome_, OKM8::ErrorCode::None)),
          isInSingleCall_(std::exchange(owner.inSingleCall, false)),
          isSingleAreaActive_(std::exchange(owner.singleAreaActive, false)) {
        if (outcome_ != OKM8::ErrorCode::None) {
            errorText_.swap(owner.frameErrorText_);
        }
    }
    ~SavedFrameState() {
        detector_.frameOutcome_ = outcome_;
        detector_.inSingleCall = isInSingleCall_;
        detector_.singleAreaActive = isSingleAreaActive_;
        if (outcome_ != OKM8::ErrorCode::None) {
            errorText_.swap(detector_.frameErrorText_);
        }
    }
    SavedFrameState(const SavedFrameState&) = delete;
    SavedFrameState& operator=(const SavedFrameState&) = delete;

  private:
    BaseDetectorImpl& detector_;
    std::int32_t outcome_;
    std::string errorText_;
    bool isInSingleCall_;
    bool isSingleAreaActive_;
};

std::int32_t BaseDetectorImpl::ReceiveFrame(OKM8::MFF::IMultimediaBuffer* inputData) {
    return ProcessInput(inputData, nullptr);
}

std::int32_t BaseDetectorImpl::ReceiveSingleFrame(OKM8::MFF::IMultimediaBuffer* inputData,
                                                  const OKM8::FrameArea* callArea, OKM8::IContract* frameDoneCallback) {
    const platform::Lock lock(frameMutex);
    BeginSingleCall(callArea != nullptr ? *callArea : OKM8::FrameArea{});
    const std::int32_t outcome = ProcessInput(inputData, frameDoneCallback);
    EndSingleCall();
    return outcome;
}

void BaseDetectorImpl::BeginSingleCall(const OKM8::FrameArea& callArea) {
    const platform::Lock lock(frameMutex);
    inSingleCall = true;
    singleAreaActive = true;
    singleAreaValid = callArea.width > 0 && callArea.height > 0;
    singleArea = {callArea.x, callArea.y, arithmetic::WrappedSum(callArea.x, callArea.width),
                  arithmetic::WrappedSum(callArea.y, callArea.height)};
}

void BaseDetectorImpl::EndSingleCall() {
    const platform::Lock lock(frameMutex);
    {
        const platform::Lock stateLock(stateMutex_);
        frameValues.Clear();
    }
    inSingleCall = false;
    singleAreaActive = false;
    singleCallFlag = false;
}

std::int32_t BaseDetectorImpl::ProcessInput(OKM8::MFF::IMultimediaBuffer* inputData,
                                            OKM8::IContract* frameDoneCallback) {
    const platform::Lock lock(frameMutex);
    ClearError();
    frameOutcome_ = OKM8::ErrorCode::None;
    if (inputData == nullptr) {
        Fail("Input data is null");
        return frameOutcome_;
    }
    boost::shared_ptr<OKM8::MFF::ICompositeBuffer> buffer;
    bool isHeld = false;
    try {
        auto* const composite =
            static_cast<ICompositeBuffer*>(CallForeign<queryContract>(inputData, ContractName::ICompositeBuffer));
        if (composite != nullptr) {
            isHeld = true;
            buffer.reset(composite, [](OKM8::MFF::ICompositeBuffer* released) { ReleaseBuffer(released); });
            HandleFrame(inputData, buffer, frameDoneCallback);
        } else {
            Fail("inputData is not an ICompositeBuffer");
        }
    } catch (const std::exception& exception) {
        Fail(exception.what());
    } catch (...) {
        Fail("Image processing exception");
    }
    if (!isHeld) {
        ReleaseBuffer(inputData);
    }
    buffer.reset();         // Recognize may have kept a copy
    PublishFrameOutcome();  // a setter or a frame sent from inside OnFrameDone may have changed the error state
    return frameOutcome_;
}

void BaseDetectorImpl::HandleFrame(OKM8::MFF::IMultimediaBuffer* inputData,
                                   const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer,
                                   OKM8::IContract* frameDoneCallback) {
    std::uint8_t* const pixels = CallForeign<&ICompositeBuffer::GetData>(buffer.get());
    const std::uint32_t size = CallForeign<&ICompositeBuffer::GetDataSize>(buffer.get());
    const std::uint32_t frameHeight = CallForeign<&ICompositeBuffer::GetHeight>(buffer.get());
    const std::uint32_t frameWidth = CallForeign<&ICompositeBuffer::GetWidth>(buffer.get());
    FrameImage frame = pixels != nullptr ? FrameImage(frameWidth, frameHeight, size, pixels)
                                         : FrameImage(frameWidth, frameHeight, size);
    if (frameWidth != width || frameHeight != height || mustApply_) {
        SetFrameSizeAndApply(frameWidth, frameHeight);
    }
    transformer.Transform(frame, frame);
    holdFrame = false;
    Recognize(frame, buffer);
    if (!holdFrame && frameDoneCallback != nullptr) {
        using OKM8::MFF::IFrameDoneCallback;
        const SavedFrameState saved(*this);
        CallForeign<&IFrameDoneCallback::OnFrameDone>(static_cast<IFrameDoneCallback*>(frameDoneCallback), inputData);
    }
    lastTimeStamp = CallForeign<&ICompositeBuffer::GetTimeStamp>(buffer.get());
}

bool BaseDetectorImpl::IsHalved(std::uint32_t frameWidth, std::uint32_t frameHeight) const {
    return Bound(halfFrame) && frameWidth >= halfFrameMinimumWidth && frameHeight >= halfFrameMinimumHeight;
}

bool BaseDetectorImpl::IsHalfFrame() {
    return IsHalved(width, height);
}

std::uint32_t BaseDetectorImpl::SetFrameSize(std::uint32_t frameWidth, std::uint32_t frameHeight) {
    const platform::Lock lock(frameMutex);
    width = frameWidth;
    height = frameHeight;
    effectiveHeight = IsHalved(width, height) ? height / 2 : height;
    return effectiveHeight;
}

void BaseDetectorImpl::SetFrameSizeAndApply(std::uint32_t frameWidth, std::uint32_t frameHeight) {
    const platform::Lock lock(frameMutex);
    SetFrameSize(frameWidth, frameHeight);
    ApplySettings();
}

PixelRect BaseDetectorImpl::GetDetectionRect() const {
    const auto [isLimited, source] = singleAreaActive ? std::tuple(singleAreaValid, singleArea) : Bound(useArea, area);
    if (!isLimited) {
        return {0, 0, static_cast<std::int32_t>(width), static_cast<std::int32_t>(effectiveHeight)};
    }
    return {arithmetic::SignedPercentOf(width, source.left), arithmetic::SignedPercentOf(effectiveHeight, source.top),
            arithmetic::SignedPercentOf(width, source.right),
            arithmetic::SignedPercentOf(effectiveHeight, source.bottom)};
}

// Settings.

void BaseDetectorImpl::ApplyBoundSettings() {
    const platform::Lock lock(frameMutex);
    ClearError();
    mustApply_ = true;  // after a failure the next frame tries again
    try {
        RebuildTransforms();
        OnSettingsApplied();
        mustApply_ = false;
    } catch (const std::exception& exception) {
        Fail(exception.what());
    }
}

void BaseDetectorImpl::RebuildTransforms() {
    using Deinterlacer = image_transform::ImageDeinterlacer<boost::gil::gray8_view_t>;
    // Built first, so that the chain is unchanged on allocation failure.
    std::vector<boost::shared_ptr<image_transform::IImageTransform>> steps;
    if (IsHalved(width, height)) {
        // The chain of the base class. A derived class may replace it in OnSettingsApplied, which follows at once;
        // VexlaneDetectorImpl does, so this step never processes its frames.
        steps.push_back(boost::make_shared<Deinterlacer>(halfFrameMinimumWidth, halfFrameMinimumHeight, false));
    }
    transformer.Replace(std::move(steps));
}

void BaseDetectorImpl::OnSettingsApplied() {}

// The common part of the setters and accessors of named values. `action` returns false when the value does not exist or
// has another type. An exception (allocation failure) counts as a refusal and does not reach the host.
template <class Action>
std::int32_t BaseDetectorImpl::AccessValue(const char* valueName, Action action) noexcept {
    const platform::Lock lock(stateMutex_);
    SetErrorLocked(OKM8::ErrorCode::None, "");
    bool isAccessed = false;
    try {
        isAccessed = valueName != nullptr && action();
    } catch (const std::exception&) {
        isAccessed = false;
    }
    if (!isAccessed) {
        SetErrorLocked(OKM8::ErrorCode::RefusedSetting, valueName != nullptr ? valueName : "");
    }
    return errorCode;
}

template <class Value>
std::int32_t BaseDetectorImpl::SetBoundValue(const char* settingName, const Value& value) {
    return AccessValue(settingName, [&] { return settings.Write(settingName, value); });
}

std::int32_t BaseDetectorImpl::SetBoundString(const char* settingName, const char* value) {
    return AccessValue(settingName,
                       [&] { return settings.Write(settingName, std::string(value != nullptr ? value : "")); });
}

template <class Value>
std::int32_t BaseDetectorImpl::SetFrameValue(const char* valueName, const Value& value) {
    return AccessValue(valueName, [&]() VEXLANE_REQUIRES(stateMutex_) {
        frameValues.Write(valueName, value);
        return true;
    });
}

std::int32_t BaseDetectorImpl::SetFrameString(const char* valueName, const char* value) {
    return AccessValue(valueName, [&]() VEXLANE_REQUIRES(stateMutex_) {
        frameValues.Write(valueName, std::string(value != nullptr ? value : ""));
        return true;
    });
}

// The types of the interfaces' setters.
template std::int32_t BaseDetectorImpl::SetBoundValue(const char*, const double&);
template std::int32_t BaseDetectorImpl::SetBoundValue(const char*, const std::int32_t&);
template std::int32_t BaseDetectorImpl::SetBoundValue(const char*, const bool&);
template std::int32_t BaseDetectorImpl::SetFrameValue(const char*, const double&);
template std::int32_t BaseDetectorImpl::SetFrameValue(const char*, const std::int32_t&);
template std::int32_t BaseDetectorImpl::SetFrameValue(const char*, const bool&);

template <class Value, class Copy>
std::int32_t BaseDetectorImpl::ReadFrameValue(const char* valueName, Copy copy) {
    return AccessValue(valueName, [&]() VEXLANE_REQUIRES(stateMutex_) {
        const Value* const stored = frameValues.Read<Value>(valueName);
        if (stored != nullptr) {
            copy(*stored);
        }
        return stored != nullptr;
    });
}

std::int32_t BaseDetectorImpl::GetFrameString(const char* valueName, std::string& value) {
    return ReadFrameValue<std::string>(valueName, [&](const std::string& stored) { value = stored; });
}

std::int32_t BaseDetectorImpl::GetFrameDouble(const char* valueName, double& value) {
    return ReadFrameValue<double>(valueName, [&](double stored) { value = stored; });
}

std::int32_t BaseDetectorImpl::GetFrameInt(const char* valueName, std::int32_t& value) {
    return ReadFrameValue<std::int32_t>(valueName, [&](std::int32_t stored) { value = stored; });
}

std::int32_t BaseDetectorImpl::GetFrameBool(const char* valueName, bool& value) {
    return ReadFrameValue<bool>(valueName, [&](bool stored) { value = stored; });
}

std::int32_t BaseDetectorImpl::GetFrameText(const char* valueName, const char*& value) {
    return ReadFrameValue<std::string>(valueName, [&](const std::string& stored) { value = stored.c_str(); });
}

// Error state.

std::int32_t BaseDetectorImpl::CurrentErrorCode() const {
    const platform::Lock lock(stateMutex_);
    return errorCode;
}

const char* BaseDetectorImpl::CurrentErrorText() noexcept {
    const platform::Lock lock(stateMutex_);
    try {
        reportedText_ = errorText;
    } catch (const std::exception&) {
        reportedText_.clear();
    }
    return reportedText_.c_str();
}

void BaseDetectorImpl::ClearError() noexcept {
    const platform::Lock lock(stateMutex_);
    SetErrorLocked(OKM8::ErrorCode::None, "");
}

// On allocation failure, which only a long text can cause, the code is set without the text.
void BaseDetectorImpl::SetErrorLocked(std::int32_t code, const char* text) noexcept {
    errorCode = code;
    try {
        errorText = text;
    } catch (const std::exception&) {
        errorText.clear();
    }
}

bool BaseDetectorImpl::Fail(const char* text) noexcept {
    frameOutcome_ = OKM8::ErrorCode::Failed;
    try {
        frameErrorText_ = text;
    } catch (const std::exception&) {
        frameErrorText_.clear();
    }
    PublishFrameOutcome();
    return false;
}

void BaseDetectorImpl::PublishFrameOutcome() noexcept {
    const platform::Lock lock(stateMutex_);
    if (frameOutcome_ != OKM8::ErrorCode::None) {
        SetErrorLocked(frameOutcome_, frameErrorText_.c_str());
    } else if (errorCode == OKM8::ErrorCode::Failed) {
        SetErrorLocked(OKM8::ErrorCode::None, "");  // a setter's refusal stays
    }
}

// Log.

void BaseDetectorImpl::Log(const std::string& message, std::int32_t code, std::int32_t level) {
    if (logger != nullptr && code != noErrorCode) {
        const std::string text =
            "[BaseDetectorImpl] " + GetLogPrefix() + message + ". Error = " + std::to_string(code) + "\n";
        CallForeign<&OKM8::ILogger::WriteLog>(logger, level, text.c_str());
    } else {
        diagnostics::WriteDebugText(Compose("[BaseDetectorImpl] %1%\r\n", message));
    }
}

std::string BaseDetectorImpl::GetLogPrefix() {
    const auto [shownName, shownId] = Bound(name, id);
    const std::string prefix = Compose("[%1%] ", shownName);
    return shownId.empty() ? prefix : Compose("%1%[id:%2%] ", prefix, shownId);
}

void BaseDetectorImpl::ReportEngineInitFailure(std::int32_t device, const std::string& info) {
    ReportEngineInitFailure(std::to_string(device), info);
}

void BaseDetectorImpl::ReportEngineInitFailure(const std::string& device, const std::string& info) {
    Log(Compose("Failed to initialize the engine: device:%1%, info:%2%", device, info), engineInitFailureCode,
        engineInitFailureLevel);
}

bool BaseDetectorImpl::LogError(const char* text, std::int32_t code) {
    if (code == 0) {
        return false;
    }
    Log(text != nullptr ? text : "", code, errorLevel);
    return true;
}

std::string BaseDetectorImpl::GetDefaultFiguresKey() {
    const auto [ownName, ownId] = Bound(name, id);
    return Compose("%1%.%2%", ownName, ownId);
}

// Not std::stoi, whose exception texts depend on the standard library.
std::int32_t BaseDetectorImpl::GetIdNumber() {
    const std::string text = Bound(id);
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (end == text.c_str()) {
        throw std::invalid_argument("invalid stoi argument");
    }
    if (errno == ERANGE || number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::int32_t>::max()) {
        throw std::out_of_range("stoi argument out of range");
    }
    return static_cast<std::int32_t>(number);
}

}  // namespace plate_recognition
