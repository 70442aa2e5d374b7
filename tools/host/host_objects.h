/// The host's side of the contract: the host object, its services, and the objects of events.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sdk/host.h"
#include "tools/host/console.h"
#include "tools/host/event.h"

namespace plate_host {

/// Writes the library's log lines to standard error. Any thread.
class HostLogger final : public OKM8::ILogger {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(HostLogger)
    explicit HostLogger(Console& console) : console_(console) {}

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void Unused1() override {}
    void Unused2() override {}
    void WriteLog(int32_t level, const char* text) override;

  private:
    Console& console_;
};

/// A target and its values. Stores only the address of a binary value and reads its bytes when the event is raised: the
/// contract obliges the library to keep them until then. Used on one frame thread.
class Target final : public OKM8::Analytics::ITargetAdjuster, public OKM8::IBinaryAdjuster {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(Target)

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void SetStringValue(const char* name, const char* value) override;
    void SetDoubleValue(const char* name, double value) override;
    void SetIntValue(const char* name, int32_t value) override;
    void SetBoolValue(const char* name, bool value) override;
    void SetBinaryValue(const char* name, const void* data, uint32_t size) override;

    /// Copies all values, including the bytes.
    TargetRecord Describe() const;

  private:
    struct Bytes {
        std::string name;
        const void* data;
        std::uint32_t size;
    };

    void Set(const char* name, Json value);

    Json values_ = Json::object();
    std::vector<Bytes> bytes_;
};

/// The targets of one event. Used on one frame thread.
class TargetList final : public OKM8::Analytics::ITargetEnumeratorAdjuster {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(TargetList)

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    OKM8::Analytics::ITargetAdjuster* AddTarget(int32_t reserved) override;

    std::vector<TargetRecord> Describe() const;

  private:
    std::vector<std::unique_ptr<Target>> targets_;
};

/// Creates target lists and owns each until it is attached to an event. Any thread.
class TargetListFactory final : public OKM8::Analytics::ITargetEnumeratorFactory {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(TargetListFactory)

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    OKM8::Analytics::ITargetEnumeratorAdjuster* CreateTargetEnumerator(int64_t timeMs) override;

    /// Passes ownership of the list to the caller; null when the object is not a list of this factory or was taken
    /// before.
    std::unique_ptr<TargetList> Take(const OKM8::IContract* object);

    /// The number of lists that are not attached to an event.
    std::size_t UnattachedListCount() const;

  private:
    mutable std::mutex mutex_;
    std::unordered_map<const OKM8::IContract*, std::unique_ptr<TargetList>> unattachedLists_;  // guarded by mutex
};

/// The object passed to InitializeModule.
class HostObject final : public OKM8::IHost {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(HostObject)
    explicit HostObject(Console& console) : logger_(console) {}

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void* GetInterface(const char* contractName) override;

    TargetListFactory& TargetLists() { return targetLists_; }

  private:
    HostLogger logger_;
    TargetListFactory targetLists_;
};

class DetectorPeer;

/// The arguments of one event. Used on one frame thread.
class EventArguments final : public OKM8::Analytics::IEventArgsAdjuster {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(EventArguments)
    explicit EventArguments(TargetListFactory& targetLists) : targetLists_(targetLists) {}

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    void SetObjectValue(const char* name, OKM8::IContract* value) override;

    void DescribeInto(EventRecord& event) const;

  private:
    TargetListFactory& targetLists_;
    std::unique_ptr<TargetList> targets_;
    std::vector<std::string> otherObjects_;
};

/// One event under construction, until Raise or Discard. Used on one frame thread.
class EventRaiser final : public OKM8::Analytics::IDetectorEventRaiser {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(EventRaiser)
    EventRaiser(DetectorPeer& peer, TargetListFactory& targetLists, std::string name, std::int64_t timeMs)
        : peer_(peer), arguments_(targetLists), name_(std::move(name)), timeMs_(timeMs) {}

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void Unused1() override {}
    void Raise() override;
    void Discard() override;
    OKM8::Analytics::IEventArgsAdjuster* GetEventArgs() override { return &arguments_; }

    void DescribeInto(EventRecord& event) const;

  private:
    DetectorPeer& peer_;
    EventArguments arguments_;
    const std::string name_;
    const std::int64_t timeMs_;
};

/// Counts of a detector's event raisers.
struct RaiserCounts {
    std::uint64_t created = 0;
    std::uint64_t raised = 0;
    std::uint64_t discarded = 0;
};

/// The host's object for one detector. Owns the raisers until they are raised or discarded. Any thread.
class DetectorPeer final : public OKM8::Analytics::IDetectorPeer {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(DetectorPeer)
    /// The host object, the sink and the console must outlive the peer.
    DetectorPeer(int channel, HostObject& host, EventSink& sink, Console& console)
        : channel_(channel), host_(host), sink_(sink), console_(console) {}

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    OKM8::Analytics::IDetectorEventRaiser* CreateEventRaiser(OKM8::Analytics::IDetector* detector,
                                                             const char* eventName, int64_t timeMs,
                                                             int32_t kind) override;

    /// Ends and frees a raiser of this peer.
    void End(EventRaiser& raiser, bool raised);

    RaiserCounts Counts() const;

  private:
    void Publish(const EventRaiser& raiser, bool raised);

    const int channel_;
    HostObject& host_;
    EventSink& sink_;
    Console& console_;
    mutable std::mutex mutex_;
    std::unordered_map<const EventRaiser*, std::unique_ptr<EventRaiser>> raisers_;  // guarded by mutex
    RaiserCounts counts_;                                                           // guarded by mutex
};

}  // namespace plate_host
