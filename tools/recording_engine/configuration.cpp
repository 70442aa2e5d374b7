#include "tools/recording_engine/configuration.h"

#include <stdexcept>
#include <string_view>

namespace recording_engine {
namespace {

std::string Trimmed(std::string_view text) {
    constexpr std::string_view spaces = " \t\r";
    const std::size_t first = text.find_first_not_of(spaces);
    return first == std::string_view::npos ? std::string()
                                           : std::string(text.substr(first, text.find_last_not_of(spaces) - first + 1));
}

std::filesystem::path PathOf(const std::string& text) {
    return std::u8string(text.begin(), text.end());
}

std::string Filled(const std::string& pattern, const Names& names) {
    std::string text;
    for (std::size_t index = 0; index < pattern.size(); ++index) {
        if (pattern[index] != '%') {
            text += pattern[index];
            continue;
        }
        switch (++index < pattern.size() ? pattern[index] : '\0') {
            case 'p':
                text += std::to_string(names.processId);
                break;
            case 't':
                text += names.time;
                break;
            case '%':
                text += '%';
                break;
            default:
                throw std::runtime_error("\"" + pattern + "\" has a % that is not %p, %t or %%");
        }
    }
    return text;
}

}  // namespace

Configuration ReadConfiguration(std::istream& lines, const std::filesystem::path& folder, const Names& names) {
    std::string engine;
    std::string recording = "run-%t-%p.vxr";
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (number == 1 && line.starts_with("\xEF\xBB\xBF")) {
            line.erase(0, 3);  // a text editor's mark of UTF-8
        }
        const std::string text = Trimmed(line);
        if (text.empty() || text.front() == '#') {
            continue;
        }
        const std::size_t equals = text.find('=');
        const std::string key = Trimmed(text.substr(0, equals));
        const std::string value = equals == std::string::npos ? "" : Trimmed(text.substr(equals + 1));
        if ((key != "engine" && key != "recording") || value.empty()) {
            throw std::runtime_error("line " + std::to_string(number) + ": \"" + text +
                                     "\" is neither \"engine = FILE\" nor \"recording = FILE\"");
        }
        (key == "engine" ? engine : recording) = value;
    }
    if (engine.empty()) {
        throw std::runtime_error("it does not name the real engine: add a line \"engine = FILE\"");
    }
    return {(folder / PathOf(engine)).lexically_normal(),
            (folder / PathOf(Filled(recording, names))).lexically_normal()};
}

}  // namespace recording_engine
