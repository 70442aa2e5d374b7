#include "tools/report/report.h"

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "tools/report/base64.h"
#include "tools/report/page_data.h"
#include "tools/report/page_parts.h"

namespace report {
namespace {

constexpr std::size_t picturesPerElement = 16;  // as in page.js

std::string_view TextOf(const PagePart& part) {
    return {reinterpret_cast<const char*>(part.bytes), part.size};
}

/// Permits the part, and no other text, as script or style.
std::string SourceOf(const PagePart& part) {
    const std::string_view digits = part.checksum;
    std::string bytes;
    for (std::size_t index = 0; index < digits.size(); index += 2) {
        unsigned byte = 0;
        std::from_chars(digits.data() + index, digits.data() + index + 2, byte, 16);
        bytes.push_back(static_cast<char>(byte));
    }
    return "'sha256-" + Base64Of(bytes) + "'";
}

/// Bytes that are not UTF-8 become replacement characters. Without "<" no text can end the element or begin a comment.
std::string ScriptDataOf(const recording::Json& value) {
    const std::string plain = value.dump(-1, ' ', false, recording::Json::error_handler_t::replace);
    std::string escaped;
    escaped.reserve(plain.size());
    for (const char character : plain) {
        if (character == '<') {
            escaped += "\\u003c";
        } else {
            escaped.push_back(character);
        }
    }
    return escaped;
}

/// Follow the page's script, so that the page is shown before the browser has read them.
std::string PictureElementsOf(const std::vector<std::string_view>& pictures) {
    std::string text;
    for (std::size_t index = 0; index < pictures.size(); ++index) {
        if (index % picturesPerElement == 0) {
            text += index == 0 ? "" : "</script>\n";
            text += "<script type=\"text/plain\" class=\"pictures\">";
        } else {
            text += '\n';
        }
        text += pictures[index];
    }
    return pictures.empty() ? text : text + "</script>\n";
}

/// Replaces each {{name}} of the template; what is put in is not searched.
std::string Filled(std::string_view text, const std::map<std::string_view, std::string_view>& values) {
    std::string page;
    for (std::size_t start = text.find("{{"); start != std::string_view::npos; start = text.find("{{")) {
        const std::size_t end = text.find("}}", start);
        page += text.substr(0, start);
        page += values.at(text.substr(start + 2, end - start - 2));
        text.remove_prefix(end + 2);
    }
    return page += text;
}

}  // namespace

std::string MakeReport(const recording::Recording& recording, const ReportExtras& extras) {
    const PageData data = PageDataOf(recording, extras);
    return Filled(TextOf(pageHtml),
                  {{"policy", "default-src 'none'; img-src data:; style-src " + SourceOf(pageCss) + "; script-src " +
                                  SourceOf(pageJs) + "; base-uri 'none'; form-action 'none'"},
                   {"style", TextOf(pageCss)},
                   {"script", TextOf(pageJs)},
                   {"data", ScriptDataOf(data.value)},
                   {"pictures", PictureElementsOf(data.pictures)}});
}

void WriteReport(const std::filesystem::path& file, const recording::Recording& recording, const ReportExtras& extras) {
    const std::string page = MakeReport(recording, extras);
    errno = 0;
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(page.data(), static_cast<std::streamsize>(page.size()));
    stream.close();
    if (stream.fail()) {
        const std::u8string name = file.u8string();
        throw std::runtime_error("cannot write the report \"" + std::string(name.begin(), name.end()) +
                                 "\": " + std::generic_category().message(errno));
    }
}

}  // namespace report
