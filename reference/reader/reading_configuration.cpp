#include "reference/reader/reading_configuration.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "reference/reader/networks.h"
#include "reference/reader/plate_formats.h"

namespace plate_reading {
namespace {

const std::map<std::string, std::vector<Template>>& Regions() {
    static const std::map<std::string, std::vector<Template>> regions = {
        {"none", {}},
        {"br", {"LLLDDDD", "LLLDLDD"}},
        {"eu",
         {"LLDDDLL", "LLDDLLL", "LDDDLLL", "LLLDDD", "LLLDDDD", "LLDDDD", "DLDDDDD", "DDDDLLL", "LLDDDDL", "LLLLDDD",
          "LLLDDLL", "DLLLDDD", "LLDDDDD", "LLDDDDLL"}},
        {"us",
         {"DLLLDDD", "LLLDDDD", "LLLDDD", "DDDLLL", "LLLDDL", "LLDLDL", "LDDLLL", "LLDDDDD", "DDDDDDD", "LDDDDDD",
          "DLLDDDD", "DDDLDL", "DDDDDLD", "DDDDLL", "LLDDDD", "DDLLDD"}},
    };
    return regions;
}

std::string WithoutSpaces(const std::string& text) {
    const std::string_view spaces = " \t\r";
    const std::size_t first = text.find_first_not_of(spaces);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

bool IsPattern(const std::string& word) {
    return word.size() >= 4 && word.size() <= 12 && word.find_first_not_of("LD") == std::string::npos;
}

std::vector<Template> ReadTemplates(const std::string& value) {
    std::vector<Template> templates;
    std::istringstream words(value);
    std::string word;
    while (words >> word) {
        const auto region = Regions().find(word);
        if (region != Regions().end()) {
            templates.insert(templates.end(), region->second.begin(), region->second.end());
        } else if (IsPattern(word)) {
            templates.push_back(word);
        } else {
            throw ConfigurationError("\"" + word +
                                     "\" is neither a region (none, br, eu, us) nor a pattern of 4 to 12 L and D");
        }
    }
    return templates;
}

std::vector<std::string> ReadCountries(std::string value) {
    std::replace(value.begin(), value.end(), ',', ' ');
    static const std::vector<std::string> known = PlateFormats(FormatsTable()).Countries();
    std::vector<std::string> countries;
    std::istringstream words(value);
    std::string word;
    while (words >> word) {
        if (!std::binary_search(known.begin(), known.end(), word)) {
            throw ConfigurationError("\"" + word +
                                     "\" is not a country whose plate formats are known; write its ISO 3166-1 "
                                     "code of three letters, such as GBR");
        }
        countries.push_back(word);
    }
    return countries;
}

int ReadConfirmations(const std::string& value) {
    if (value.size() != 1 || value[0] < '1' || value[0] > '9') {
        throw ConfigurationError("\"" + value + "\" is not a number of confirmations from 1 to 9");
    }
    return value[0] - '0';
}

}  // namespace

ReadingOptions ReadConfiguration(std::istream& file) {
    ReadingOptions options;
    std::set<std::string> keys;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        line = WithoutSpaces(line.substr(0, line.find('#')));
        if (line.empty()) {
            continue;
        }
        const auto errorAtLine = [&](const std::string& what) {
            return ConfigurationError("line " + std::to_string(number) + ": " + what);
        };
        const std::size_t equals = line.find('=');
        const std::string key = WithoutSpaces(line.substr(0, equals));
        if (equals == std::string::npos || key.empty()) {
            throw errorAtLine("\"" + line + "\" is not of the form key = value");
        }
        const std::string value = WithoutSpaces(line.substr(equals + 1));
        if (!keys.insert(key).second) {
            throw errorAtLine("\"" + key + "\" is set a second time");
        }
        try {
            if (key == "templates") {
                options.templates = ReadTemplates(value);
            } else if (key == "countries") {
                options.countries = ReadCountries(value);
            } else if (key == "confirmations") {
                options.confirmations = ReadConfirmations(value);
            } else {
                throw ConfigurationError("there is no key \"" + key + "\"");
            }
        } catch (const ConfigurationError& error) {
            throw errorAtLine(error.what());
        }
    }
    if (file.bad()) {
        throw ConfigurationError("the file cannot be read");
    }
    return options;
}

}  // namespace plate_reading
