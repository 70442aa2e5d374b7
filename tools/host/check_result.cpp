#include "tools/host/check_result.h"

#include <boost/algorithm/string/predicate.hpp>
#include <cstddef>
#include <locale>
#include <nlohmann/json.hpp>

#include "platform/process.h"

namespace plate_host {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array stateNames{"ok", "warning", "fails"};

}  // namespace

std::vector<std::uint32_t> RunningServers() {
    std::vector<std::uint32_t> servers;
    const std::vector<platform::ProcessEntry> all = platform::ListProcesses();
    // The first one is the system's own.
    for (std::size_t index = 1; index < all.size(); ++index) {
        if (boost::algorithm::iequals(all[index].executableName, serverProgram, std::locale::classic())) {
            servers.push_back(all[index].processId);
        }
    }
    return servers;
}

std::string ProcessesText(const std::vector<std::uint32_t>& processes) {
    std::string text = processes.size() == 1 ? "process " : "the processes ";
    for (std::size_t index = 0; index < processes.size(); ++index) {
        text += (index == 0 ? "" : ", ") + std::to_string(processes[index]);
    }
    return text;
}

CheckResult NotTried(const std::string& reason) {
    return {CheckState::Fails, "not tried, because " + reason, "first correct that"};
}

std::string ToJson(const std::string& check, const CheckResult& result) {
    const Json object{{"check", check},
                      {"state", stateNames[static_cast<std::size_t>(result.state)]},
                      {"found", result.found},
                      {"do", result.remedy}};
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string BeginMessage(const std::string& check) {
    return Json{{"begin", check}}.dump();
}

CheckMessage ParseMessage(const std::string& line) {
    CheckMessage message;
    const Json object = Json::parse(line, nullptr, false);
    if (!object.is_object()) {
        return message;
    }
    if (object.contains("begin") && object["begin"].is_string()) {
        message.check = object["begin"];
        return message;
    }
    for (const char* const key : {"check", "state", "found", "do"}) {
        if (!object.contains(key) || !object[key].is_string()) {
            return message;
        }
    }
    for (std::size_t state = 0; state < stateNames.size(); ++state) {
        if (object["state"] == stateNames[state]) {
            message = {object["check"], true, {static_cast<CheckState>(state), object["found"], object["do"]}};
        }
    }
    return message;
}

}  // namespace plate_host
