#include "tools/host/report_command.h"

#include <filesystem>
#include <string>
#include <system_error>

#include "tools/host/failure.h"
#include "tools/host/system.h"
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

}  // namespace

int Report(const ReportOptions& options, Console& console) {
    const recording::Recording recording = recording::ReadRecording(ToOpenPath(options.recording));
    report::ReportExtras extras;
    if (!options.truth.empty()) {
        extras.truth = report::ReadTruth(ToOpenPath(options.truth), ToText(ToPath(recording.run.video).stem()));
    }
    const std::filesystem::path page = PageOf(options);
    report::WriteReport(ToOpenPath(ToText(page)), recording, extras);
    console.Line("plate-host: the report is " + ToText(page));
    return 0;
}

}  // namespace plate_host
