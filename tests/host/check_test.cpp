// plate-host check: each check's outcomes. The process that runs the checks sees every process of the server's name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "sdk/module.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"
#include "tests/support/scratch_registry.h"
#include "tests/support/servers.h"
#include "tests/support/wait_until.h"
#include "tools/host/check_clip.h"
#include "tools/host/check_machine.h"

namespace host_test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Key;
using testing::Not;
using testing::Pair;
using testing::StartsWith;

using Json = nlohmann::ordered_json;

const std::vector<std::string> checks{
    "kernels",      "debug level",      "debug output", "other servers",   "server program",  "processes",
    "engine",       "engine functions", "library",      "library version", "library exports", "library start",
    "server start", "plate range",      "clip",         "server end",      "library end",     "nothing left"};

struct Checked {
    int status = 0;
    std::map<std::string, Json> results;
    std::string text;

    std::string State(const std::string& check) const { return results.at(check)["state"]; }
    std::string Found(const std::string& check) const { return results.at(check)["found"]; }

    /// The checks that are not ok, with their state.
    std::map<std::string, std::string> Faults() const {
        std::map<std::string, std::string> faults;
        for (const auto& [check, result] : results) {
            if (result["state"] != "ok") {
                faults[check] = result["state"];
            }
        }
        return faults;
    }

    /// The checks that fail but for those that were not tried.
    std::set<std::string> Failed() const {
        std::set<std::string> failed;
        for (const auto& [check, result] : results) {
            if (result["state"] == "fails" && !result["found"].get<std::string>().starts_with("not tried, because ")) {
                failed.insert(check);
            }
        }
        return failed;
    }
};

Checked Parsed(const Finished& run) {
    Checked checked;
    checked.status = run.status;
    checked.text = run.output + run.errors;
    std::vector<std::string> names;
    std::istringstream output(run.output);
    for (std::string text; std::getline(output, text);) {
        const Json line = Json::parse(text);
        names.push_back(line.at("check"));
        checked.results[names.back()] = line;
        EXPECT_EQ(line.size(), 4u) << line;
        EXPECT_EQ(line.at("do").get<std::string>().empty(), line.at("state") == "ok") << line;
    }
    EXPECT_EQ(names, checks) << checked.text;
    return checked;
}

class Check : public testing::Test {
  protected:
    Check() { servers::RequireNoForeignServer(); }

    /// Runs the program to its end, with the library and the scripted engine unless others are named.
    Checked Run(const std::map<std::string, std::string>& given = {},
                const test_support::EnvironmentChanges& environment = {}, const std::string& program = {}) const {
        std::map<std::string, std::string> options{
            {"--plugin", HOST_TEST_LIBRARY}, {"--engine", HOST_TEST_SCRIPTED_ENGINE}, {"--timeout", "300"}};
        for (const auto& [option, value] : given) {
            options[option] = value;
        }
        std::vector<std::string> arguments{"check", "--json"};
        for (const auto& [option, value] : options) {
            if (!value.empty()) {
                arguments.insert(arguments.end(), {option, value});
            }
        }
        test_support::EnvironmentChanges changes{{"VEXLANE_SCRIPT", folder.Path("script.json")}};
        changes.insert(changes.end(), environment.begin(), environment.end());
        HostProcess process({.program = plate_host::ToPath(program), .arguments = arguments, .environment = changes});
        return Parsed(process.Wait());
    }

    /// Every picture has a plate of that text; an empty text for none.
    std::string ScriptOf(const std::string& text) const {
        Json frame{
            {"plates", {{{"text", text}, {"confidence", 600}, {"corners", {{9, 9}, {9, 29}, {89, 9}, {89, 29}}}}}}};
        return Json{{"repeat", true}, {"frames", {text.empty() ? Json::object() : frame}}}.dump();
    }

    const TemporaryFolder folder;
    const std::string script = folder.Write("script.json", ScriptOf(""));
};

#ifdef HOST_TEST_READING_ENGINE
TEST_F(Check, EverythingIsOkWithThePackagesFiles) {
    const std::string host = CopyHost(folder);
    const auto nameOf = [](const char* path) { return plate_host::ToText(plate_host::ToPath(path).filename()); };
    folder.Copy(HOST_TEST_LIBRARY, nameOf(HOST_TEST_LIBRARY));
    folder.MakeFolder("reference-engine");
    folder.Copy(HOST_TEST_READING_ENGINE, "reference-engine/" + nameOf(HOST_TEST_READING_ENGINE));
    folder.Copy(HOST_TEST_SERVER, "reference-engine/plate-Server.exe");
    const Checked checked = Run({{"--plugin", ""}, {"--engine", ""}}, {}, host);
    EXPECT_THAT(checked.Faults(), testing::IsEmpty()) << checked.text;
    EXPECT_EQ(checked.status, 0);
    EXPECT_THAT(checked.Found("clip"), StartsWith(std::string("the plate was read as \"") + plate_host::clipPlateText));
    EXPECT_THAT(checked.Found("server program"), HasSubstr("reference-engine"));
    EXPECT_THAT(checked.Found("server start"), StartsWith("the library has started process "));
}

TEST_F(Check, NoEventOfTheReferenceEngineFails) {
    // What tells it from other engines, written into another one.
    constexpr char mark[] = "VEXLANE_READING_SOCKET";
    std::ostringstream bytes;
    bytes << std::ifstream(HOST_TEST_READING_ENGINE, std::ios::binary).rdbuf();
    ASSERT_THAT(bytes.str(), HasSubstr(mark));
    const std::string engine = folder.Copy(HOST_TEST_SCRIPTED_ENGINE, plate_host::EngineFileName());
    std::ofstream(plate_host::ToOpenPath(engine), std::ios::binary | std::ios::app) << mark;
    const Checked checked = Run({{"--engine", engine}});
    EXPECT_THAT(checked.Faults(), testing::ElementsAre(Pair("clip", "fails"))) << checked.text;
    EXPECT_EQ(checked.status, 2);
}
#endif

TEST_F(Check, ALineHasStateNameAndRemedy) {
    const Finished run = RunHost({"check", "--plugin", folder.Path("none"), "--engine", HOST_TEST_SCRIPTED_ENGINE});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.output, HasSubstr("\nok       engine functions  Recognize2 and SetPlateRange\n"));
    EXPECT_THAT(run.output, HasSubstr("\nfails    library           no file \"" + folder.Path("none") +
                                      "\"; to do: put it there, or set its path with --plugin\n"));
    EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), std::ssize(checks));
}

TEST_F(Check, AnotherTextOfAnotherEngineIsAWarning) {
    folder.Write("script.json", ScriptOf("XY987Z"));
    const Checked checked = Run();
    EXPECT_THAT(checked.Faults(), testing::ElementsAre(Pair("clip", "warning"))) << checked.text;
    EXPECT_EQ(checked.status, 1);
    EXPECT_THAT(checked.Found("clip"), StartsWith("the plate was read as \"XY987Z\"; expected \"UD243BA\""));
}

TEST_F(Check, NoEventOfAnotherEngineIsAWarning) {
    const Checked checked = Run();
    EXPECT_THAT(checked.Faults(), testing::ElementsAre(Pair("clip", "warning"))) << checked.text;
    EXPECT_EQ(checked.status, 1);
    EXPECT_THAT(checked.Found("clip"), StartsWith("no event"));
}

TEST_F(Check, AMissingLibraryFails) {
    const Checked checked = Run({{"--plugin", folder.Path("none")}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library")) << checked.text;
    EXPECT_EQ(checked.status, 2);
    EXPECT_THAT(checked.Found("library"), HasSubstr("no file"));
    EXPECT_EQ(checked.Found("clip"), "not tried, because the check \"plate range\" fails");
    EXPECT_EQ(checked.State("engine functions"), "ok");
}

TEST_F(Check, WhatTheLibraryNeedsIsNamed) {
    const Checked checked = Run({{"--plugin", HOST_TEST_NEEDY_PLUGIN}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library")) << checked.text;
    EXPECT_THAT(checked.Found("library"), HasSubstr("Misnamed"));
}

TEST_F(Check, WhatTheEngineNeedsIsNamed) {
    const std::string engine = folder.Copy(HOST_TEST_NEEDY_PLUGIN, plate_host::EngineFileName());
    const Checked checked = Run({{"--engine", engine}});
    EXPECT_THAT(checked.Failed(), Contains("engine")) << checked.text;
    EXPECT_THAT(checked.Found("engine"), HasSubstr("Misnamed"));
}

TEST_F(Check, AFileThatIsNoLibraryFails) {
    const Checked checked = Run({{"--plugin", folder.Write("text", "no library\n")}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library")) << checked.text;
    EXPECT_THAT(checked.Found("library"), HasSubstr("cannot load"));
}

TEST_F(Check, AMissingEngineFails) {
    const Checked checked = Run({{"--engine", folder.Path("none")}});
    EXPECT_THAT(checked.Failed(), Contains("engine")) << checked.text;
    EXPECT_EQ(checked.State("library"), "fails");
    EXPECT_EQ(checked.status, 2);
}

TEST_F(Check, AnEngineOfAnotherNameFails) {
    EXPECT_THAT(Run({{"--engine", HOST_TEST_ENGINE_MISNAMED}}).Found("engine"), HasSubstr("does not find"));
}

TEST_F(Check, TheMissingFunctionOfAnEngineIsNamed) {
    const Checked checked = Run({{"--engine", HOST_TEST_PARTIAL_ENGINE}});
    EXPECT_THAT(checked.Failed(), Contains("engine functions")) << checked.text;
    EXPECT_THAT(checked.Found("engine functions"), HasSubstr("SetPlateRange"));
    EXPECT_THAT(checked.Found("engine functions"), Not(HasSubstr("Recognize2")));
}

TEST_F(Check, TheMissingExportOfALibraryIsNamed) {
    const Checked checked = Run({{"--plugin", HOST_TEST_INCOMPLETE_PLUGIN}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library exports")) << checked.text;
    EXPECT_EQ(checked.Found("library exports"), "it does not export \"GetModule\"");
}

TEST_F(Check, AMissingServerFails) {
    const Checked checked = Run({{"--timeout", "30"}}, {{"PATH", folder.MakeFolder("empty")}}, CopyHost(folder));
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("server program", "server start")) << checked.text;
    EXPECT_THAT(checked.Found("server program"), StartsWith("plate-Server.exe that may be executed is not in "));
    EXPECT_EQ(checked.State("clip"), "warning") << "the scripted engine needs no server";
}

TEST_F(Check, AServerThatEndsAtOnceFails) {
    const std::string host = CopyHost(folder);
    folder.Copy(host, "plate-Server.exe");
    const Checked checked = Run({{"--timeout", "30"}}, {}, host);
    // It is seen when it starts, or on a loaded machine only later.
    EXPECT_THAT(checked.Failed(),
                testing::AnyOf(testing::ElementsAre("server start"), testing::ElementsAre("server end")))
        << checked.text;
    EXPECT_EQ(checked.status, 2);
}

TEST_F(Check, AServerThatRunsAlreadyIsAWarning) {
    test_support::ChildProcess stranger({.program = plate_host::ToPath(HOST_TEST_IDLE_SERVER)});
    ASSERT_TRUE(WaitUntil([] { return plate_host::RunningServers().size() == 1; }));
    const std::string process = "process " + std::to_string(plate_host::RunningServers()[0]);
    const Checked checked = Run();
    EXPECT_THAT(checked.Faults(), testing::ElementsAre(Pair("clip", "warning"), Pair("other servers", "warning"),
                                                       Pair("server start", "warning")))
        << checked.text;
    EXPECT_EQ(checked.status, 1);
    EXPECT_THAT(checked.Found("other servers"), HasSubstr("(" + process + ")"));
    EXPECT_EQ(checked.Found("server end"), "the library has left " + process + " alone");
    EXPECT_EQ(plate_host::RunningServers().size(), 1u);
}

TEST_F(Check, ARefusedRangeFails) {
    folder.Write("script.json", R"({"refused_ranges": "all", "frames": []})");
    const Checked checked = Run({{"--timeout", "18"}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("plate range")) << checked.text;
    EXPECT_THAT(checked.Found("plate range"), HasSubstr("though a server runs"));
    EXPECT_EQ(checked.State("nothing left"), "ok");
}

TEST_F(Check, AnErrorOfTheLibraryFails) {
    const Checked checked = Run({{"--plugin", HOST_TEST_FAULTY_PLUGIN}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library start")) << checked.text;
    EXPECT_EQ(checked.Found("library start"), "the library's InitializeModule returned 1");
}

TEST_F(Check, ALibraryThatCrashesFails) {
    const Checked checked = Run({{"--plugin", HOST_TEST_FAULTY_PLUGIN}}, {{"HOST_TEST_FAULT", "crash"}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library start", "nothing left")) << checked.text;
    EXPECT_EQ(checked.Found("server start"), "not tried, because the check \"library start\" ended the process");
}

TEST_F(Check, ALibraryThatHangsFails) {
    const Checked checked =
        Run({{"--plugin", HOST_TEST_FAULTY_PLUGIN}, {"--timeout", "18"}}, {{"HOST_TEST_FAULT", "hang"}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library start", "nothing left")) << checked.text;
    EXPECT_EQ(checked.Found("library start"), "it did not end in time, and its process was ended");
    EXPECT_EQ(checked.status, 2);
}

TEST_F(Check, WhatTheLibraryPrintsIsNoResult) {
    const Checked checked = Run({{"--plugin", HOST_TEST_FAULTY_PLUGIN}}, {{"HOST_TEST_FAULT", "print"}});
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library start")) << checked.text;
}

TEST_F(Check, AServerThatIsLeftFails) {
    const std::string host = CopyHost(folder);
    folder.Copy(HOST_TEST_IDLE_SERVER, "plate-Server.exe");
    HostProcess process(
        {.program = plate_host::ToPath(host),
         .arguments = {"check", "--json", "--plugin", HOST_TEST_FAULTY_PLUGIN, "--engine", HOST_TEST_SCRIPTED_ENGINE},
         .environment = {{"HOST_TEST_FAULT", "leave a server"}}});
    process.WaitForOutput("nothing left");
    const std::vector<std::uint32_t> left = plate_host::RunningServers();
    for (const std::uint32_t server : left) {
        servers::Kill(static_cast<servers::ProcessId>(server));  // it may keep the streams open
    }
    const Checked checked = Parsed(process.Wait());
    ASSERT_EQ(left.size(), 1u) << checked.text;
    EXPECT_THAT(checked.Failed(), testing::ElementsAre("library start", "nothing left")) << checked.text;
    EXPECT_THAT(checked.Found("nothing left"), HasSubstr("(process " + std::to_string(left[0]) + ")"));
    EXPECT_TRUE(WaitUntil([] { return plate_host::RunningServers().empty(); }));
}

TEST_F(Check, ARequestToStopEndsItInOrder) {
    folder.Write("script.json", R"({"refused_ranges": "all", "frames": []})");
    for (const StopRequest& request : StopRequests()) {
        SCOPED_TRACE(request.name);
        HostProcess process(
            {.arguments = {"check", "--plugin", HOST_TEST_LIBRARY, "--engine", HOST_TEST_SCRIPTED_ENGINE},
             .environment = {{"VEXLANE_SCRIPT", script}}});
        process.WaitForOutput("server start");
        process.Stop(request);
        const Finished run = process.Wait();
        EXPECT_EQ(run.status, 128 + request.number) << run.errors;
        EXPECT_THAT(run.output, Not(HasSubstr("nothing left")));
        EXPECT_TRUE(WaitUntil([] { return plate_host::RunningServers().empty(); }));
    }
}

TEST_F(Check, AnUnknownKernelIsAWarning) {
    const Checked checked = Run({{"--plugin", folder.Path("none")}}, {{"VEXLANE_KERNEL", "none"}});
    EXPECT_EQ(checked.State("kernels"), "warning");
    EXPECT_THAT(checked.Found("kernels"), HasSubstr("VEXLANE_KERNEL is \"none\""));
    EXPECT_THAT(Run({{"--plugin", folder.Path("none")}}, {{"VEXLANE_KERNEL", "scalar"}}).Found("kernels"),
                StartsWith("scalar is used; this processor runs "));
}

namespace DebugLevelValue = OKM8::DebugLevelValue;
using Hive = test_support::ScratchRegistry::Hive;
using plate_host::CheckDebugLevel;
using plate_host::CheckState;

TEST(CheckedDebugLevel, IsReadWhereTheLibraryReadsIt) {
    test_support::ScratchRegistry registry;
    EXPECT_EQ(CheckDebugLevel().state, CheckState::Ok);
    EXPECT_THAT(CheckDebugLevel().found, HasSubstr("does not exist yet"));
    registry.StoreText(Hive::CurrentUser, DebugLevelValue::Key, DebugLevelValue::Name, "2");
    EXPECT_THAT(CheckDebugLevel().found, StartsWith("2, with trace lines, from "));
    EXPECT_THAT(CheckDebugLevel().found, HasSubstr("HKEY_CURRENT_USER"));
    registry.MakeKey(Hive::LocalMachine, DebugLevelValue::Key);
    EXPECT_THAT(CheckDebugLevel().found, StartsWith("0, because there is no value "));
    EXPECT_THAT(CheckDebugLevel().found, HasSubstr("HKEY_LOCAL_MACHINE"));
    EXPECT_EQ(CheckDebugLevel().state, CheckState::Ok);
}

TEST(CheckedDebugLevel, ANumberInsteadOfATextIsAWarning) {
    test_support::ScratchRegistry registry;
    registry.StoreNumber(Hive::CurrentUser, DebugLevelValue::Key, DebugLevelValue::Name, 1);
    EXPECT_EQ(CheckDebugLevel().state, CheckState::Warning) << CheckDebugLevel().found;
}

}  // namespace
}  // namespace host_test
