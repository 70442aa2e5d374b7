#include "reference/scripted_engine/script.h"

#include <fstream>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace scripted_engine {
namespace {

using nlohmann::json;

[[noreturn]] void Fail(const std::string& place, const std::string& message) {
    throw std::runtime_error(place + ": " + message);
}

std::string Member(const std::string& place, std::string_view key) {
    return place.empty() ? std::string(key) : place + "." + std::string(key);
}

std::string Element(const std::string& place, std::size_t index) {
    return place + "[" + std::to_string(index) + "]";
}

void CheckKeys(const json& value, const std::string& place, std::initializer_list<std::string_view> known) {
    const std::string shownPlace = place.empty() ? "script" : place;
    if (!value.is_object()) {
        Fail(shownPlace, "an object is required");
    }
    for (const auto& member : value.items()) {
        bool found = false;
        for (const std::string_view key : known) {
            found = found || member.key() == key;
        }
        if (!found) {
            Fail(shownPlace, "there is no setting \"" + member.key() + "\"");
        }
    }
}

std::int32_t ReadInteger(const json& value, const std::string& place) {
    if (!value.is_number_integer()) {
        Fail(place, "a whole number is required");
    }
    // An unsigned number beyond the signed range is too large in any case.
    const bool tooLarge = value.is_number_unsigned() &&
                          value.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<int>::max());
    const std::int64_t number = tooLarge ? 0 : value.get<std::int64_t>();
    if (tooLarge || number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::int32_t>::max()) {
        Fail(place, "the number does not fit in 32 bits");
    }
    return static_cast<std::int32_t>(number);
}

bool ReadBoolean(const json& value, const std::string& place) {
    if (!value.is_boolean()) {
        Fail(place, "true or false is required");
    }
    return value.get<bool>();
}

const std::string& ReadString(const json& value, const std::string& place) {
    if (!value.is_string()) {
        Fail(place, "a string is required");
    }
    return value.get_ref<const std::string&>();
}

const json& ReadArray(const json& value, const std::string& place) {
    if (!value.is_array()) {
        Fail(place, "a list is required");
    }
    return value;
}

std::wstring Widen(std::uint32_t codePage, const std::string& bytes) {
    const int byteCount = static_cast<int>(bytes.size());
    const int length = platform::ToWide(codePage, bytes.data(), byteCount, nullptr, 0);
    if (length <= 0) {
        return {};
    }
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    const int written = platform::ToWide(codePage, bytes.data(), byteCount, wide.data(), length);
    wide.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
    return wide;
}

std::string Narrow(std::uint32_t codePage, const std::wstring& wide) {
    const int wideCount = static_cast<int>(wide.size());
    const int length = platform::FromWide(codePage, wide.data(), wideCount, nullptr, 0);
    if (length <= 0) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(length), '\0');
    const int written = platform::FromWide(codePage, wide.data(), wideCount, bytes.data(), length);
    bytes.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
    return bytes;
}

std::string ReadText(const json& value, const std::string& place) {
    const std::string& utf8 = ReadString(value, place);
    if (utf8.empty()) {
        return {};
    }
    if (utf8.size() > 256) {
        Fail(place, "the text is too long");
    }
    const std::wstring wide = Widen(platform::codePageUtf8, utf8);
    std::string bytes = Narrow(platform::codePageSimplifiedChinese, wide);
    if (wide.empty() || Widen(platform::codePageSimplifiedChinese, bytes) != wide) {
        Fail(place, "the text has characters that are not in code page 936");
    }
    return bytes;
}

int HexDigit(char digit, const std::string& place) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    Fail(place, "pairs of hexadecimal digits are required");
}

std::string ReadBytes(const json& value, const std::string& place) {
    std::string bytes;
    if (value.is_string()) {
        const std::string& digits = value.get_ref<const std::string&>();
        if (digits.size() % 2 != 0) {
            Fail(place, "pairs of hexadecimal digits are required");
        }
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            bytes.push_back(static_cast<char>(HexDigit(digits[i], place) * 16 + HexDigit(digits[i + 1], place)));
        }
        return bytes;
    }
    std::size_t index = 0;
    for (const json& element : ReadArray(value, place)) {
        const std::string elementPlace = Element(place, index++);
        const std::int32_t byte = ReadInteger(element, elementPlace);
        if (byte < 0 || byte > 255) {
            Fail(elementPlace, "a byte must be between 0 and 255");
        }
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

EngineCorner ReadCorner(const json& value, const std::string& place) {
    if (!value.is_array() || value.size() != 2) {
        Fail(place, "a pair of numbers is required");
    }
    return {ReadInteger(value[0], Element(place, 0)), ReadInteger(value[1], Element(place, 1))};
}

RPLATE ReadPlate(const json& value, const std::string& place) {
    CheckKeys(value, place, {"text", "bytes", "confidence", "corners"});
    RPLATE plate{};

    if (value.contains("text") == value.contains("bytes")) {
        Fail(place, "either \"text\" or \"bytes\" is required");
    }
    const std::string bytes = value.contains("text") ? ReadText(value["text"], Member(place, "text"))
                                                     : ReadBytes(value["bytes"], Member(place, "bytes"));
    if (bytes.size() > sizeof plate.text) {
        Fail(place, "a text has at most 16 bytes");
    }
    std::memcpy(plate.text, bytes.data(), bytes.size());

    const std::string confidencePlace = Member(place, "confidence");
    if (!value.contains("confidence") || !value["confidence"].is_number()) {
        Fail(confidencePlace, "a number is required");
    }
    SetConfidenceSum(plate, value["confidence"].get<double>());

    const std::string cornersPlace = Member(place, "corners");
    if (!value.contains("corners") || !value["corners"].is_array() || value["corners"].size() != 4) {
        Fail(cornersPlace, "four corners are required");
    }
    const json& corners = value["corners"];
    plate.corner1 = ReadCorner(corners[0], Element(cornersPlace, 0));
    plate.corner2 = ReadCorner(corners[1], Element(cornersPlace, 1));
    plate.corner3 = ReadCorner(corners[2], Element(cornersPlace, 2));
    plate.corner4 = ReadCorner(corners[3], Element(cornersPlace, 3));
    return plate;
}

ScriptedFrame ReadFrame(const json& value, const std::string& place) {
    CheckKeys(value, place, {"plates", "count"});
    ScriptedFrame frame;
    if (value.contains("plates")) {
        const std::string platesPlace = Member(place, "plates");
        const json& plates = ReadArray(value["plates"], platesPlace);
        if (plates.size() > static_cast<std::size_t>(engineRecordCount)) {
            Fail(platesPlace, "a frame has room for " + std::to_string(engineRecordCount) + " plates");
        }
        for (const json& plate : plates) {
            frame.plates.push_back(ReadPlate(plate, Element(platesPlace, frame.plates.size())));
        }
    }
    frame.count = value.contains("count") ? ReadInteger(value["count"], Member(place, "count"))
                                          : static_cast<int>(frame.plates.size());
    return frame;
}

void ReadRefusedRanges(const json& value, Script& script) {
    const std::string place = "refused_ranges";
    if (value.is_string()) {
        if (value.get_ref<const std::string&>() != "all") {
            Fail(place, "a list of call numbers or \"all\" is required");
        }
        script.refusesEveryRange = true;
        return;
    }
    std::size_t index = 0;
    for (const json& element : ReadArray(value, place)) {
        const std::string elementPlace = Element(place, index++);
        const std::int32_t number = ReadInteger(element, elementPlace);
        if (number < 0) {
            Fail(elementPlace, "call numbers start at 0");
        }
        script.refusedRanges.insert(static_cast<std::uint64_t>(number));
    }
}

}  // namespace

const ScriptedFrame* Script::FrameAt(std::uint64_t number) const {
    if (frames.empty()) {
        return nullptr;
    }
    if (repeats) {
        return &frames[number % frames.size()];
    }
    return number < frames.size() ? &frames[number] : nullptr;
}

bool Script::RefusesRange(std::uint64_t number) const {
    return refusesEveryRange || refusedRanges.contains(number);
}

Script ReadScript(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("the file cannot be opened");
    }
    return ReadScript(stream, file.parent_path());
}

Script ReadScript(std::istream& stream, const std::filesystem::path& folder) {
    const json root = json::parse(stream);
    CheckKeys(root, "", {"counting", "repeat", "refused_ranges", "journal", "frames"});

    Script script;
    if (root.contains("counting")) {
        const std::string& counting = ReadString(root["counting"], "counting");
        if (counting != "process" && counting != "thread") {
            Fail("counting", "\"process\" or \"thread\" is required");
        }
        script.counting = counting == "thread" ? Counting::Thread : Counting::Process;
    }
    if (root.contains("repeat")) {
        script.repeats = ReadBoolean(root["repeat"], "repeat");
    }
    if (root.contains("refused_ranges")) {
        ReadRefusedRanges(root["refused_ranges"], script);
    }
    if (root.contains("journal")) {
        script.journal = folder / ReadString(root["journal"], "journal");
    }
    if (root.contains("frames")) {
        for (const json& frame : ReadArray(root["frames"], "frames")) {
            script.frames.push_back(ReadFrame(frame, Element("frames", script.frames.size())));
        }
    }
    return script;
}

}  // namespace scripted_engine
