#include "tools/report/truth.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <map>
#include <stdexcept>

namespace report {
namespace {

std::vector<std::string> ColumnsOf(std::string line) {
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    std::vector<std::string> columns(1);
    for (const char character : line) {
        if (character == '\t') {
            columns.emplace_back();
        } else {
            columns.back().push_back(character);
        }
    }
    return columns;
}

/// An empty text is 0.
template <class Number>
Number NumberOf(const std::string& text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    if (!text.empty() && std::from_chars(text.data(), end, number).ptr != end) {
        throw std::runtime_error("\"" + text + "\" is not a number");
    }
    return number;
}

std::int64_t MillisecondsOf(const std::string& seconds) {
    constexpr double limit = 1e12;
    const double milliseconds = std::round(1000 * NumberOf<double>(seconds));
    if (!(std::abs(milliseconds) < limit)) {
        throw std::runtime_error("\"" + seconds + "\" is not a time in seconds");
    }
    return static_cast<std::int64_t>(milliseconds);
}

}  // namespace

std::vector<TrueVehicle> ReadTruth(const std::filesystem::path& file, const std::string& clip) {
    const std::u8string name = file.u8string();
    std::string quoted(name.begin(), name.end());
    quoted = '"' + quoted + '"';
    std::ifstream stream(file, std::ios::binary);
    std::string line;
    if (!std::getline(stream, line)) {
        throw std::runtime_error("cannot read the vehicles in " + quoted);
    }
    const std::vector<std::string> names = ColumnsOf(line);
    std::vector<TrueVehicle> vehicles;
    bool hasClip = false;
    for (std::size_t number = 2; std::getline(stream, line); ++number) {
        const std::vector<std::string> columns = ColumnsOf(line);
        if (columns.size() == 1 && columns.front().empty()) {
            continue;
        }
        std::map<std::string, std::string> values;
        for (std::size_t index = 0; index < names.size() && index < columns.size(); ++index) {
            values[names[index]] = columns[index];
        }
        hasClip = values.contains("clip");
        if (hasClip && values["clip"] != clip) {
            continue;
        }
        try {
            TrueVehicle vehicle;
            if (!values["channel"].empty()) {
                vehicle.channel = NumberOf<int>(values["channel"]);
            }
            vehicle.plate = values.at("plate");
            vehicle.firstMs = MillisecondsOf(values.at("first_s"));
            vehicle.lastMs = MillisecondsOf(values.at("last_s"));
            vehicles.push_back(vehicle);
        } catch (const std::out_of_range&) {
            throw std::runtime_error(quoted + ": line " + std::to_string(number) +
                                     " has not all of the columns plate, first_s and last_s");
        } catch (const std::exception& error) {
            throw std::runtime_error(quoted + ": line " + std::to_string(number) + ": " + error.what());
        }
    }
    if (vehicles.empty()) {
        throw std::runtime_error(quoted + " has no vehicle" + (hasClip ? " of the clip \"" + clip + "\"" : ""));
    }
    return vehicles;
}

}  // namespace report
