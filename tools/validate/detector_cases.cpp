// The parts of a detector and how they are found.

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

#include "sdk/contract_names.h"
#include "tools/validate/case.h"
#include "tools/validate/names.h"
#include "tools/validate/session.h"

namespace validate {

namespace {

namespace ContractName = OKM8::ContractName;

std::vector<void*> PartsOf(const Detector& detector) {
    return {detector.object,   detector.receiver, detector.single,
            detector.settings, detector.errors,   detector.controller};
}

void CheckParts(Session& session) {
    const Detector detector = session.CreateDetector();
    const std::vector<std::pair<const char*, void*>> expected = {
        {ContractName::IContract, detector.object},
        {ContractName::IDestroyable, detector.object},
        {ContractName::IDetector, detector.object},
        {ContractName::IMediaReceiver, detector.receiver},
        {ContractName::IMediaReceiverSingle, detector.single},
        {ContractName::IMediaReceiverSingle2, detector.single},
        {ContractName::IAsyncAdjuster, detector.settings},
        {ContractName::IErrorInfoProvider, detector.errors},
        {ContractName::IMediaReceiverController, detector.controller}};
    for (void* const part : PartsOf(detector)) {
        for (const std::size_t slot : {0u, 1u}) {
            for (const auto& [name, found] : expected) {
                Expect(CallSlot<void*, const char*>(part, slot, name) == found,
                       "slot " + std::to_string(slot) + " of a part returns another object for \"" + name + "\"");
            }
        }
    }
    ExpectEqual("the error code", detector.errors->GetErrorCode(), 0);
}

void CheckOtherNames(Session& session) {
    const Detector detector = session.CreateDetector();
    std::vector<std::string> names = GarbageNames();
    for (const char* const name : {ContractName::IModule, ContractName::IPluginModule, ContractName::ILogger,
                                   ContractName::IBinaryAdjuster, ContractName::ICompositeBuffer}) {
        names.emplace_back(name);
    }
    for (void* const part : PartsOf(detector)) {
        for (const std::size_t slot : {0u, 1u}) {
            Expect(CallSlot<void*, const char*>(part, slot, nullptr) == nullptr, "a null name returns an object");
            for (const std::string& name : names) {
                Expect(CallSlot<void*, const char*>(part, slot, name.c_str()) == nullptr,
                       "slot " + std::to_string(slot) + " returns an object for \"" + name.substr(0, 80) + "\"");
            }
        }
    }
    ExpectEqual("the error code", detector.errors->GetErrorCode(), 0);
}

void CheckSeparateParts(Session& session) {
    const std::vector<void*> parts = PartsOf(session.CreateDetector());
    ExpectEqual("the number of separate parts", std::set<void*>(parts.begin(), parts.end()).size(), parts.size());
    Expect(std::is_sorted(parts.begin(), parts.end()), "the parts are not in the order of their base classes");
}

void CheckControls(Session& session) {
    const Detector detector = session.CreateDetector();
    detector.settings->SetIntValue("no_such_setting", 1);
    for (std::size_t slot = 3; slot < 8; ++slot) {
        ExpectEqual("the result of a control", CallSlot<std::int32_t>(detector.controller, slot), 0);
        ExpectEqual("the result of a control with arguments",
                    CallSlot<std::int32_t, void*, std::int64_t, double>(detector.controller, slot, nullptr, -1, 1.5),
                    0);
    }
    ExpectEqual("the error code, which controls do not change,", detector.errors->GetErrorCode(), 2816);
}

void CheckStartOfErrors(Session& session) {
    const Detector detector = session.CreateDetector();
    ExpectEqual("the error code of a new detector", detector.errors->GetErrorCode(), 0);
    Expect(detector.errors->GetErrorMessage() != nullptr, "the error text of a new detector is null");
    ExpectEqual("the error text of a new detector", std::string(detector.errors->GetErrorMessage()), std::string());
}

void CheckRequests(Session& session) {
    session.CreateDetector();
    const std::vector<std::string> requested = session.host.RequestedInterfaces();
    ExpectEqual("the number of requests to the host", requested.size(), 1u);
    ExpectEqual("the request to the host", requested.front(), std::string(ContractName::ILogger));
}

void CheckNoLog(Session& session) {
    session.host.refusals.logger = true;
    const Detector detector = session.CreateDetector();
    Session::ExpectOutcome("a frame", detector, session.Receive(detector), "");
}

void CheckDestruction(Session& session) {
    for (int round = 0; round < 20; ++round) {
        const Detector first = session.CreateDetector();
        const Detector second = session.CreateDetector();
        Session::ExpectOutcome("a frame", second, session.Receive(second), "");
        session.Destroy(round % 2 == 0 ? first : second);
        const Detector& left = round % 2 == 0 ? second : first;
        Session::ExpectOutcome("a frame after another detector was destroyed", left, session.Receive(left), "");
        session.Destroy(left);
    }
}

}  // namespace

std::vector<Case> DetectorCases() {
    return {
        {1, "every part of a detector returns the part of each name in both slots", CheckParts},
        {1, "every part of a detector returns null for null, garbage and other names", CheckOtherNames},
        {1, "a detector has six separate parts in order", CheckSeparateParts},
        {1, "the controls return 0 and keep the error state", CheckControls},
        {1, "a new detector has no error", CheckStartOfErrors},
        {1, "creating a detector requests only the host's log", CheckRequests},
        {1, "a detector works without the host's log", CheckNoLog},
        {1, "detectors can be created and destroyed in any order", CheckDestruction},
    };
}

}  // namespace validate
