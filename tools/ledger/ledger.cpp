#include "tools/ledger/ledger.h"

#include <algorithm>
#include <charconv>
#include <list>
#include <unordered_map>

#include "arithmetic/arithmetic.h"
#include "engine/engine_text.h"
#include "sdk/plate_events.h"
#include "sdk/setting_keys.h"
#include "tracker/text_distance.h"

namespace ledger {
namespace {

namespace SettingKey = OKM8::Analytics::SettingKey;
using recording::Json;

constexpr std::array<const char*, 4> reasonTexts{"it hardly moves", "it leaves the picture", "it is no longer read",
                                                 "it has enough readings or is old enough"};

std::uint64_t SumOf(const std::map<std::string, std::uint64_t>& counts) {
    std::uint64_t sum = 0;
    for (const auto& [text, count] : counts) {
        sum += count;
    }
    return sum;
}

std::uint64_t ReportedOf(const Counts& counts) {
    std::uint64_t sum = 0;
    for (const std::uint64_t count : counts.tracksReported) {
        sum += count;
    }
    return sum;
}

void AddCounts(std::map<std::string, std::uint64_t>& sums, const std::map<std::string, std::uint64_t>& counts) {
    for (const auto& [text, count] : counts) {
        sums[text] += count;
    }
}

int ConfidenceOf(const RPLATE& plate, std::size_t characters) {
    return characters == 0
               ? 0
               : std::clamp(arithmetic::Truncated(ConfidenceSumOf(plate) / static_cast<double>(characters)), 0, 100);
}

tagRECT RectangleOf(const RPLATE& plate) {
    const auto [left, right] = std::minmax({plate.corner1.x, plate.corner2.x, plate.corner3.x, plate.corner4.x});
    const auto [top, bottom] = std::minmax({plate.corner1.y, plate.corner2.y, plate.corner3.y, plate.corner4.y});
    return {left, top, right, bottom};
}

std::string FrameRefusal(const recording::Frame& frame) {
    return frame.error.empty() ? "code " + std::to_string(frame.code) : frame.error;
}

}  // namespace

Counts& Counts::operator+=(const Counts& other) {
    frames += other.frames;
    AddCounts(framesRefused, other.framesRefused);
    framesNotSearched += other.framesNotSearched;
    framesEngineFailed += other.framesEngineFailed;
    framesWithoutPlates += other.framesWithoutPlates;
    framesWithPlates += other.framesWithPlates;
    readings += other.readings;
    readingsJoined += other.readingsJoined;
    readingsBegan += other.readingsBegan;
    tracks += other.tracks;
    for (std::size_t reason = 0; reason < tracksReported.size(); ++reason) {
        tracksReported[reason] += other.tracksReported[reason];
    }
    tracksUnreported += other.tracksUnreported;
    eventsRaised += other.eventsRaised;
    AddCounts(eventsFailed, other.eventsFailed);
    eventsUnexpected += other.eventsUnexpected;
    rangesRefused += other.rangesRefused;
    return *this;
}

std::vector<Balance> BalancesOf(const Counts& counts) {
    return {
        {"frames = refused + not searched + engine failed + without plates + with plates", counts.frames,
         SumOf(counts.framesRefused) + counts.framesNotSearched + counts.framesEngineFailed +
             counts.framesWithoutPlates + counts.framesWithPlates},
        {"readings = joined a track + began one", counts.readings, counts.readingsJoined + counts.readingsBegan},
        {"tracks = readings that began one", counts.tracks, counts.readingsBegan},
        {"tracks = reported + unreported", counts.tracks, ReportedOf(counts) + counts.tracksUnreported},
        {"tracks reported = events raised + failed", ReportedOf(counts),
         counts.eventsRaised + SumOf(counts.eventsFailed)},
        {"events of no reported track = 0", counts.eventsUnexpected, 0},
    };
}

std::vector<Line> LinesOf(const Counts& counts) {
    std::vector<Line> lines;
    const auto add = [&lines](std::string text, std::uint64_t count, bool isPart = true) {
        lines.push_back({std::move(text), count, isPart});
    };
    const auto addIfAny = [&add](const std::string& text, std::uint64_t count) {
        if (count != 0) {
            add(text, count);
        }
    };
    add("frames", counts.frames, false);
    for (const auto& [text, count] : counts.framesRefused) {
        add("refused: " + text, count);
    }
    addIfAny("not searched", counts.framesNotSearched);
    addIfAny("the engine failed", counts.framesEngineFailed);
    add("without plates", counts.framesWithoutPlates);
    add("with plates", counts.framesWithPlates);
    add("readings", counts.readings, false);
    add("joined a track", counts.readingsJoined);
    add("began a track", counts.readingsBegan);
    add("tracks", counts.tracks, false);
    for (std::size_t reason = 0; reason < reasonTexts.size(); ++reason) {
        addIfAny(std::string("reported because ") + reasonTexts[reason], counts.tracksReported[reason]);
    }
    add("unreported: the detector ended", counts.tracksUnreported);
    add("events", counts.eventsRaised + SumOf(counts.eventsFailed), false);
    add("raised", counts.eventsRaised);
    for (const auto& [step, count] : counts.eventsFailed) {
        add("failed: " + step, count);
    }
    if (counts.rangesRefused != 0) {
        add("plate-size ranges refused by the engine", counts.rangesRefused, false);
    }
    return lines;
}

Json JsonOf(const Counts& counts) {
    Json value;
    value["frames"] = {{"all", counts.frames},
                       {"refused", counts.framesRefused},
                       {"not_searched", counts.framesNotSearched},
                       {"engine_failed", counts.framesEngineFailed},
                       {"without_plates", counts.framesWithoutPlates},
                       {"with_plates", counts.framesWithPlates}};
    value["readings"] = {{"all", counts.readings}, {"joined", counts.readingsJoined}, {"began", counts.readingsBegan}};
    value["tracks"] = {{"all", counts.tracks},
                       {"slow", counts.tracksReported[TrackReason::Slow]},
                       {"out_of_view", counts.tracksReported[TrackReason::OutOfView]},
                       {"lost", counts.tracksReported[TrackReason::Lost]},
                       {"complete", counts.tracksReported[TrackReason::Complete]},
                       {"unreported", counts.tracksUnreported}};
    value["events"] = {
        {"raised", counts.eventsRaised}, {"failed", counts.eventsFailed}, {"unexpected", counts.eventsUnexpected}};
    value["ranges_refused"] = counts.rangesRefused;
    const std::vector<Balance> balances = BalancesOf(counts);
    value["closes"] = std::all_of(balances.begin(), balances.end(), [](const Balance& sum) { return sum.Closes(); });
    return value;
}

const char* ReasonText(std::int32_t reason) {
    return reasonTexts.at(static_cast<std::size_t>(reason));
}

/// Follows the tracker through the frames.
class ChannelLedger::Follower final : public ILicencePlateTrackerResultSink {
  public:
    Follower(const plate_recognition::EarlyReport& early, bool keepsTracks)
        : keepsTracks_(keepsTracks),
          tracker_(plate_recognition::MakeTracker(this, plate_recognition::defaultLostTimeout, early)) {}

    void Add(const recording::Frame& frame) {
        ++counts_.frames;
        counts_.rangesRefused += static_cast<std::uint64_t>(
            std::count_if(frame.ranges.begin(), frame.ranges.end(),
                          [](const recording::RangeCall& range) { return !range.isAccepted; }));
        CountFrame(frame);
        reports_.clear();
        for (const recording::EngineCall& call : frame.engineCalls) {
            if (!call.hasThrown) {
                Track(frame, call);
            }
        }
        MatchEvents(frame);
        tracks_.remove_if([](const LiveTrack& live) { return live.isRemoved; });
    }

    Counts CountsSoFar() const {
        Counts counts = counts_;
        counts.tracksUnreported += static_cast<std::uint64_t>(
            std::count_if(tracks_.begin(), tracks_.end(), [](const LiveTrack& live) { return !live.isReported; }));
        return counts;
    }

    const std::vector<std::unique_ptr<ledger::Track>>& Kept() const { return kept_; }

    void OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> best, const std::vector<LicencePlatePtr>&,
                  std::int32_t reason) override {
        ++counts_.tracksReported.at(static_cast<std::size_t>(reason));
        const TrackReading& reading = open_.at(best->id);
        LiveTrack* const live = Find([&](const CTrack& track) { return track.Best()->reading == best; });
        reports_.push_back({reading.text, reading.timeMs, live == nullptr ? nullptr : live->kept});
        if (live != nullptr) {
            live->isReported = true;
            if (live->kept != nullptr) {
                live->kept->reason = reason;
                live->kept->reportTimeMs = now_;
                live->kept->reportedText = reading.text;
                live->kept->reportedTimeMs = reading.timeMs;
            }
        }
        open_.erase(best->id);
    }

    void OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> reading) override {
        open_.erase(reading->id);
    }

  private:
    struct LiveTrack {
        boost::shared_ptr<CTrack> track;  // also held while the tracker's reports of a frame are read
        ledger::Track* kept;              // null when tracks are not kept
        bool isReported = false;
        bool isRemoved = false;
    };

    struct Report {
        std::string text;
        std::uint64_t timeMs;
        ledger::Track* kept;
    };

    void CountFrame(const recording::Frame& frame) {
        if (frame.code != 0) {
            ++counts_.framesRefused[FrameRefusal(frame)];
        } else if (frame.engineCalls.empty()) {
            ++counts_.framesNotSearched;
        } else if (frame.engineCalls.front().hasThrown) {
            ++counts_.framesEngineFailed;
        } else {
            ++(PlateCountOf(frame.engineCalls.front()) == 0 ? counts_.framesWithoutPlates : counts_.framesWithPlates);
        }
    }

    static int PlateCountOf(const recording::EngineCall& call) {
        return call.count > plate_recognition::maxPlateCount ? 0 : std::max(call.count, 0);
    }

    void Track(const recording::Frame& frame, const recording::EngineCall& call) {
        ++searched_;
        now_ = frame.timeMs;
        std::array<RPLATE, engineRecordCount> records{};
        std::copy(call.plates.begin(), call.plates.end(), records.begin());
        std::vector<LicencePlatePtr> readings;
        std::vector<TrackReading> described;  // of the same readings
        for (int index = 0; index < PlateCountOf(call); ++index) {
            const RPLATE& plate = plate_recognition::PlateAt(records.data(), index);
            readings.push_back(
                plate_recognition::ReadingOf(plate, call.width, call.height, frame.timeMs, nextId_, searched_));
            const std::wstring text = plate_recognition::ResultTextOf(plate);
            described.push_back({frame.number, frame.timeMs, plate_recognition::Utf8Of(text),
                                 ConfidenceOf(plate, text.size()), RectangleOf(plate)});
            open_[nextId_] = described.back();
            ++nextId_;
        }
        counts_.readings += readings.size();
        tracker_->ProcessPlates(readings, frame.timeMs);
        FollowTracks();
        for (std::size_t index = 0; index < readings.size(); ++index) {
            LiveTrack* const live = Find([&](const CTrack& track) { return track.Last()->reading == readings[index]; });
            if (live != nullptr && live->kept != nullptr) {
                live->kept->readings.push_back(described[index]);
            }
            // A track begins with one reading.
            const bool began = live != nullptr && live->track->Count() == 1;
            counts_.readingsBegan += began ? 1 : 0;
            counts_.readingsJoined += live != nullptr && !began ? 1 : 0;
        }
    }

    // Adds the tracks that are new, and marks those that are gone.
    void FollowTracks() {
        for (LiveTrack& live : tracks_) {
            const auto& tracks = tracker_->Tracks();
            live.isRemoved =
                std::none_of(tracks.begin(), tracks.end(), [&](const auto& track) { return track == live.track; });
            if (live.isRemoved && live.kept != nullptr) {
                live.kept->isRemoved = true;
                live.kept->removalTimeMs = now_;
            }
        }
        FindNew();
    }

    void FindNew() {
        for (const auto& track : tracker_->Tracks()) {
            const bool isKnown =
                std::any_of(tracks_.begin(), tracks_.end(), [&](const LiveTrack& live) { return live.track == track; });
            if (!isKnown) {
                if (keepsTracks_) {
                    kept_.push_back(std::make_unique<ledger::Track>());
                }
                tracks_.push_back({track, keepsTracks_ ? kept_.back().get() : nullptr});
                ++counts_.tracks;
            }
        }
    }

    // Also finds a track that began in this frame, of which the list does not know yet.
    template <class Condition>
    LiveTrack* Find(const Condition& condition) {
        FindNew();
        for (LiveTrack& live : tracks_) {
            if (!live.isRemoved && condition(*live.track)) {
                return &live;
            }
        }
        return nullptr;
    }

    // An event belongs to the report of its text and time.
    void MatchEvents(const recording::Frame& frame) {
        for (const recording::Event& event : frame.events) {
            ++counts_.eventsRaised;
            const Json& value = event.value;
            const std::string text = value.contains("arguments")
                                         ? value["arguments"].value(OKM8::Analytics::PlateKey::Text, "")
                                         : std::string();
            const auto time = value.value("time", std::int64_t{-1});
            const auto found = std::find_if(reports_.begin(), reports_.end(), [&](const Report& report) {
                return report.text == text && static_cast<std::int64_t>(report.timeMs) == time;
            });
            if (found == reports_.end()) {
                ++counts_.eventsUnexpected;
                continue;
            }
            if (found->kept != nullptr) {
                found->kept->hasEvent = true;
            }
            reports_.erase(found);
        }
        // Events are begun in the order of the reports.
        auto failed = reports_.begin();
        for (const std::string& step : frame.failedEvents) {
            ++counts_.eventsFailed[step];
            if (failed != reports_.end()) {
                if (failed->kept != nullptr) {
                    failed->kept->failedStep = step;
                }
                ++failed;
            }
        }
    }

    const bool keepsTracks_;
    Counts counts_;
    std::uint64_t searched_ = 0;
    std::uint64_t nextId_ = 0;
    std::uint64_t now_ = 0;
    std::unordered_map<std::uint64_t, TrackReading> open_;  // by plate ID: those that the tracker holds
    std::list<LiveTrack> tracks_;
    std::vector<Report> reports_;  // of the current frame, without an event so far
    std::vector<std::unique_ptr<ledger::Track>> kept_;
    // Destroyed first, because it releases its readings to this object.
    const boost::shared_ptr<CLicencePlateTracker> tracker_;
};

ChannelLedger::ChannelLedger(const plate_recognition::EarlyReport& early, bool keepsTracks)
    : follower_(std::make_unique<Follower>(early, keepsTracks)) {}

ChannelLedger::~ChannelLedger() = default;

void ChannelLedger::Add(const recording::Frame& frame) {
    follower_->Add(frame);
}

Counts ChannelLedger::CountsSoFar() const {
    return follower_->CountsSoFar();
}

const std::vector<std::unique_ptr<Track>>& ChannelLedger::Tracks() const {
    return follower_->Kept();
}

Counts CountsOf(const recording::Recording& recording) {
    std::map<int, plate_recognition::EarlyReport> early;
    for (const recording::Channel& channel : recording.channels) {
        early[channel.number] = EarlyReportOf(channel.settings);
    }
    std::map<int, ChannelLedger> ledgers;
    for (const recording::Frame& frame : recording.frames) {
        constexpr bool keepsTracks = false;
        ledgers.try_emplace(frame.channel, early[frame.channel], keepsTracks).first->second.Add(frame);
    }
    Counts sum;
    for (const auto& [channel, ledger] : ledgers) {
        sum += ledger.CountsSoFar();
    }
    return sum;
}

double TextDistanceOf(const std::string& one, const std::string& other) {
    const std::size_t longer = std::max(one.size(), other.size());
    return longer == 0
               ? 0.0
               : TextDistance({one.begin(), one.end()}, {other.begin(), other.end()}) / static_cast<double>(longer);
}

plate_recognition::EarlyReport EarlyReportOf(const std::vector<std::pair<std::string, std::string>>& settings) {
    plate_recognition::EarlyReport early;
    const auto setNumber = [](std::int32_t& number, std::string text) {
        text.erase(0, text.starts_with('+') ? 1 : 0);
        std::from_chars(text.data(), text.data() + text.size(), number);
    };
    for (const auto& [key, text] : settings) {
        if (key == SettingKey::ResultReady) {
            early.isWanted = text == "true" || text == "1";
        } else if (key == SettingKey::ResultWaitTime) {
            setNumber(early.waitSeconds, text);
        } else if (key == SettingKey::ResultRecCount) {
            setNumber(early.readings, text);
        }
    }
    return early;
}

}  // namespace ledger
