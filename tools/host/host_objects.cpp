#include "tools/host/host_objects.h"

#include <cstring>
#include <exception>

#include "sdk/contract_names.h"
#include "tools/host/contract_query.h"

namespace plate_host {

namespace ContractName = OKM8::ContractName;

namespace {

std::string TextOf(const char* text) {
    return text == nullptr ? std::string("(null)") : std::string(text);
}

}  // namespace

// HostLogger

void* HostLogger::QueryContract(const char* contractName) {
    return IsOneOf(contractName, {ContractName::IContract, ContractName::ILogger}) ? this : nullptr;
}

void* HostLogger::QueryContract(const char* contractName) const {
    return const_cast<HostLogger*>(this)->QueryContract(contractName);
}

void HostLogger::WriteLog(int32_t level, const char* text) {
    console_.Line("plate-host: log " + std::to_string(level) + ": " + OneLine(TextOf(text)));
}

// Target

void* Target::QueryContract(const char* contractName) {
    if (IsOneOf(contractName, {ContractName::IContract, ContractName::ICloneable, ContractName::ITargetAdjuster})) {
        return static_cast<OKM8::Analytics::ITargetAdjuster*>(this);
    }
    if (IsOneOf(contractName, {ContractName::IBinaryAdjuster})) {
        return static_cast<OKM8::IBinaryAdjuster*>(this);
    }
    return nullptr;
}

void* Target::QueryContract(const char* contractName) const {
    return const_cast<Target*>(this)->QueryContract(contractName);
}

void Target::Set(const char* name, Json value) {
    values_[TextOf(name)] = std::move(value);
}

void Target::SetStringValue(const char* name, const char* value) {
    Set(name, value == nullptr ? Json() : Json(std::string(value)));
}

void Target::SetDoubleValue(const char* name, double value) {
    Set(name, value);
}

void Target::SetIntValue(const char* name, int32_t value) {
    Set(name, value);
}

void Target::SetBoolValue(const char* name, bool value) {
    Set(name, value);
}

void Target::SetBinaryValue(const char* name, const void* data, uint32_t size) {
    const std::string key = TextOf(name);
    if (key != OKM8::Analytics::PlateKey::AllTracks) {
        values_[key] = nullptr;  // keeps its place in the order
    }
    std::erase_if(bytes_, [&key](const Bytes& earlier) { return earlier.name == key; });
    bytes_.push_back({key, data, size});
}

TargetRecord Target::Describe() const {
    TargetRecord record;
    record.arguments = values_;
    for (const Bytes& value : bytes_) {
        if (value.name == OKM8::Analytics::PlateKey::AllTracks && value.data != nullptr &&
            value.size == sizeof(OKM8::Analytics::TrackPointList)) {
            OKM8::Analytics::TrackPointList track{};
            std::memcpy(&track, value.data, sizeof track);
            record.track = TrackToJson(track);
        } else {
            record.arguments[value.name] = value.data == nullptr ? Json() : Json(ToHexadecimal(value.data, value.size));
        }
    }
    return record;
}

// TargetList

void* TargetList::QueryContract(const char* contractName) {
    return IsOneOf(contractName, {ContractName::IContract, ContractName::ITargetEnumeratorAdjuster}) ? this : nullptr;
}

void* TargetList::QueryContract(const char* contractName) const {
    return const_cast<TargetList*>(this)->QueryContract(contractName);
}

OKM8::Analytics::ITargetAdjuster* TargetList::AddTarget(int32_t) {
    return targets_.emplace_back(std::make_unique<Target>()).get();
}

std::vector<TargetRecord> TargetList::Describe() const {
    std::vector<TargetRecord> records;
    for (const std::unique_ptr<Target>& target : targets_) {
        records.push_back(target->Describe());
    }
    return records;
}

// TargetListFactory

void* TargetListFactory::QueryContract(const char* contractName) {
    return IsOneOf(contractName, {ContractName::IContract, ContractName::ITargetEnumeratorFactory}) ? this : nullptr;
}

void* TargetListFactory::QueryContract(const char* contractName) const {
    return const_cast<TargetListFactory*>(this)->QueryContract(contractName);
}

OKM8::Analytics::ITargetEnumeratorAdjuster* TargetListFactory::CreateTargetEnumerator(int64_t) {
    auto list = std::make_unique<TargetList>();
    TargetList* const created = list.get();
    const std::lock_guard lock(mutex_);
    unattachedLists_.emplace(created, std::move(list));
    return created;
}

std::unique_ptr<TargetList> TargetListFactory::Take(const OKM8::IContract* object) {
    const std::lock_guard lock(mutex_);
    const auto found = unattachedLists_.find(object);
    if (found == unattachedLists_.end()) {
        return nullptr;
    }
    std::unique_ptr<TargetList> list = std::move(found->second);
    unattachedLists_.erase(found);
    return list;
}

std::size_t TargetListFactory::UnattachedListCount() const {
    const std::lock_guard lock(mutex_);
    return unattachedLists_.size();
}

// HostObject

void* HostObject::QueryContract(const char* contractName) {
    return IsOneOf(contractName, {ContractName::IContract}) ? this : nullptr;
}

void* HostObject::QueryContract(const char* contractName) const {
    return const_cast<HostObject*>(this)->QueryContract(contractName);
}

void* HostObject::GetInterface(const char* contractName) {
    if (IsOneOf(contractName, {ContractName::ILogger})) {
        return static_cast<OKM8::ILogger*>(&logger_);
    }
    if (IsOneOf(contractName, {ContractName::ITargetEnumeratorFactory})) {
        return static_cast<OKM8::Analytics::ITargetEnumeratorFactory*>(&targetLists_);
    }
    return nullptr;
}

// EventArguments

void* EventArguments::QueryContract(const char* contractName) {
    return IsOneOf(contractName, {ContractName::IContract, ContractName::IEventArgsAdjuster}) ? this : nullptr;
}

void* EventArguments::QueryContract(const char* contractName) const {
    return const_cast<EventArguments*>(this)->QueryContract(contractName);
}

void EventArguments::SetObjectValue(const char* name, OKM8::IContract* value) {
    const std::string key = TextOf(name);
    if (key == OKM8::Analytics::EventKey::Targets) {
        if (std::unique_ptr<TargetList> list = targetLists_.Take(value)) {
            targets_ = std::move(list);
            return;
        }
    }
    otherObjects_.push_back(key);
}

void EventArguments::DescribeInto(EventRecord& event) const {
    if (targets_ != nullptr) {
        event.targets = targets_->Describe();
    }
    event.otherObjects = otherObjects_;
}

// EventRaiser

void* EventRaiser::QueryContract(const char* contractName) {
    return IsOneOf(contractName, {ContractName::IContract, ContractName::IDetectorEventRaiser}) ? this : nullptr;
}

void* EventRaiser::QueryContract(const char* contractName) const {
    return const_cast<EventRaiser*>(this)->QueryContract(contractName);
}

void EventRaiser::Raise() {
    peer_.End(*this, true);
}

void EventRaiser::Discard() {
    peer_.End(*this, false);
}

void EventRaiser::DescribeInto(EventRecord& event) const {
    event.name = name_;
    event.timeMs = timeMs_;
    arguments_.DescribeInto(event);
}

// DetectorPeer

namespace {

// What a discarded event had got, in the order in which a library sets it.
const char* LastStepOf(const EventRecord& event) {
    if (event.targets.empty()) {
        return "discarded without a target";
    }
    if (event.targets.front().arguments.empty()) {
        return "discarded before its target had values";
    }
    return event.targets.front().track.is_null() ? "discarded before its target had a track"
                                                 : "discarded with all values";
}

}  // namespace

void* DetectorPeer::QueryContract(const char* contractName) {
    return IsOneOf(contractName, {ContractName::IContract}) ? this : nullptr;
}

void* DetectorPeer::QueryContract(const char* contractName) const {
    return const_cast<DetectorPeer*>(this)->QueryContract(contractName);
}

OKM8::Analytics::IDetectorEventRaiser* DetectorPeer::CreateEventRaiser(OKM8::Analytics::IDetector*,
                                                                       const char* eventName, int64_t timeMs, int32_t) {
    auto raiser = std::make_unique<EventRaiser>(*this, host_.TargetLists(), TextOf(eventName), timeMs);
    EventRaiser* const created = raiser.get();
    const std::lock_guard lock(mutex_);
    raisers_.emplace(created, std::move(raiser));
    ++counts_.created;
    return created;
}

void DetectorPeer::End(EventRaiser& raiser, bool raised) {
    std::unique_ptr<EventRaiser> ended;
    {
        const std::lock_guard lock(mutex_);
        const auto found = raisers_.find(&raiser);
        if (found == raisers_.end()) {
            return;
        }
        ended = std::move(found->second);
        raisers_.erase(found);
        ++(raised ? counts_.raised : counts_.discarded);
    }
    Publish(*ended, raised);
}

// Called by the library, which no exception may reach.
void DetectorPeer::Publish(const EventRaiser& raiser, bool raised) {
    try {
        EventRecord event;
        event.channel = channel_;
        raiser.DescribeInto(event);
        if (raised) {
            sink_.OnEvent(event);
        } else {
            sink_.OnFailedEvent(LastStepOf(event));
        }
    } catch (const std::exception& failure) {
        console_.Line(std::string("plate-host: cannot write an event: ") + OneLine(failure.what()));
    }
}

RaiserCounts DetectorPeer::Counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

}  // namespace plate_host
