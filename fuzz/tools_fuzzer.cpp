// Checks that the tools parse any text correctly or refuse it with their own exceptions: Y4M streams, the scripted
// engine's script, command-line settings, and the reading engine's configuration.

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "fuzz/input.h"
#include "reference/reader/reading_configuration.h"
#include "reference/scripted_engine/script.h"
#include "sdk/detector.h"
#include "tools/host/failure.h"
#include "tools/host/settings.h"
#include "tools/host/y4m_reader.h"

namespace {

using fuzz::Bytes;

fuzz::Bytes current;

void Check(bool isRight, const char* failure) {
    if (!isRight) {
        fuzz::Fail(current, failure);
    }
}

std::string TextOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool IsOneLine(const std::string& text) {
    return text.find('\n') == std::string::npos;
}

/// Returns the bytes in pieces of at most that size.
class Pieces final : public plate_host::ByteSource {
  public:
    Pieces(Bytes bytes, std::size_t piece) : rest_(bytes), largest_(piece), total_(bytes.size()) {}

    std::size_t Read(void* buffer, std::size_t size) override {
        const std::size_t count = std::min({size, rest_.size(), largest_});
        if (count > 0) {
            std::memcpy(buffer, rest_.data(), count);
            rest_ = rest_.subspan(count);
        }
        return count;
    }
    std::string Error() const override { return {}; }
    std::optional<std::uint64_t> Size() const override { return total_; }

  private:
    Bytes rest_;
    std::size_t largest_;
    std::size_t total_;
};

/// Checks that an accepted header has only digits in its numbers.
void CheckY4mHeader(const std::string& line) {
    std::istringstream words(line);
    for (std::string word; std::getline(words, word, ' ');) {
        const bool isNumber = word.find_first_not_of("0123456789:", 1) == std::string::npos;
        Check(isNumber || (word[0] != 'W' && word[0] != 'H' && word[0] != 'F'), "a number with a text after it");
    }
}

/// Returns true if the stream's pictures are small enough for an execution.
bool HasSmallPictures(Bytes bytes) {
    const std::string text = TextOf(bytes);
    const std::string line = text.substr(0, text.find('\n'));
    try {
        const plate_host::Y4mHeader header = plate_host::ParseY4mHeader(line);
        CheckY4mHeader(line);
        return header.width <= 256 && header.height <= 256;
    } catch (const plate_host::Failure&) {
        return true;
    }
}

void CheckY4m(Bytes bytes, std::size_t piece) {
    if (!HasSmallPictures(bytes)) {
        return;
    }
    try {
        plate_host::Y4mReader reader(std::make_unique<Pieces>(bytes, piece), "stream");
        plate_host::Picture picture;
        std::uint64_t last = 0;
        std::uint64_t pictures = 0;
        while (reader.Read(picture)) {
            const std::uint32_t pixels = picture.width * picture.height;
            Check(picture.width % 2 == 0 && picture.height % 2 == 0 && pixels > 0, "a picture of an odd size");
            Check(picture.size == pixels || picture.size == pixels / 2 * 3, "a picture of an unknown layout");
            Check(picture.timeMs >= last, "a picture older than the previous one");
            last = picture.timeMs;
            ++pictures;
        }
        Check(!reader.Read(picture), "a picture after the end");
        Check(IsOneLine(reader.Damage()), "several lines about the damage");
        Check(!reader.PictureCount() || pictures <= *reader.PictureCount(), "more pictures than PictureCount");
    } catch (const plate_host::Failure& failure) {
        Check(IsOneLine(failure.what()), "several lines about one failure");
    }
}

void CheckScript(Bytes bytes) {
    std::istringstream stream(TextOf(bytes));
    try {
        const scripted_engine::Script script = scripted_engine::ReadScript(stream, "folder");
        Check(script.frames.empty() == (script.FrameAt(0) == nullptr), "the first frame");
        Check(script.refusesEveryRange <= script.RefusesRange(7), "a range that is not refused");
        for (const scripted_engine::ScriptedFrame& frame : script.frames) {
            Check(frame.plates.size() <= static_cast<std::size_t>(engineRecordCount), "too many plates");
        }
    } catch (const std::exception& exception) {
        Check(*exception.what() != '\0', "a failure without a text");
    }
}

/// Accepts the types of values that its bits select.
class AnyDetector final : public OKM8::IAsyncAdjuster, public OKM8::IErrorInfoProvider {
  public:
    explicit AnyDetector(unsigned bits) : taken_(bits) {}
    OKM8_OBJECT_DESTRUCTOR_SLOT(AnyDetector)
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    std::int32_t SetStringValue(const char* name, const char* value) override {
        Check(name != nullptr && value != nullptr, "a null text");
        return Take(1);
    }
    std::int32_t SetDoubleValue(const char*, double) override { return Take(2); }
    std::int32_t SetIntValue(const char*, std::int32_t) override { return Take(4); }
    std::int32_t SetBoolValue(const char*, bool) override { return Take(8); }
    void ApplySettings() override { code_ = (taken_ & 16) != 0 ? OKM8::ErrorCode::Failed : OKM8::ErrorCode::None; }
    std::int32_t GetErrorCode() override { return code_; }
    const char* GetErrorMessage() override { return (taken_ & 32) != 0 ? nullptr : "a\ntext"; }

  private:
    std::int32_t Take(unsigned bit) {
        const std::int32_t refusal = (taken_ & 64) != 0 ? OKM8::ErrorCode::Failed : OKM8::ErrorCode::RefusedSetting;
        return code_ = (taken_ & bit) != 0 ? OKM8::ErrorCode::None : refusal;
    }

    unsigned taken_;
    std::int32_t code_ = 0;
};

void CheckSettings(Bytes bytes, unsigned taken) {
    std::istringstream lines(TextOf(bytes));
    std::vector<plate_host::Setting> settings;
    for (std::string line; std::getline(lines, line);) {
        try {
            settings.push_back(plate_host::ParseSetting(line));
        } catch (const plate_host::Failure&) {
            continue;
        }
        const plate_host::Setting& setting = settings.back();
        Check(setting.key + "=" + setting.text == line && !setting.key.empty(), "a setting that differs from its line");
        const std::vector<plate_host::SettingValue> readings = plate_host::PossibleValues(setting.text);
        Check(!readings.empty() && readings.back() == plate_host::SettingValue(setting.text), "an invalid text");
        for (const plate_host::SettingValue& reading : readings) {
            const char* const end = setting.text.c_str() + setting.text.size();
            char* stop = nullptr;
            if (const auto* const number = std::get_if<std::int32_t>(&reading)) {
                Check(std::strtoll(setting.text.c_str(), &stop, 10) == *number && stop == end, "a wrong number");
            }
            if (const auto* const number = std::get_if<double>(&reading)) {
                Check(std::strtod(setting.text.c_str(), &stop) == *number && stop == end, "a wrong number");
            }
        }
    }
    AnyDetector detector(taken);
    try {
        plate_host::ApplySettings(detector, detector, settings);
    } catch (const plate_host::Failure& failure) {
        Check(IsOneLine(failure.what()), "several lines about one failure");
    }
}

void CheckConfiguration(Bytes bytes) {
    std::istringstream stream(TextOf(bytes));
    try {
        const plate_reading::ReadingOptions options = plate_reading::ReadConfiguration(stream);
        Check(options.confirmations >= 1 && options.confirmations <= 9, "a number of confirmations");
        for (const plate_reading::Template& pattern : options.templates) {
            Check(pattern.size() >= 4 && pattern.size() <= 12 && pattern.find_first_not_of("LD") == std::string::npos,
                  "a pattern");
        }
    } catch (const plate_reading::ConfigurationError& error) {
        Check(std::string(error.what()).starts_with("line "), "an error without a line number");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    current = {data, size};
    fuzz::Input input(current);
    switch (const unsigned kind = input.Byte(); kind % 4) {
        case 0:
            CheckY4m(input.Rest(), 1 + kind / 4 % 32);
            break;
        case 1:
            CheckScript(input.Rest());
            break;
        case 2: {
            const unsigned taken = input.Byte();
            CheckSettings(input.Rest(), taken);
            break;
        }
        default:
            CheckConfiguration(input.Rest());
            break;
    }
    return 0;
}
