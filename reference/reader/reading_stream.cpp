#include "reference/reader/reading_stream.h"

#include <algorithm>
#include <cmath>

namespace plate_reading {
namespace {

// The thumbnail's fields, each the mean brightness of a part of the frame.
constexpr int columns = 32;
constexpr int rows = 18;
// Pixels that are sampled in each field; enough to distinguish scenes.
constexpr int samplesAcross = 6;
constexpr int samplesDown = 6;

// Mean difference of the fields in grey levels. Successive frames of a camera are below it, even six a second of one
// that moves; of frames of different places one pair in a hundred.
constexpr float sameSceneDifference = 16;
// Frames of different places do not have the same text either, unless they follow each other in a stream.
constexpr std::size_t rememberedFrames = 4;

// After this many frames of one scene, frames count as a camera's stream even across a sudden change.
constexpr int establishedAfter = 5;

// Character heights; a text that ends closer to a side of the searched area may continue beyond it.
constexpr double edgeMargin = 0.6;

// Pixels; the side of the squares whose mean brightness shows where the picture has changed, and the distance of the
// pixels that are sampled in one.
constexpr int squareSide = 16;
constexpr int squareStep = 2;
// Grey levels; the noise of a camera changes the mean of a square by less than one.
constexpr float changedBrightness = 3;
// Pixels around the squares that have changed, so that a plate at their side is searched as a whole.
constexpr int changedMargin = 24;
// A part with this share of the whole takes as long as the whole.
constexpr double wholeShare = 0.8;
constexpr int maxFramesSinceWhole = 25;
constexpr std::chrono::seconds maxTimeSinceWhole{1};

// The largest distance between two successive readings of a plate, in plate widths.
constexpr double maxMovement = 1.5;
constexpr double sameTextFactor = 6;  // by which the distance of a plate with the text that is read may be larger

// Plate widths a frame; what moves faster is in view for a second or two.
constexpr double fastMovement = 0.03;
// Pixels; less may not change the mean brightness of a square.
constexpr double visibleMovement = 8;
// The share of the squares that may change, by noise, when the picture is repeated.
constexpr double repeatedShare = 0.05;
constexpr int maxRepeatedFrames = 10;

// Of a moving camera at least this share of the squares changes, apart from the change of all by exposure and light.
constexpr double movingShare = 0.5;
// Pixels; the readings of a text that stands still differ by less.
constexpr double overlayMovement = 4;

// Frames for which a plate that was reported, and is then not read, is reported where it must be by now, but not for
// more frames than it was read in: the track of a missing plate may take the readings of its neighbours in the host's
// tracker, and then of two vehicles only one has an event.
constexpr int maxHiddenFrames = 10;
constexpr double newSpeedShare = 0.5;  // of the movement since the last reading; a text's ends are inexact

// Frames for which a plate that is not seen is remembered.
constexpr int maxUnseenFrames = 50;

// Texts kept for one plate. A plate that stays in view is misread again and again, so the number must be limited.
constexpr std::size_t maxTexts = 64;

constexpr double minConfidence = 80;  // of the text that is reported, on average
// A text with the format of a country and this confidence on average needs one frame less.
constexpr double sureConfidence = 94;
constexpr int minNeeded = 2;
// For texts that are often not those of plates.
constexpr double minDoubtfulConfidence = 95;
constexpr int doubtfulFactor = 3;         // for the number of frames that must agree
constexpr double doubtfulMovement = 0.5;  // plate widths, from the place where it was first seen
constexpr std::size_t minSureLength = 5;
constexpr double minShare = 0.65;  // of all votes
constexpr double clearLead = 2;    // of another text over the one reported so far

/// Whether the texts may be readings of one plate: the parts that they share at both ends are half of the longer one.
/// Needed because another plate may appear at the same place.
bool AreSimilar(const std::string& a, const std::string& b) {
    const std::size_t shorter = std::min(a.size(), b.size());
    std::size_t front = 0;
    while (front < shorter && a[front] == b[front]) {
        ++front;
    }
    std::size_t back = 0;
    while (back < shorter - front && a[a.size() - 1 - back] == b[b.size() - 1 - back]) {
        ++back;
    }
    return 2 * (front + back) >= std::max(a.size(), b.size());
}

/// Signs and lettering on vehicles are often short or letters only, times and dates in the picture digits only; plates
/// are rarely. Such texts must move to be reported, because signs and overlays stand still.
bool IsDoubtful(const std::string& text) {
    const bool hasDigit = text.find_first_of("0123456789") != std::string::npos;
    const bool hasLetter = text.find_first_not_of("0123456789") != std::string::npos;
    return text.size() < minSureLength || !hasDigit || !hasLetter;
}

std::vector<float> Thumbnail(const Picture& picture) {
    std::vector<float> fields;
    fields.reserve(columns * rows);
    float whole = 0;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            int sum = 0;
            for (int down = 0; down < samplesDown; ++down) {
                const int y = ((row * samplesDown + down) * picture.height) / (rows * samplesDown);
                const std::uint8_t* const line = picture.pixels + static_cast<std::size_t>(y) * picture.stride;
                for (int across = 0; across < samplesAcross; ++across) {
                    const int x = ((column * samplesAcross + across) * picture.width) / (columns * samplesAcross);
                    const std::uint8_t* const pixel = line + 3 * static_cast<std::size_t>(x);
                    sum += (pixel[0] + 2 * pixel[1] + pixel[2]) / 4;
                }
            }
            fields.push_back(static_cast<float>(sum) / (samplesAcross * samplesDown));
            whole += fields.back();
        }
    }
    // Subtracts the mean brightness, which changes with the camera's exposure.
    for (float& field : fields) {
        field -= whole / (columns * rows);
    }
    return fields;
}

std::pair<double, double> CentreOf(const Reading& reading) {
    double x = 0;
    double y = 0;
    for (const Point& corner : reading.corners) {
        x += corner.x / 4.0;
        y += corner.y / 4.0;
    }
    return {x, y};
}

Region BoxOf(const Reading& reading) {
    Region box{reading.corners[0].x, reading.corners[0].y, reading.corners[0].x, reading.corners[0].y};
    for (const Point& corner : reading.corners) {
        box = {std::min(box.left, corner.x), std::min(box.top, corner.y), std::max(box.right, corner.x),
               std::max(box.bottom, corner.y)};
    }
    return box;
}

bool Intersect(const Region& a, const Region& b) {
    return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

Region Around(const Region& a, const Region& b) {
    return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right), std::max(a.bottom, b.bottom)};
}

Region Grow(const Region& region, int by, const Region& limit) {
    return {std::max(region.left - by, limit.left), std::max(region.top - by, limit.top),
            std::min(region.right + by, limit.right), std::min(region.bottom + by, limit.bottom)};
}

double AreaOf(const Region& region) {
    return static_cast<double>(region.right - region.left) * (region.bottom - region.top);
}

/// The mean brightness of a square, from its green pixels.
float BrightnessOf(const Picture& picture, const Region& square) {
    int sum = 0;
    for (int y = square.top; y < square.bottom; y += squareStep) {
        const std::uint8_t* const line = picture.pixels + static_cast<std::size_t>(y) * picture.stride + 1;
        for (int x = square.left; x < square.right; x += squareStep) {
            sum += line[3 * static_cast<std::size_t>(x)];
        }
    }
    constexpr int samples = (squareSide / squareStep) * (squareSide / squareStep);
    return static_cast<float>(sum) / samples;
}

/// Squares that cover the region; the last ones of a row or column overlap. None if the region is smaller than one.
std::vector<Region> SquaresOf(const Region& region) {
    std::vector<Region> squares;
    const int lastLeft = region.right - squareSide;
    const int lastTop = region.bottom - squareSide;
    if (lastLeft < region.left || lastTop < region.top) {
        return squares;
    }
    for (int y = region.top; y < region.bottom; y += squareSide) {
        for (int x = region.left; x < region.right; x += squareSide) {
            const int left = std::min(x, lastLeft);
            const int top = std::min(y, lastTop);
            squares.push_back({left, top, left + squareSide, top + squareSide});
        }
    }
    return squares;
}

}  // namespace

Region ReadingStream::ChangedPart(const Picture& picture, const std::optional<Region>& region) {
    const Region frame{0, 0, picture.width, picture.height};
    Region whole = frame;
    if (region) {
        whole = {std::clamp(region->left, 0, frame.right), std::clamp(region->top, 0, frame.bottom),
                 std::clamp(region->right, 0, frame.right), std::clamp(region->bottom, 0, frame.bottom)};
    }
    const std::vector<Region> squares = SquaresOf(whole);
    if (needed_ <= 1 || squares.empty()) {
        return whole;
    }
    const bool isKnown = whole == searched_ && brightness_.size() == squares.size();
    std::vector<float> brightness;
    brightness.reserve(squares.size());
    std::optional<Region> changed;
    changed_.clear();
    for (const Region& square : squares) {
        brightness.push_back(BrightnessOf(picture, square));
        const std::size_t index = brightness.size() - 1;
        if (!isKnown || std::abs(brightness[index] - brightness_[index]) > changedBrightness) {
            changed = changed ? Around(*changed, square) : square;
            changed_.push_back(square);
        }
    }
    isCameraMoving_ = isKnown && IsCameraMoving(brightness);
    Region part;
    if (changed) {
        part = WithPlates(Grow(*changed, changedMargin, whole), whole);
    }
    const Clock::time_point now = now_();
    ++sinceWholeSearch_;
    if (!isKnown || sinceWholeSearch_ >= maxFramesSinceWhole || now - wholeSearch_ >= maxTimeSinceWhole ||
        AreaOf(part) > wholeShare * AreaOf(whole)) {
        part = whole;
        sinceWholeSearch_ = 0;
        wholeSearch_ = now;
        searched_ = whole;
        brightness_ = std::move(brightness);
        return part;
    }
    for (std::size_t index = 0; index < squares.size(); ++index) {
        if (Intersect(part, squares[index])) {
            brightness_[index] = brightness[index];
        }
    }
    return part;
}

// Whether most of the picture differs from when it was searched, and not only by its brightness.
bool ReadingStream::IsCameraMoving(const std::vector<float>& brightness) const {
    float mean = 0;
    for (std::size_t index = 0; index < brightness.size(); ++index) {
        mean += (brightness[index] - brightness_[index]) / static_cast<float>(brightness.size());
    }
    std::size_t changed = 0;
    for (std::size_t index = 0; index < brightness.size(); ++index) {
        changed += std::abs(brightness[index] - brightness_[index] - mean) > changedBrightness ? 1U : 0U;
    }
    return static_cast<double>(changed) >= movingShare * static_cast<double>(brightness.size());
}

// Enlarges the part so that no plate of the previous frame is only partly in it.
Region ReadingStream::WithPlates(Region part, const Region& whole) const {
    for (bool hasGrown = true; hasGrown;) {
        hasGrown = false;
        for (const Reading& reading : lastReadings_) {
            const Region box = Grow(BoxOf(reading), changedMargin, whole);
            const Region larger = Around(part, box);
            if (Intersect(part, box) && larger != part) {
                part = larger;
                hasGrown = true;
            }
        }
    }
    return part;
}

bool ReadingStream::ContinuesScene(const Picture& picture, const std::vector<Reading>& readings) {
    std::vector<std::string> texts;
    bool isKnown = false;
    for (const Reading& reading : readings) {
        if (reading.hasFormat && reading.confidence >= minConfidence && !IsDoubtful(reading.text)) {
            texts.push_back(reading.text);
            isKnown = isKnown || std::any_of(lastTexts_.begin(), lastTexts_.end(), [&](const auto& frame) {
                          return std::find(frame.begin(), frame.end(), reading.text) != frame.end();
                      });
        }
    }
    lastTexts_.push_back(std::move(texts));
    if (lastTexts_.size() > rememberedFrames) {
        lastTexts_.pop_front();
    }
    std::vector<float> fields = Thumbnail(picture);
    const bool sameSize = picture.width == width_ && picture.height == height_;
    float difference = 0;
    for (std::size_t i = 0; i < fields.size() && i < thumbnail_.size(); ++i) {
        difference += std::abs(fields[i] - thumbnail_[i]) / (columns * rows);
    }
    const bool same = sameSize && !thumbnail_.empty() && difference < sameSceneDifference;
    width_ = picture.width;
    height_ = picture.height;
    thumbnail_ = std::move(fields);
    if (same) {
        ++sameScene_;
        return true;
    }
    if (sameSize && isKnown) {
        sameScene_ = std::max(sameScene_, establishedAfter);
    }
    // In an established stream a sudden change is a light that is switched, or a large vehicle that has moved.
    const bool established = sameSize && sameScene_ >= establishedAfter;
    if (!established) {
        plates_.clear();
        sameScene_ = 0;
    }
    return established;
}

// `isUnchanged`: the picture there is the same as before.
ReadingStream::Plate& ReadingStream::PlateOf(const Reading& reading, bool isUnchanged) {
    const auto [x, y] = CentreOf(reading);
    const double readWidth = std::max(1, reading.corners[2].x - reading.corners[0].x);
    Plate* nearest = nullptr;
    double least = maxMovement;
    for (Plate& plate : plates_) {
        const bool isSimilar = std::any_of(plate.texts.begin(), plate.texts.end(),
                                           [&](const auto& entry) { return AreSimilar(entry.first, reading.text); });
        if (plate.lastSeen == pictures_ || !isSimilar) {
            continue;
        }
        double distance = std::hypot(plate.x - x, plate.y - y) / std::max(plate.width, readWidth);
        if (plate.reported == reading.text || (plate.texts.contains(reading.text) && !IsDoubtful(reading.text))) {
            distance /= sameTextFactor;
        }
        if (distance < least) {
            least = distance;
            nearest = &plate;
        }
    }
    if (nearest == nullptr) {
        nearest = &plates_.emplace_back();
        nearest->firstX = x;
        nearest->firstY = y;
    }
    const int frames = pictures_ - nearest->lastRead;
    nearest->isRepeated = isUnchanged && MustHaveMoved(*nearest) && frames <= maxRepeatedFrames;
    nearest->lastSeen = pictures_;
    if (nearest->isRepeated) {
        nearest->x = x;
        nearest->y = y;
        return *nearest;
    }
    if (nearest->lastRead > 0) {
        const double share = nearest->seen == 1 || frames > maxRepeatedFrames ? 1 : newSpeedShare;
        nearest->speedX += share * ((x - nearest->x) / frames - nearest->speedX);
        nearest->speedY += share * ((y - nearest->y) / frames - nearest->speedY);
    }
    ++nearest->seen;
    nearest->x = x;
    nearest->y = y;
    nearest->width = readWidth;
    const bool isStill = std::hypot(x - nearest->firstX, y - nearest->firstY) < overlayMovement;
    nearest->isOverlay = isStill && (nearest->isOverlay || isCameraMoving_);
    nearest->hasMoved =
        nearest->hasMoved || std::hypot(x - nearest->firstX, y - nearest->firstY) > doubtfulMovement * readWidth;
    nearest->lastRead = pictures_;
    return *nearest;
}

// A fast plate at the same place again, in a picture that is otherwise the same too, means that the camera or a
// recorder repeats pictures, not that the vehicle has stopped. Then no plate is reported: the host's tracker would
// expect the fast ones at this place for seconds, and the next vehicle there would be taken for them; and without them
// it would give their tracks the other plates.
bool ReadingStream::MustHaveMoved(const Plate& plate) const {
    const double speed = std::hypot(plate.speedX, plate.speedY);
    const bool isRepeated =
        static_cast<double>(changed_.size()) < repeatedShare * static_cast<double>(brightness_.size());
    return isRepeated && speed > fastMovement * plate.width && speed * (pictures_ - plate.lastRead) > visibleMovement;
}

// The plate that had this reading in the previous frame, or null. The picture there is the same in this frame, which
// confirms nothing.
ReadingStream::Plate* ReadingStream::UnchangedPlateOf(const Reading& reading) {
    const auto [x, y] = CentreOf(reading);
    const auto plate = std::find_if(plates_.begin(), plates_.end(), [&, x = x, y = y](const Plate& other) {
        return other.lastSeen == pictures_ - 1 && other.x == x && other.y == y;
    });
    if (plate == plates_.end()) {
        return nullptr;
    }
    plate->lastSeen = pictures_;
    return &*plate;
}

// Removes the text with the least weight if there are too many, but neither `kept` nor the reported text.
void ReadingStream::ForgetText(Plate& plate, const std::string& kept) const {
    if (plate.texts.size() <= maxTexts) {
        return;
    }
    auto least = plate.texts.end();
    for (auto entry = plate.texts.begin(); entry != plate.texts.end(); ++entry) {
        const bool isRemovable = entry->first != kept && entry->first != plate.reported;
        if (isRemovable && (least == plate.texts.end() || entry->second.weight < least->second.weight)) {
            least = entry;
        }
    }
    plate.texts.erase(least);
}

// The number of frames that must agree on a text.
int ReadingStream::NeededFor(const std::pair<const std::string, Votes>& text) const {
    const Votes& votes = text.second;
    if (IsDoubtful(text.first)) {
        return needed_ * doubtfulFactor;
    }
    if (!votes.hasFormat) {
        return needed_ + 1;
    }
    return votes.confidence >= sureConfidence * votes.count ? std::max(needed_ - 1, minNeeded) : needed_;
}

bool ReadingStream::Confirm(Plate& plate, Reading& reading) const {
    Votes& own = plate.texts[reading.text];
    ForgetText(plate, reading.text);
    ++own.count;
    own.weight += std::pow(reading.confidence / 100, 4);
    own.confidence += reading.confidence;
    own.hasFormat = reading.hasFormat;
    own.country = reading.country.empty() ? own.country : reading.country;

    double all = 0;
    const std::pair<const std::string, Votes>* leader = nullptr;
    for (const auto& entry : plate.texts) {
        all += entry.second.weight;
        if (leader == nullptr || entry.second.weight > leader->second.weight) {
            leader = &entry;
        }
    }
    const Votes& votes = leader->second;
    const auto before = plate.texts.find(plate.reported);
    const bool isDoubtful = IsDoubtful(leader->first);
    const bool replaces = before == plate.texts.end() || votes.weight > clearLead * before->second.weight;
    if (replaces && votes.count >= NeededFor(*leader) && votes.weight >= minShare * all &&
        votes.confidence >= (isDoubtful ? minDoubtfulConfidence : minConfidence) * votes.count &&
        (!isDoubtful || plate.hasMoved) && !plate.isOverlay) {
        plate.reported = leader->first;
    }
    if (plate.reported.empty()) {
        return false;
    }
    if (reading.text != plate.reported) {
        const Votes& reported = plate.texts[plate.reported];
        reading.text = plate.reported;
        reading.confidence = reported.confidence / reported.count;
    }
    reading.country = plate.texts[plate.reported].country;
    return true;
}

std::vector<Reading> ReadingStream::Follow(const Picture& picture, const std::optional<Region>& region,
                                           std::vector<Reading> readings, const std::optional<Region>& part) {
    if (needed_ <= 1 || picture.width <= 0 || picture.height <= 0) {
        return readings;
    }
    std::erase_if(lastReadings_, [&](const Reading& previous) { return !part || Intersect(*part, BoxOf(previous)); });
    const std::vector<Reading> unchanged = std::move(lastReadings_);
    lastReadings_ = readings;
    lastReadings_.insert(lastReadings_.end(), unchanged.begin(), unchanged.end());
    ++pictures_;
    const bool isStream = ContinuesScene(picture, lastReadings_);
    std::vector<Reading> repeated;
    bool isRepeatedPicture = false;
    for (const Reading& reading : unchanged) {
        const Plate* const plate = UnchangedPlateOf(reading);
        if (plate == nullptr) {
            readings.push_back(reading);
            continue;
        }
        isRepeatedPicture = isRepeatedPicture || MustHaveMoved(*plate);
        if (!plate->reported.empty()) {
            repeated.push_back(plate->last);
        }
    }
    std::erase_if(plates_, [&](const Plate& plate) { return pictures_ - plate.lastSeen > maxUnseenFrames; });
    const int left = region ? std::max(region->left, 0) : 0;
    const int right = region ? std::min(region->right, picture.width) : picture.width;
    std::erase_if(readings, [&](Reading& reading) {
        // At a side of the searched area characters may be missing; other frames show the whole plate.
        const double margin = edgeMargin * (reading.corners[1].y - reading.corners[0].y);
        if (isStream && (reading.corners[0].x < left + margin || reading.corners[2].x > right - margin)) {
            return true;
        }
        const Region box = BoxOf(reading);
        const auto touches = [&](const Region& square) { return Intersect(square, box); };
        Plate& plate = PlateOf(reading, part && std::none_of(changed_.begin(), changed_.end(), touches));
        if (plate.isRepeated) {
            isRepeatedPicture = true;
            return true;
        }
        const bool confirmed = Confirm(plate, reading);
        plate.last = reading;
        // The first frames are single images or the start of a stream, in which the next ones confirm their readings.
        const bool isUnsure = IsDoubtful(reading.text) || (pictures_ <= 2 && reading.confidence < minConfidence);
        if (confirmed) {
            return false;
        }
        if (isStream || isUnsure) {
            return true;
        }
        plate.reported = reading.text;  // if this is the start of a stream, the next frames show the same text
        return false;
    });
    if (isRepeatedPicture) {
        return {};
    }
    readings.insert(readings.end(), repeated.begin(), repeated.end());
    AddHidden({left, 0, right, picture.height}, readings);
    return readings;
}

// Adds the plates that were reported in one of the last frames but not read in this one, where they are by now.
void ReadingStream::AddHidden(const Region& whole, std::vector<Reading>& readings) const {
    for (const Plate& plate : plates_) {
        const int hidden = pictures_ - plate.lastSeen;
        if (plate.reported.empty() || hidden == 0 || hidden > std::min(plate.seen, maxHiddenFrames)) {
            continue;
        }
        Reading reading = plate.last;
        for (Point& corner : reading.corners) {
            corner.x += static_cast<int>(std::lround(plate.speedX * (pictures_ - plate.lastRead)));
            corner.y += static_cast<int>(std::lround(plate.speedY * (pictures_ - plate.lastRead)));
        }
        const Region box = BoxOf(reading);
        const auto isSeen = [&](const Reading& other) {
            return Intersect(box, BoxOf(other)) || other.text == plate.reported;
        };
        const bool isCovered = std::any_of(lastReadings_.begin(), lastReadings_.end(), isSeen) ||
                               std::any_of(readings.begin(), readings.end(), isSeen);
        if (!isCovered && box.left > whole.left && box.right < whole.right && box.top > whole.top &&
            box.bottom < whole.bottom) {
            readings.push_back(std::move(reading));
        }
    }
}

}  // namespace plate_reading
