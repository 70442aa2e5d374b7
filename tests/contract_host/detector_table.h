/// The first table of a detector, as a declaration that every compiler can lay out: the operations in slot order, with
/// placeholders for the classes of C++ libraries. Operations that take or return such a class by value cannot be called
/// through it.
#pragma once

#include "sdk/buffer.h"
#include "sdk/detector.h"
#include "sdk/events.h"

namespace detector_table {

// Named after the classes that they replace.
struct string;
struct FrameImage;
struct RecognitionResult;
struct TrackPoint;
template <class Object>
struct shared_ptr;
template <class Element>
struct vector;

struct BaseDetectorImpl : OKM8::Analytics::IDetector {
    virtual void OnSettingsApplied() = 0;
    virtual void Log(const string& message, int32_t errorCode, int32_t level) = 0;
    virtual int32_t GetIdNumber() = 0;
    virtual uint32_t SetFrameSize(uint32_t width, uint32_t height) = 0;
    virtual void SetFrameSizeAndApply(uint32_t width, uint32_t height) = 0;
    virtual void RebuildTransforms() = 0;
    virtual void Recognize(FrameImage& frame, shared_ptr<OKM8::MFF::ICompositeBuffer> buffer) = 0;
    virtual bool IsHalfFrame() = 0;
    virtual int32_t ProcessInput(OKM8::MFF::IMultimediaBuffer* inputData, OKM8::IContract* frameDoneCallback) = 0;
    virtual string GetLogPrefix() = 0;
    OKM8_OVERLOADS_IN_SLOT_ORDER(virtual void ReportEngineInitFailure(int32_t device, const string& info) = 0,
                                 virtual void ReportEngineInitFailure(const string& device, const string& info) = 0);
    virtual bool LogError(const char* text, int32_t code) = 0;
    virtual string GetDefaultFiguresKey() = 0;
    virtual int32_t GetFrameString(const char* name, string& value) = 0;
    virtual int32_t GetFrameDouble(const char* name, double& value) = 0;
    virtual int32_t GetFrameInt(const char* name, int32_t& value) = 0;
    virtual int32_t GetFrameBool(const char* name, bool& value) = 0;
    virtual int32_t GetFrameText(const char* name, const char*& value) = 0;
    virtual void BeginSingleCall(const OKM8::FrameArea& area) = 0;
    virtual void EndSingleCall() = 0;
};

struct VexlaneDetectorImpl : BaseDetectorImpl {
    virtual string GetDetectorType() = 0;
    virtual void FillEventArguments(const RecognitionResult& result, OKM8::Analytics::ITargetValues& values) = 0;
    virtual void RaisePlateEvent(const RecognitionResult& result, const vector<TrackPoint>& track) = 0;
};

}  // namespace detector_table
