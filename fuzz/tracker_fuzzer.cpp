// Checks that the tracker makes the same calls as the slow reference tracker for any sequence of frames and readings,
// and that the text distance equals that of the full matrix for texts of any length.

#include <boost/make_shared.hpp>
#include <limits>
#include <string>

#include "fuzz/input.h"
#include "tests/tracker/comparison.h"
#include "tests/tracker/reference_tracker.h"
#include "tracker/text_distance.h"

namespace {

using tracker_test::Sequence;
using tracker_test::Step;

// The reference's time for a reading grows with the number of readings in its track.
constexpr unsigned maxReadings = 24;

constexpr std::uint64_t top = std::uint64_t{1} << 63;
constexpr std::uint64_t lastTime = std::numeric_limits<std::uint64_t>::max();
constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t noLimit = 2147483647;

constexpr std::uint64_t timeouts[] = {3000, 0, 1, 40, 100, 400, 1000, 5000, lastTime};
constexpr std::uint64_t ages[] = {noLimit, 0, 90, 400, 2000, lastTime};
constexpr std::uint64_t counts[] = {noLimit, 0, 1, 2, 3, 4, 9};
constexpr std::uint64_t times[] = {0, 1, top - 1, top, top + 40, lastTime - 100, lastTime};
constexpr std::int32_t places[] = {lowest, lowest + 1, highest, highest - 1, 0,      -1,         1,
                                   40000,  -40000,     46341,   65536,       -70000, 1000000000, -1000000000};
constexpr std::uint32_t frameSizes[] = {1280,       0,          1,          2,          3,         640,
                                        0x7fffffff, 0x80000000, 0xffffffff, 0xfffffff0, 0x40000000};
constexpr std::int32_t weights[] = {100, 99, 101, 0, -5, highest, lowest};
constexpr wchar_t units[] = L"ABC1\u4eac";

/// Returns a text from a small alphabet, so that texts are often similar.
std::wstring TakeText(fuzz::Input& input, std::size_t maxLength) {
    const std::size_t length = input.Byte() % (maxLength + 1);
    std::wstring text;
    text.reserve(length);
    while (text.size() < length) {
        for (unsigned packed = input.Byte(), unit = 0; unit < 3 && text.size() < length; ++unit, packed /= 5) {
            text.push_back(units[packed % 5]);
        }
        if (input.IsEmpty()) {  // repeats the text so far
            const std::size_t taken = text.size();
            while (text.size() < length) {
                text.push_back(text[text.size() - taken]);
            }
        }
    }
    return text;
}

class Reader {
  public:
    explicit Reader(fuzz::Input& bytes) : input_(bytes) {}

    Sequence Read() {
        Sequence sequence;
        const unsigned setup = input_.Byte();
        if ((setup & 1) != 0) {
            sequence.lostTimeout = input_.AnyOf(timeouts);
        }
        if ((setup & 2) != 0) {
            sequence.maximumAge = input_.AnyOf(ages);
        }
        if ((setup & 4) != 0) {
            sequence.readingsToReport = input_.AnyOf(counts);
        }
        now_ = (setup & 8) != 0 ? input_.AnyOf(times) : 1000;
        sequence.steps.reserve(input_.Rest().size());
        while (!input_.IsEmpty() && readings_ < maxReadings) {
            sequence.steps.push_back(ReadStep());
        }
        return sequence;
    }

  private:
    Step ReadStep() {
        const unsigned kind = input_.Byte();
        if ((kind & 0x1f) == 0x1f) {
            if ((kind & 0x20) != 0) {
                return {Step::Kind::FinishAll, 0, {}};
            }
            return {Step::Kind::LostTimeout, input_.AnyOf(timeouts), {}};
        }
        Step step;
        step.readings.reserve(4);
        now_ += (kind & 8) != 0 ? 40 : AnyInterval();
        step.time = (kind & 16) != 0 ? AnyTime() : now_;
        for (unsigned count = kind & 3; count > 0; --count) {
            ReadReading(step.readings);
        }
        return step;
    }

    void ReadReading(std::vector<LicencePlatePtr>& target) {
        const unsigned flags = input_.Byte();
        ++readings_;
        if ((flags & 0xe0) == 0xe0) {
            target.push_back((flags & 1) != 0 ? previous_ : nullptr);
            return;
        }
        const auto plate = boost::make_shared<LicencePlate>();
        plate->timeStamp = (flags & 0x60) == 0x60 ? AnyTime() : now_;
        // A plate can reach the limits of the view, which is a tenth larger on each side.
        plate->frameWidth = 1280;
        plate->frameHeight = 480;
        if ((flags & 0x50) == 0x50) {
            plate->frameWidth = input_.AnyOf(frameSizes);
            plate->frameHeight = input_.AnyOf(frameSizes);
        }
        plate->weight = (flags & 8) != 0 ? input_.AnyOf(weights) : 100;
        const std::int32_t x = input_.Byte() * 6 - 120;
        const std::int32_t y = input_.Byte() * 4 - 120;
        plate->cornerA = {x - 50, y - 15};
        plate->cornerB = {x + 50, y - 15};
        plate->cornerC = {x + 50, y + 15};
        plate->cornerD = {x - 50, y + 15};
        if ((flags & 0x90) == 0x90) {
            for (PlateCorner* const corner : {&plate->cornerA, &plate->cornerB, &plate->cornerC}) {
                corner->x = AnyPlace();
                corner->y = AnyPlace();
            }
        }
        if ((flags & 7) != 0) {
            plate->text = texts_[flags & 3];
            if ((flags & 4) != 0 && !plate->text.empty()) {
                plate->text[input_.Byte() % plate->text.size()] = units[input_.Below(5)];
            }
        } else {
            // Texts of three units need no allocation.
            plate->text = TakeText(input_, input_.OneIn(8) ? 9 : 3);
        }
        texts_[readings_ & 3] = plate->text;
        plate->id = readings_;
        target.push_back(plate);
        previous_ = plate;
    }

    std::uint64_t AnyInterval() {
        const std::uint64_t interval = input_.Byte();
        return interval < 200 ? interval : (interval - 200) * 100;
    }

    std::uint64_t AnyTime() {
        const unsigned which = input_.Byte();
        if (which < std::size(times)) {
            return times[which];
        }
        return which < 16 ? input_.Take<std::uint64_t>() : now_ + which * 8 - 1000;
    }

    std::int32_t AnyPlace() {
        const unsigned which = input_.Byte();
        if (which < std::size(places)) {
            return places[which];
        }
        return which < 24 ? input_.Take<std::int32_t>() : static_cast<std::int32_t>(which) * 8 - 400;
    }

    fuzz::Input& input_;
    std::uint64_t now_ = 0;
    unsigned readings_ = 0;
    LicencePlatePtr previous_;
    std::wstring texts_[4];  // of the last readings
};

void CheckTracker(fuzz::Bytes bytes, fuzz::Input& input) {
    static reference::Coverage coverage;
    const Sequence sequence = Reader(input).Read();
    const tracker_test::Comparison comparison = tracker_test::Compare(sequence, coverage);
    if (!comparison.IsEqual()) {
        fuzz::Fail(bytes, (tracker_test::Describe(sequence) + comparison.Difference()).c_str());
    }
}

void CheckTextDistance(fuzz::Bytes bytes, fuzz::Input& input) {
    // 64 units of the first text are compared at a time.
    const std::wstring first = TakeText(input, 140);
    const std::wstring second = TakeText(input, 40);
    const double distance = TextDistance(first, second);
    if (distance != reference::TextDistance(first, second)) {
        fuzz::Fail(bytes, ("a text distance of " + std::to_string(distance)).c_str());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Bytes bytes(data, size);
    fuzz::Input input(bytes);
    if (size > 0 && data[0] == 0xff) {
        input.Byte();
        CheckTextDistance(bytes, input);
    } else {
        CheckTracker(bytes, input);
    }
    return 0;
}
