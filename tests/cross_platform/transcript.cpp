#include "tests/cross_platform/transcript.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "sdk/plate_events.h"
#include "tests/support/wait_until.h"

namespace transcript {

namespace {

using OKM8::Analytics::TrackPoint;
using recording_host::HostCall;
using recording_host::Operation;

constexpr std::string_view detectorStart = "vexlane[";
constexpr std::string_view launcherStart = "ServerLauncher: ";
constexpr std::string_view baseStart = "[BaseDetectorImpl] ";
constexpr std::string_view systemTextStart = " err = ";
constexpr std::string_view handleStart = "0x";

bool IsLauncherLine(const std::string& line) {
    return line.starts_with(launcherStart);
}

std::string TextOf(const HostCall& call) {
    const std::string name = call.name == nullptr ? "" : call.name;
    const std::string number = std::to_string(call.number);
    const std::string buffer = "buffer " + std::to_string(call.owner) + ' ';
    switch (call.operation) {
        case Operation::GetLogger:
        case Operation::GetFactory:
        case Operation::GetOther:
            return "host GetInterface " + name;
        case Operation::WriteLog:
            return "host WriteLog " + number + ' ' + HexOfText(call.text);
        case Operation::CreateTargetEnumerator:
            return "host CreateTargetEnumerator " + number;
        case Operation::CreateEventRaiser:
            return "host CreateEventRaiser " + std::to_string(call.owner) + (call.object != nullptr ? " " : " null ") +
                   name + ' ' + number + ' ' + std::to_string(call.kind);
        case Operation::GetEventArgs:
            return "host GetEventArgs";
        case Operation::SetObjectValue:
            return "host SetObjectValue " + name + (call.isNewest ? " newest list" : " something else");
        case Operation::AddTarget:
            return "host AddTarget " + number;
        case Operation::SetStringValue:
            return "host SetStringValue " + name + ' ' + HexOfText(call.text);
        case Operation::SetDoubleValue:
            return "host SetDoubleValue " + name + ' ' + Hex(&call.real, sizeof call.real);
        case Operation::SetIntValue:
            return "host SetIntValue " + name + ' ' + number;
        case Operation::SetBoolValue:
            return "host SetBoolValue " + name + (call.number != 0 ? " true" : " false");
        case Operation::SetBinaryValue:
            return "host SetBinaryValue " + name + ' ' + std::to_string(call.size);
        case Operation::Raise:
            return "host Raise";
        case Operation::Discard:
            return "host Discard";
        case Operation::OnFrameDone:
            return call.isNewest ? "host OnFrameDone newest buffer" : "host OnFrameDone something else";
        case Operation::QueryContract:
            return buffer + "QueryContract " + name;
        case Operation::GetData:
            return buffer + "GetData";
        case Operation::GetDataSize:
            return buffer + "GetDataSize";
        case Operation::GetHeight:
            return buffer + "GetHeight";
        case Operation::GetWidth:
            return buffer + "GetWidth";
        case Operation::GetTimeStamp:
            return buffer + "GetTimeStamp";
        case Operation::Release:
            return buffer + "Release";
        case Operation::Unused:
        case Operation::Count:
            break;
    }
    return "host: an unexpected operation";
}

std::string TextOf(const TrackPoint& point) {
    std::string line;
    for (const std::int32_t number : {point.x, point.y, point.width, point.height}) {
        line += std::to_string(number) + ' ';
    }
    return line + std::to_string(point.time) + ' ' + std::to_string(point.flag);
}

}  // namespace

std::string Hex(const void* bytes, std::size_t count) {
    constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned byte = static_cast<const unsigned char*>(bytes)[i];
        hex += digits[byte >> 4];
        hex += digits[byte & 0xF];
    }
    return hex;
}

std::string Escape(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        if (character >= ' ' && character <= '~' && character != '\\') {
            escaped += character;
        } else {
            escaped += '\\';
            escaped += Hex(&character, 1);
        }
    }
    return escaped;
}

std::string HexOfText(const char* text) {
    return text == nullptr ? "-" : Hex(text, std::char_traits<char>::length(text));
}

std::string Mask(const std::string& line) {
    if (!IsLauncherLine(line)) {
        return line;
    }
    std::string masked = line;
    const std::size_t systemText = masked.find(systemTextStart);
    if (systemText != std::string::npos) {
        masked.resize(systemText + systemTextStart.size());
        masked += "*\r";
    }
    const std::size_t handle = masked.find(handleStart);
    if (handle != std::string::npos) {
        const std::size_t first = handle + handleStart.size();
        std::size_t last = first;
        while (last < masked.size() && std::isxdigit(static_cast<unsigned char>(masked[last])) != 0) {
            ++last;
        }
        if (masked.compare(first, last - first, "0") != 0) {
            masked.erase(first, last - first);
            masked.insert(first, 1, '*');
        }
    }
    return masked;
}

void Transcript::Append(const std::string& line) {
    text_ += line;
    text_ += '\n';
}

void Transcript::Write(const std::string& line) {
    AppendNewLines();
    Append(line);
}

const std::string& Transcript::Text() {
    AppendNewLines();
    return text_;
}

// Returns the complete new lines.
std::vector<std::string> Transcript::NewLines() {
    const std::string fresh = source_.Text(read_);
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end = fresh.find('\n'); end != std::string::npos; end = fresh.find('\n', start)) {
        const std::string line = fresh.substr(start, end - start);
        start = end + 1;
        const bool isStart =
            line.starts_with(detectorStart) || line.starts_with(launcherStart) || line.starts_with(baseStart);
        // A system's error text can contain line ends.
        if (isStart || !isAfterSystemText_) {
            isAfterSystemText_ = IsLauncherLine(line) && line.find(systemTextStart) != std::string::npos;
            lines.push_back(Mask(line));
        }
    }
    read_ += start;
    return lines;
}

void Transcript::AppendNewLines() {
    for (const std::string& line : NewLines()) {
        Append("  trace " + Escape(line));
    }
}

void Transcript::Write(const HostCall& call) {
    Write("  " + TextOf(call));
    if (call.Sets(OKM8::Analytics::PlateKey::AllTracks) && call.size == sizeof(OKM8::Analytics::TrackPointList)) {
        OKM8::Analytics::TrackPointList list;
        std::memcpy(&list, call.data, sizeof list);
        for (const TrackPoint* point = list.first; point != list.last; ++point) {
            Write("  point " + TextOf(*point));
        }
        Write(list.storage >= list.last ? "  end of points" : "  storage ends before the points");
    }
}

void Transcript::AppendUnorderedLines(std::size_t launcherLineCount) {
    std::vector<std::string> launcherLines;
    const bool isComplete = WaitUntil([&] {
        for (const std::string& line : NewLines()) {
            if (IsLauncherLine(line)) {
                launcherLines.push_back(line);
            } else {
                Append("  trace " + Escape(line));
            }
        }
        return launcherLines.size() >= launcherLineCount;
    });
    if (!isComplete) {
        throw std::runtime_error("the launcher has written " + std::to_string(launcherLines.size()) + " lines, not " +
                                 std::to_string(launcherLineCount));
    }
    std::sort(launcherLines.begin(), launcherLines.end());
    for (const std::string& line : launcherLines) {
        Append("  trace " + Escape(line));
    }
}

}  // namespace transcript
