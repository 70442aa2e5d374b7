/// Named settings: the words of the command line, and what a detector takes.
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

/// Everything that the text can be read as, what it looks like first and a text last.
std::vector<SettingValue> ReadingsOf(const std::string& text);

/// Sets one value by the setter of its type; returns the detector's code.
int32_t SetValue(OKM8::IAsyncAdjuster& settings, const std::string& key, const SettingValue& value);

/// The types that a detector takes for a key, found by setting it: "bool", "int", "double", "string", in that order.
/// The setting is changed by that.
std::vector<std::string> AcceptedTypes(OKM8::IAsyncAdjuster& settings, const std::string& key);

/// Sets each setting by the first reading that the detector takes, and applies them. Throws Failure with the detector's
/// code and text, and with the keys that it has.
void ApplySettings(OKM8::IAsyncAdjuster& settings, OKM8::IErrorInfoProvider& errors,
                   const std::vector<Setting>& values);

}  // namespace plate_host
