#include "tests/tracker/comparison.h"

#include <algorithm>
#include <sstream>

#include "tracker/licence_plate_tracker.h"

namespace tracker_test {

namespace {

using reference::Call;

class WritingSink final : public ILicencePlateTrackerResultSink {
  public:
    explicit WritingSink(std::vector<Call>& written) : calls_(written) {}

    void OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> bestReading,
                  const std::vector<LicencePlatePtr>& readings, std::int32_t reason) override {
        Call& call = calls_.emplace_back();
        call.kind = Call::Kind::Result;
        call.readingId = bestReading->id;
        call.reason = reason;
        for (const LicencePlatePtr& reading : readings) {
            call.readingIds.push_back(reading->id);
        }
    }

    void OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> reading) override {
        calls_.emplace_back().readingId = reading->id;
    }

  private:
    std::vector<Call>& calls_;
};

// The reference does not support null readings, which have no effect.
void Process(reference::Tracker& tracker, const Step& step) {
    if (std::ranges::find(step.readings, LicencePlatePtr()) == step.readings.end()) {
        tracker.ProcessPlates(step.readings, step.time);
        return;
    }
    std::vector<LicencePlatePtr> readings = step.readings;
    std::erase(readings, LicencePlatePtr());
    tracker.ProcessPlates(readings, step.time);
}

void Process(CLicencePlateTracker& tracker, const Step& step) {
    tracker.ProcessPlates(step.readings, step.time);
}

template <class Tracker>
void Drive(Tracker& tracker, const Sequence& sequence) {
    for (const Step& step : sequence.steps) {
        switch (step.kind) {
            case Step::Kind::Frame:
                Process(tracker, step);
                break;
            case Step::Kind::LostTimeout:
                tracker.SetLostTimeout(step.time);
                break;
            case Step::Kind::FinishAll:
                tracker.FinishAll();
                break;
        }
    }
}

bool IsSame(const Call& a, const Call& b) {
    return a.kind == b.kind && a.readingId == b.readingId && a.reason == b.reason && a.readingIds == b.readingIds;
}

bool Before(const Call& a, const Call& b) {
    return a.readingId < b.readingId;
}

// Sorts calls whose order is unspecified by their readings, in both logs.
void SortFreeOrder(std::vector<Call>& actual, std::vector<Call>& expected) {
    for (std::size_t from = 0; from < expected.size();) {
        std::size_t to = from + 1;
        while (to < expected.size() && expected[from].group != 0 && expected[to].group == expected[from].group) {
            ++to;
        }
        if (to - from > 1) {
            const auto low = static_cast<std::ptrdiff_t>(from);
            const auto high = static_cast<std::ptrdiff_t>(to);
            if (to <= actual.size()) {
                std::sort(actual.begin() + low, actual.begin() + high, Before);
            }
            std::sort(expected.begin() + low, expected.begin() + high, Before);
        }
        from = to;
    }
}

std::string CallAt(const std::vector<Call>& calls, std::size_t place) {
    if (place >= calls.size()) {
        return "nothing";
    }
    const Call& call = calls[place];
    std::ostringstream text;
    if (call.kind == Call::Kind::Release) {
        text << "release " << call.readingId;
        return text.str();
    }
    text << "result " << call.readingId << " reason " << call.reason << " of";
    for (const std::uint64_t id : call.readingIds) {
        text << ' ' << id;
    }
    return text.str();
}

}  // namespace

bool Comparison::IsEqual() const {
    return std::ranges::equal(actual, expected, IsSame);
}

std::string Comparison::Difference() const {
    const auto place = static_cast<std::size_t>(std::ranges::mismatch(actual, expected, IsSame).in1 - actual.begin());
    return "call " + std::to_string(place) + ": " + CallAt(actual, place) + " instead of " + CallAt(expected, place);
}

Comparison Compare(const Sequence& sequence, reference::Coverage& coverage) {
    Comparison comparison;
    constexpr std::size_t usualCalls = 32;
    comparison.actual.reserve(usualCalls);
    {
        reference::Log log;
        log.calls.reserve(usualCalls);
        {
            reference::Tracker tracker(log, coverage, sequence.lostTimeout, sequence.maximumAge,
                                       sequence.readingsToReport);
            Drive(tracker, sequence);
        }
        comparison.expected = std::move(log.calls);
    }
    {
        WritingSink sink(comparison.actual);
        CLicencePlateTracker tracker(&sink, sequence.lostTimeout, sequence.maximumAge, sequence.readingsToReport);
        Drive(tracker, sequence);
    }
    SortFreeOrder(comparison.actual, comparison.expected);
    return comparison;
}

std::string Describe(const Sequence& sequence) {
    std::ostringstream text;
    text << "tracker(lost " << sequence.lostTimeout << ", age " << sequence.maximumAge << ", count "
         << sequence.readingsToReport << ")\n";
    for (const Step& step : sequence.steps) {
        switch (step.kind) {
            case Step::Kind::LostTimeout:
                text << "SetLostTimeout " << step.time << '\n';
                continue;
            case Step::Kind::FinishAll:
                text << "FinishAll\n";
                continue;
            case Step::Kind::Frame:
                text << "frame at " << step.time << '\n';
        }
        for (const LicencePlatePtr& reading : step.readings) {
            if (!reading) {
                text << "  null\n";
                continue;
            }
            text << "  id " << reading->id << " time " << reading->timeStamp << " frame " << reading->frameWidth << 'x'
                 << reading->frameHeight << " A " << reading->cornerA.x << ',' << reading->cornerA.y << " B "
                 << reading->cornerB.x << ',' << reading->cornerB.y << " C " << reading->cornerC.x << ','
                 << reading->cornerC.y << " weight " << reading->weight << " text";
            for (const wchar_t unit : reading->text) {
                text << ' ' << static_cast<unsigned long>(unit);
            }
            text << '\n';
        }
    }
    return text.str();
}

}  // namespace tracker_test
