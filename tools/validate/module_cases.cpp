// The exported functions, the module object, unloading, and what is quiet at debug level 0.

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "sdk/contract_names.h"
#include "tools/validate/case.h"
#include "tools/validate/names.h"
#include "tools/validate/session.h"
#include "tools/validate/system.h"

namespace validate {

namespace {

using recording_host::Operation;

namespace ContractName = OKM8::ContractName;

constexpr char createdLine[] = "Create vexlane detector";

std::string Joined(std::vector<std::string> words) {
    std::sort(words.begin(), words.end());
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

void CheckExports(Session& session) {
    namespace Names = OKM8::ExportName;
    ExpectEqual("the list of exports", Joined(ExportedNames(session.LibraryFile())),
                Joined({Names::InitializeModule, Names::GetModule, Names::FinalizeModule}));
}

void CheckNullBefore(Session& session) {
    Expect(session.Loaded().GetModule() == nullptr, "GetModule returns an object before InitializeModule");
}

void CheckNullHost(Session& session) {
    ExpectEqual("the result of InitializeModule", session.Loaded().InitializeModule(nullptr), 0);
    Expect(session.Loaded().GetModule() == nullptr, "GetModule returns an object for a null host");
}

void CheckSameModule(Session& session) {
    Expect(session.Loaded().GetModule() == nullptr, "GetModule returns an object before InitializeModule");
    OKM8::Analytics::IModule* const module = &session.Module();
    Expect(session.Loaded().GetModule() == module && session.Loaded().GetModule() == module,
           "GetModule returns another object at its second call");
}

void CheckCreationCallsNothing(Session& session) {
    // Not an address: any use of it ends the process.
    session.Loaded().InitializeModule(reinterpret_cast<void*>(std::uintptr_t{1}));
    Expect(session.Loaded().GetModule() != nullptr, "GetModule returns null");
    session.Loaded().FinalizeModule();
}

void CheckNullAfterFinalization(Session& session) {
    session.Module();
    session.Finalize();
    Expect(session.Loaded().GetModule() == nullptr, "GetModule returns an object after FinalizeModule");
}

void CheckFinalizationForgetsHost(Session& session) {
    session.Loaded().InitializeModule(session.host.Object());
    session.Loaded().FinalizeModule();
    Expect(session.Loaded().GetModule() == nullptr, "GetModule returns an object after FinalizeModule");
}

void CheckFinalizationAtAnyTime(Session& session) {
    session.Loaded().FinalizeModule();
    session.Module();
    session.Finalize();
    session.Loaded().FinalizeModule();
    Expect(session.Loaded().GetModule() == nullptr, "GetModule returns an object after FinalizeModule");
}

void CheckNewModules(Session& session) {
    for (int round = 0; round < 3; ++round) {
        session.Destroy(session.CreateDetector());
        session.Finalize();
    }
}

void CheckSecondInitialization(Session& session) {
    OKM8::Analytics::IModule* const module = &session.Module();
    ExpectEqual("the result of InitializeModule", session.Loaded().InitializeModule(nullptr), 0);
    Expect(session.Loaded().GetModule() == module, "GetModule returns another object");
    session.Destroy(session.CreateDetector());
    ExpectEqual("the number of requests for the log from the first host", session.Count(Operation::GetLogger), 1);
}

void CheckModuleNames(Session& session) {
    OKM8::Analytics::IModule* const module = &session.Module();
    for (const std::size_t slot : {0u, 1u}) {
        for (const char* const name : {ContractName::IContract, ContractName::IPluginModule, ContractName::IModule}) {
            Expect(CallSlot<void*, const char*>(module, slot, name) == module,
                   "slot " + std::to_string(slot) + " does not return the module for \"" + name + "\"");
        }
    }
}

void CheckOtherModuleNames(Session& session) {
    OKM8::Analytics::IModule* const module = &session.Module();
    std::vector<std::string> names = GarbageNames();
    for (const char* const name :
         {ContractName::IDetector, ContractName::IDestroyable, ContractName::IMediaReceiver,
          ContractName::IMediaReceiverSingle, ContractName::IMediaReceiverSingle2, ContractName::IAsyncAdjuster,
          ContractName::IErrorInfoProvider, ContractName::IMediaReceiverController, ContractName::ILogger}) {
        names.emplace_back(name);
    }
    for (const std::size_t slot : {0u, 1u}) {
        Expect(CallSlot<void*, const char*>(module, slot, nullptr) == nullptr, "a null name returns an object");
        for (const std::string& name : names) {
            Expect(CallSlot<void*, const char*>(module, slot, name.c_str()) == nullptr,
                   "slot " + std::to_string(slot) + " returns an object for \"" + name.substr(0, 80) + "\"");
        }
    }
}

void CheckReservedArgument(Session& session) {
    void* const object = CallSlot<void*, void*, OKM8::IContract*>(
        &session.Module(), 3, reinterpret_cast<void*>(std::uintptr_t{1}), session.host.Peer());
    Expect(object != nullptr, "the fourth slot of the module returns null");
    Expect(CallSlot<void*, const char*>(object, 0, ContractName::IDetector) == object,
           "the detector does not return itself for its own name");
    CallSlot<void>(object, 3);
}

void CheckNullPeer(Session& session) {
    int anything = 0;
    session.Module();
    const int threads = ThreadCount();
    for (void* const reserved : {static_cast<void*>(nullptr), static_cast<void*>(&anything)}) {
        Expect(session.Module().CreateDetector(reserved, nullptr) == nullptr, "a null peer gets a detector");
    }
    ExpectEqual("the number of requests to the host", session.host.RequestedInterfaces().size(), 0u);
    ExpectEqual("the number of threads", ThreadCount(), threads);
}

void CheckSeparateDetectors(Session& session) {
    const Detector first = session.CreateDetector();
    Expect(first.object != session.CreateDetector().object, "two calls return the same detector");
}

// Unloading

void ExpectQuickUnload(Session& session) {
    constexpr std::chrono::seconds longest(2);
    const auto start = std::chrono::steady_clock::now();
    session.Unload();
    Expect(std::chrono::steady_clock::now() - start < longest, "unloading takes longer than two seconds");
}

void ExpectUnmapped(Session& session) {
    Expect(WaitUntil([&] { return !IsLoaded(session.LibraryFile()); }), "the library is still loaded");
}

void CheckUnusedUnload(Session& session) {
    session.Loaded();
    ExpectQuickUnload(session);
    ExpectUnmapped(session);
}

void CheckRepeatedUnload(Session& session) {
    for (int round = 0; round < 3; ++round) {
        const Detector detector = session.CreateDetector();
        Session::ExpectOutcome("a frame", detector, session.Receive(detector), "");
        session.Destroy(detector);
        session.Finalize();
        ExpectQuickUnload(session);
        ExpectUnmapped(session);
    }
}

// What is never destroyed stays allocated, where the leak checker finds it.
std::vector<void*>& Abandoned() {
    static std::vector<void*>& objects = *new std::vector<void*>;
    return objects;
}

void CheckUnloadWithModule(Session& session) {
    Abandoned().push_back(&session.Module());
    ExpectQuickUnload(session);
    ExpectUnmapped(session);
}

void CheckUnloadWithDetector(Session& session) {
    session.loses = true;
    for (int round = 0; round < 5; ++round) {
        Abandoned().push_back(&session.Module());
        const Detector detector = session.CreateDetector();
        Abandoned().push_back(detector.object);
        ExpectQuickUnload(session);
        if (pollingKeepsTheLibrary && IsLoaded(session.LibraryFile())) {
            // Its thread keeps it. A host that loads it again ends that thread as usual.
            session.Loaded();
            detector.object->Destroy();
            session.Loaded().FinalizeModule();
            ExpectQuickUnload(session);
        }
        ExpectUnmapped(session);
    }
}

// The plates of the frames are in open tracks, so the detector holds the frames.
void CheckUnloadWithHeldFrames(Session& session) {
    constexpr int frames = 8;
    session.loses = true;
    session.folder.SetScript(ScriptOfVehicles(frames));
    Abandoned().push_back(&session.Module());
    const Detector detector = session.CreateDetector();
    Abandoned().push_back(detector.object);
    for (int frame = 0; frame < frames; ++frame) {
        Session::ExpectOutcome("a frame with a plate", detector, session.Receive(detector), "");
    }
    const int released = session.buffers.released.load();
    Expect(released < frames, "the detector does not hold the frames of open tracks");
    ExpectQuickUnload(session);
    ExpectEqual("the number of frames that are released after the unloading", session.buffers.released.load(),
                released);
}

void CheckNoThreadIsLeft(Session& session) {
    session.Loaded();
    // A run-time library may add a thread of its own to the first one of a process.
    RunTogether({[] {}});
    const int before = ThreadCount();
    std::vector<Detector> detectors;
    for (int each = 0; each < 3; ++each) {
        detectors.push_back(session.CreateDetector());
        Session::ExpectOutcome("a frame", detectors.back(), session.Receive(detectors.back()), "");
    }
    session.DestroyAll();
    session.Finalize();
    int after = 0;
    WaitUntil([&] { return (after = ThreadCount()) <= before; });
    ExpectEqual("the number of threads after finalization", after, before);
}

// The debug level

void CheckMissingLevel(Session& session) {
    const DebugLines lines;
    session.Destroy(session.CreateDetector());
    Expect(session.folder.HasEmptyKey(), "the key of the debug level was not created, or has a value");
    ExpectEqual("the debug output", lines.Text(), std::string());
}

void CheckLevelIsReadEveryTime(Session& session) {
    for (const auto& [level, isVerbose] : std::vector<std::pair<std::string, bool>>{
             {"0", false}, {"1", true}, {"abc", false}, {"-5", true}, {"", false}, {"1abc", true}}) {
        session.folder.SetDebugLevel(level);
        const DebugLines lines;
        session.Destroy(session.CreateDetector());
        session.Finalize();
        const std::string text = lines.Text();
        ExpectEqual("whether level \"" + level + "\" traces the detector", text.find(createdLine) != std::string::npos,
                    isVerbose);
        ExpectEqual("whether level \"" + level + "\" writes nothing", text.empty(), !isVerbose);
    }
}

void CheckLevelIsNotReadLater(Session& session) {
    session.folder.SetDebugLevel("0");
    session.Module();
    session.folder.SetDebugLevel("1");
    const DebugLines lines;
    session.Destroy(session.CreateDetector());
    ExpectEqual("the debug output", lines.Text(), std::string());
}

void CheckQuietLevel(Session& session) {
    const DebugLines lines;
    session.folder.SetScript(ScriptOfVehicles(8));
    const Detector detector = session.CreateReportingDetector();
    for (int frame = 0; frame < 4; ++frame) {
        session.Receive(detector);
    }
    session.Receive(detector, session.Frame(0, 0));
    session.Receive(detector, nullptr);
    detector.settings->SetIntValue("no_such_setting", 1);
    session.host.refusals.arguments = true;
    session.Receive(detector);
    session.host.refusals.arguments = false;
    session.onCall = recording_host::On(Operation::SetIntValue, [] { throw std::runtime_error("the host fails"); });
    session.Receive(detector);
    session.onCall = nullptr;
    session.DestroyAll();
    session.Finalize();
    ExpectEqual("the debug output", lines.Text(), std::string());
    Expect(session.host.Log().empty(), "the host's log has a line");
}

}  // namespace

std::vector<Case> ModuleCases() {
    return {
        {1, "the library exports exactly the three functions of the contract", CheckExports},
        {1, "the module is null before initialization", CheckNullBefore},
        {1, "the module is null for a null host", CheckNullHost},
        {1, "the module is the same object at every call", CheckSameModule},
        {1, "creating the module calls nothing of the host", CheckCreationCallsNothing},
        {1, "the module is null after finalization", CheckNullAfterFinalization},
        {1, "finalization without a module forgets the host", CheckFinalizationForgetsHost},
        {1, "finalization without initialization and twice is harmless", CheckFinalizationAtAnyTime},
        {1, "the module can be created again after finalization", CheckNewModules},
        {1, "a second initialization keeps the module and its host", CheckSecondInitialization},
        {1, "the module returns itself for its three names", CheckModuleNames},
        {1, "the module returns null for null, garbage and all other names", CheckOtherModuleNames},
        {1, "a detector is created without reading the first argument", CheckReservedArgument},
        {1, "no detector is created without a peer", CheckNullPeer},
        {1, "every call creates another detector", CheckSeparateDetectors},
        {1, "an unused library is unloaded", CheckUnusedUnload},
        {1, "the library can be loaded, used and unloaded again", CheckRepeatedUnload},
        {1, "the library is unloaded while its module exists", CheckUnloadWithModule},
        {1, "unloading while a detector exists returns and leaves no library behind", CheckUnloadWithDetector},
        {1, "unloading while a detector holds frames returns and does not touch them", CheckUnloadWithHeldFrames},
        {1, "no thread of the library is left after finalization", CheckNoThreadIsLeft},
        {1, "initialization creates the key of the debug level and writes nothing", CheckMissingLevel},
        {1, "the debug level is read at every initialization", CheckLevelIsReadEveryTime},
        {1, "the debug level is not read between initializations", CheckLevelIsNotReadLater},
        {1, "nothing is written to the debug output at level 0", CheckQuietLevel},
    };
}

}  // namespace validate
