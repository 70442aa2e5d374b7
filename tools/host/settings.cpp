#include "tools/host/settings.h"

#include <charconv>
#include <cmath>
#include <system_error>

#include "sdk/setting_keys.h"
#include "tools/host/console.h"
#include "tools/host/failure.h"

namespace plate_host {
namespace {

template <class Number>
bool ReadNumber(const std::string& text, Number& number) {
    const char* first = text.data();
    const char* const end = first + text.size();
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') {
        ++first;
    }
    const auto [stop, error] = std::from_chars(first, end, number);
    return error == std::errc() && stop == end && first != end;
}

std::string Join(const std::vector<std::string>& words, const char* between) {
    std::string joined;
    for (const std::string& word : words) {
        joined += (joined.empty() ? "" : between) + word;
    }
    return joined;
}

std::string ErrorOf(OKM8::IErrorInfoProvider& errors) {
    const int32_t code = errors.GetErrorCode();
    const char* const text = errors.GetErrorMessage();
    return "code " + std::to_string(code) + ", \"" + OneLine(text == nullptr ? "" : text) + "\"";
}

std::string SettingsOf(OKM8::IAsyncAdjuster& settings) {
    std::vector<std::string> accepted;
    for (const char* key : OKM8::Analytics::SettingKey::All) {
        const std::vector<std::string> types = AcceptedTypes(settings, key);
        if (!types.empty()) {
            accepted.push_back(std::string(key) + " (" + Join(types, ", ") + ")");
        }
    }
    return accepted.empty() ? "none" : Join(accepted, ", ");
}

}  // namespace

Setting ParseSetting(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw Failure("\"" + text + "\" is not a setting: expected key=value");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

std::vector<SettingValue> PossibleValues(const std::string& text) {
    std::vector<SettingValue> values;
    if (int32_t integer = 0; ReadNumber(text, integer)) {
        values.emplace_back(integer);
    }
    if (text == "true" || text == "false" || text == "1" || text == "0") {
        values.emplace_back(text == "true" || text == "1");
    }
    if (double number = 0.0; ReadNumber(text, number) && std::isfinite(number)) {
        values.emplace_back(number);
    }
    values.emplace_back(text);
    return values;
}

int32_t SetValue(OKM8::IAsyncAdjuster& settings, const std::string& key, const SettingValue& value) {
    struct Setter {
        OKM8::IAsyncAdjuster& settings;
        const char* key;
        int32_t operator()(int32_t integer) const { return settings.SetIntValue(key, integer); }
        int32_t operator()(bool truth) const { return settings.SetBoolValue(key, truth); }
        int32_t operator()(double number) const { return settings.SetDoubleValue(key, number); }
        int32_t operator()(const std::string& text) const { return settings.SetStringValue(key, text.c_str()); }
    };
    return std::visit(Setter{settings, key.c_str()}, value);
}

std::vector<std::string> AcceptedTypes(OKM8::IAsyncAdjuster& settings, const std::string& key) {
    std::vector<std::string> types;
    const auto probe = [&](const char* type, const SettingValue& value) {
        if (SetValue(settings, key, value) == OKM8::ErrorCode::None) {
            types.emplace_back(type);
        }
    };
    probe("bool", false);
    probe("int", int32_t{0});
    probe("double", 0.0);
    probe("string", std::string());
    return types;
}

void ApplySettings(OKM8::IAsyncAdjuster& settings, OKM8::IErrorInfoProvider& errors,
                   const std::vector<Setting>& values) {
    for (const Setting& setting : values) {
        int32_t code = OKM8::ErrorCode::None;
        std::string refusal;
        for (const SettingValue& value : PossibleValues(setting.text)) {
            code = SetValue(settings, setting.key, value);
            if (code != OKM8::ErrorCode::None) {
                refusal = ErrorOf(errors);
            }
            if (code != OKM8::ErrorCode::RefusedSetting) {
                break;
            }
        }
        if (code != OKM8::ErrorCode::None) {
            throw Failure("the detector refuses \"" + OneLine(setting.key + "=" + setting.text) + "\": " + refusal +
                          "; its settings are " + SettingsOf(settings));
        }
    }
    settings.ApplySettings();
    if (errors.GetErrorCode() != OKM8::ErrorCode::None) {
        throw Failure("the detector cannot apply its settings: " + ErrorOf(errors));
    }
}

}  // namespace plate_host
