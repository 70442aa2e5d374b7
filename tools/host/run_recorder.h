/// Follows a run: the frames that are passed to the detectors, the calls of the engine, the events.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/host/engine_hook.h"
#include "tools/host/event.h"
#include "tools/ledger/ledger.h"
#include "tools/recording/recording.h"
#include "tools/recording/recording_writer.h"

namespace plate_host {

/// Completes the record of a frame while a detector handles it, then keeps the ledger and writes the record. Any
/// thread; the frames of a channel come one after another.
class RunRecorder : public EngineHook, public EventSink {
  public:
    /// Makes the crop of an event's frame, if there is one.
    using CropMaker = std::function<std::optional<recording::Crop>(const EventRecord&)>;

    /// Passes each event on to `next`. `makeCrop` may be empty.
    RunRecorder(EventSink& next, CropMaker makeCrop);

    /// Also writes the run. REQUIRES: there is no channel yet.
    void WriteTo(std::unique_ptr<recording::RecordingWriter> writer) { writer_ = std::move(writer); }
    bool IsWriting() const { return writer_ != nullptr; }

    /// Channels are added before their first frame, in the order of their numbers from 0.
    void AddChannel(const recording::Channel& channel);

    /// The frame that this thread passes to a detector, from construction to destruction. What happens meanwhile on
    /// this thread is added to `frame`.
    class FrameScope {
      public:
        explicit FrameScope(recording::Frame& frame);
        ~FrameScope();
        FrameScope(const FrameScope&) = delete;
        FrameScope& operator=(const FrameScope&) = delete;
    };

    /// Adds a frame that a detector has handled. REQUIRES: its scope has ended.
    virtual void Finish(const recording::Frame& frame);

    /// Writes the last record.
    void End(const recording::End& end);

    /// The counts of all channels. REQUIRES: no frame is being handled.
    ledger::Counts Counts() const;
    /// The calls of the engine on a thread that was not passing a frame; they are in no record.
    std::uint64_t CallsOutsideFrames() const { return callsOutsideFrames_.load(); }
    /// Why the recording could not be written; empty when it could, or when there is none.
    std::string WriteError() const { return writer_ == nullptr ? std::string() : writer_->Error(); }

    int Recognise(const EngineFunctions& engine, IMG* image, tagRECT* region, RPLATE* plates, int flags) final;
    bool SetRange(const EngineFunctions& engine, int minimumWidth, int maximumWidth) final;
    void OnEvent(const EventRecord& event) override;
    void OnFailedEvent(const std::string& step) override;

  protected:
    /// Call the engine. `frame` is the one that this thread passes to a detector, with its calls so far, of which that
    /// of CallRecognise is the last one; null on other threads.
    virtual int CallRecognise(const EngineFunctions& engine, const recording::Frame* frame, IMG* image, tagRECT* region,
                              RPLATE* plates, int flags);
    virtual bool CallSetRange(const EngineFunctions& engine, const recording::Frame* frame, int minimumWidth,
                              int maximumWidth);

  private:
    EventSink& next_;
    std::unique_ptr<recording::RecordingWriter> writer_;  // null when nothing is written
    const CropMaker makeCrop_;
    std::vector<std::unique_ptr<ledger::ChannelLedger>> ledgers_;  // by channel; each used by its channel's thread
    std::atomic<std::uint64_t> callsOutsideFrames_{0};
};

/// Returns the records that an engine wrote, without the bytes that nobody reads.
std::vector<RPLATE> WrittenPlates(const RPLATE* plates, int count);

}  // namespace plate_host
