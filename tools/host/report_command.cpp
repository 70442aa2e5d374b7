#include "tools/host/report_command.h"

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "tools/host/failure.h"
#include "tools/host/files.h"
#include "tools/host/system.h"
#include "tools/ledger/ledger.h"
#include "tools/recording/recording.h"
#include "tools/report/report.h"

namespace plate_host {
namespace {

std::filesystem::path PageOf(const ReportOptions& options) {
    if (options.output.empty()) {
        return ToPath(options.recording).replace_extension(".html");
    }
    std::error_code ignored;
    const std::filesystem::path output = ToPath(options.output);
    return std::filesystem::is_directory(ToOpenPath(options.output), ignored) ? output / "report.html" : output;
}

std::vector<report::LedgerSection> LedgerOf(const recording::Recording& recording) {
    const ledger::Counts counts = ledger::CountsOf(recording);
    std::vector<report::LedgerSection> sections;
    for (const ledger::Line& line : ledger::LinesOf(counts)) {
        if (!line.isPart) {
            sections.push_back({line.text + ": " + std::to_string(line.count), {}, std::nullopt});
        } else {
            sections.back().lines.push_back({line.text, line.count});
        }
    }
    // Beside the engine there are no events to compare.
    if (recording.run.recorder != recording::engineRecorder) {
        report::LedgerSection sums{"Sums", {}, true};
        for (const ledger::Balance& balance : ledger::BalancesOf(counts)) {
            sums.lines.push_back({balance.text, balance.left});
            sums.sumsClose = *sums.sumsClose && balance.Closes();
        }
        sections.push_back(std::move(sums));
    }
    return sections;
}

}  // namespace

std::vector<report::TrueVehicle> ReadTruthOf(const std::string& video, const std::string& file) {
    const std::string name = video.substr(video.find_last_of("/\\") + 1);
    return report::ReadTruth(ToOpenPath(file), ToText(ToPath(name).stem()));
}

int Report(const ReportOptions& options, Console& console) {
    const recording::Recording recording = recording::ReadRecording(ToOpenPath(options.recording));
    report::ReportExtras extras;
    extras.ledger = LedgerOf(recording);
    if (!options.truth.empty()) {
        extras.truth = ReadTruthOf(recording.run.video, options.truth);
    }
    const std::filesystem::path page = PageOf(options);
    RequireOtherFile(ToText(page), options.recording);
    report::WriteReport(ToOpenPath(ToText(page)), recording, extras);
    console.Line("plate-host: the report is " + ToText(page));
    return 0;
}

}  // namespace plate_host
