#include "tools/report/confusion.h"

#include <algorithm>
#include <numeric>

namespace report {
namespace {

constexpr std::int64_t slackMs = 1000;
constexpr double maximumDistance = 0.5;
constexpr char unreadable[] = "unreadable";

/// Replaces look-alikes. The characters of UTF-8; a wrong byte is one character.
std::u32string CharactersOf(const std::string& text) {
    std::u32string characters;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte & 0xC0U) == 0x80U && !characters.empty()) {
            characters.back() = characters.back() << 6 | (byte & 0x3FU);
        } else {
            characters.push_back(byte == 'O' || byte == 'Q' ? U'0' : byte == 'I' ? U'1' : char32_t{byte});
        }
    }
    return characters;
}

struct Vehicle {
    TrueVehicle truth;
    std::vector<std::size_t> events;

    bool IsReadable() const { return truth.plate != unreadable && truth.plate.find('?') == std::string::npos; }

    bool CanBe(const PlateEvent& event) const {
        return truth.plate != unreadable && truth.channel == event.channel && event.firstMs <= truth.lastMs + slackMs &&
               event.lastMs >= truth.firstMs - slackMs;
    }
};

std::vector<Vehicle> VehiclesOf(const std::vector<TrueVehicle>& truth, const std::vector<int>& channels) {
    std::vector<Vehicle> vehicles;
    for (const TrueVehicle& vehicle : truth) {
        for (const int channel : vehicle.channel ? std::vector{*vehicle.channel} : channels) {
            vehicles.push_back({{channel, vehicle.plate, vehicle.firstMs, vehicle.lastMs}, {}});
        }
    }
    return vehicles;
}

/// The vehicle of an event, or null.
Vehicle* VehicleOf(const PlateEvent& event, std::vector<Vehicle>& vehicles) {
    Vehicle* best = nullptr;
    double bestDistance = 0.0;
    for (Vehicle& vehicle : vehicles) {
        if (!vehicle.CanBe(event)) {
            continue;
        }
        const double distance = DistanceOf(vehicle.truth.plate, event.text);
        if (distance <= maximumDistance && (best == nullptr || distance < bestDistance)) {
            best = &vehicle;
            bestDistance = distance;
        }
    }
    return best;
}

}  // namespace

double DistanceOf(const std::string& plate, const std::string& text) {
    const std::u32string wanted = CharactersOf(plate);
    const std::u32string read = CharactersOf(text);
    std::vector<std::size_t> row(read.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char32_t character : wanted) {
        std::size_t diagonal = row[0]++;
        for (std::size_t index = 0; index < read.size(); ++index) {
            const std::size_t cost = character == read[index] || character == U'?' ? 0 : 1;
            const std::size_t next = std::min({row[index + 1] + 1, row[index] + 1, diagonal + cost});
            diagonal = row[index + 1];
            row[index + 1] = next;
        }
    }
    return static_cast<double>(row.back()) /
           static_cast<double>(std::max({wanted.size(), read.size(), std::size_t{1}}));
}

Confusion Compare(const std::vector<PlateEvent>& events, const std::vector<TrueVehicle>& truth,
                  const std::vector<int>& channels) {
    std::vector<Vehicle> vehicles = VehiclesOf(truth, channels);
    Confusion confusion;
    std::vector<Match> unmatched;
    for (std::size_t index = 0; index < events.size(); ++index) {
        if (Vehicle* const vehicle = VehicleOf(events[index], vehicles)) {
            vehicle->events.push_back(index);
        } else {
            unmatched.push_back({Outcome::OfNone, index, std::nullopt});
        }
    }
    double delays = 0.0;
    for (const Vehicle& vehicle : vehicles) {
        const TrueVehicle& truthOf = vehicle.truth;
        if (!vehicle.IsReadable()) {
            for (const std::size_t event : vehicle.events) {
                confusion.matches.push_back({Outcome::Uncounted, event, truthOf});
            }
            continue;
        }
        ++confusion.vehicles;
        if (vehicle.events.empty()) {
            ++confusion.missed;
            confusion.matches.push_back({Outcome::Missed, std::nullopt, truthOf});
            continue;
        }
        const auto distance = [&](std::size_t event) { return DistanceOf(truthOf.plate, events[event].text); };
        const std::size_t best =
            *std::min_element(vehicle.events.begin(), vehicle.events.end(),
                              [&](std::size_t left, std::size_t right) { return distance(left) < distance(right); });
        confusion.exact += std::any_of(vehicle.events.begin(), vehicle.events.end(),
                                       [&](std::size_t event) { return events[event].text == truthOf.plate; });
        confusion.alike += distance(best) == 0.0;
        confusion.twice += vehicle.events.size() - 1;
        delays += static_cast<double>(std::max(std::int64_t{0}, events[best].timeMs - truthOf.firstMs));
        for (const std::size_t event : vehicle.events) {
            const Outcome outcome = event != best                         ? Outcome::Twice
                                    : events[event].text == truthOf.plate ? Outcome::Right
                                                                          : Outcome::Wrong;
            confusion.matches.push_back({outcome, event, truthOf});
        }
    }
    if (const std::uint64_t seen = confusion.vehicles - confusion.missed; seen != 0) {
        confusion.meanDelayMs = delays / static_cast<double>(seen);
    }
    confusion.ofNone = unmatched.size();
    confusion.matches.insert(confusion.matches.end(), unmatched.begin(), unmatched.end());
    return confusion;
}

}  // namespace report
