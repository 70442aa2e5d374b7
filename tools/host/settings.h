/// Named settings: parses them from the command line and sets them on a detector.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "sdk/detector.h"

namespace plate_host {

struct Setting {
    std::string key;
    std::string text;
};

/// Splits "key=value" at its first "=". Throws Failure when it has none, or no key.
Setting ParseSetting(const std::string& text);

using SettingValue = std::variant<int32_t, bool, double, std::string>;

/// Returns all values that the text can be parsed as, from the most specific type to the text itself.
std::vector<SettingValue> PossibleValues(const std::string& text);

/// Sets one value with the setter of its type; returns the detector's error code.
int32_t SetValue(OKM8::IAsyncAdjuster& settings, const std::string& key, const SettingValue& value);

/// The types that a detector accepts for a key, in the order "bool", "int", "double", "string". Changes the setting,
/// because only setting a value shows whether its type is accepted.
std::vector<std::string> AcceptedTypes(OKM8::IAsyncAdjuster& settings, const std::string& key);

/// Sets each setting to the first of its possible values that the detector accepts, and applies them. Throws Failure
/// with the detector's error code and text, and with its keys.
void ApplySettings(OKM8::IAsyncAdjuster& settings, OKM8::IErrorInfoProvider& errors,
                   const std::vector<Setting>& values);

}  // namespace plate_host
