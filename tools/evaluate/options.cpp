#include "tools/evaluate/options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <chrono>
#include <cmath>
#include <iostream>

#include "tools/evaluate/failure.h"
#include "tools/evaluate/text.h"

namespace plate_evaluation {
namespace {

constexpr char description[] =
    "Runs a recognition engine on a folder of pictures whose plates are known, and prints how well it reads them.";

constexpr char footer[] = R"(
FOLDER must contain a list truth.tsv with tab-separated columns. Its first line names the columns: file, x, y, width,
height and plate. "file" is a path relative to FOLDER; x and y are the upper left corner of the plate, in pixels. A
picture with several plates has one line for each.

A plate is localised if the mean of the four reported corners is in its rectangle and the reported width (the mean of
the extents of the upper and lower edge along x) is 0.45 to 1.35 times the true width. If several reports match, the one
with the highest confidence counts; all others are "other reports". "exact", "one error at most" and "character errors"
compare the texts; every character of a plate that is not localised counts as wrong.

Exit status: 0 every picture was evaluated; 1 some pictures could not be read, and their plates count as not localised;
2 any other error; 130 or 143 interrupted.

Example:
  evaluate pictures --engine reading/libRecon64.so --server ./plate-Server.exe --details details.tsv)";

}  // namespace

std::vector<int> ParsePercents(const std::string& text, std::size_t count, const std::string& option) {
    const auto fail = [&] {
        throw Failure(option + ": \"" + OneCell(text) + "\" is not " + std::to_string(count) +
                      " percentages from 0 to 100, separated by commas");
    };
    std::vector<int> percents;
    const char* next = text.data();
    const char* const end = next + text.size();
    for (;;) {
        int percent = 0;
        const auto [stop, error] = std::from_chars(next, end, percent);
        if (error != std::errc() || percent < 0 || percent > 100 || (stop != end && *stop != ',')) {
            fail();
        }
        percents.push_back(percent);
        if (stop == end) {
            break;
        }
        next = stop + 1;
    }
    if (percents.size() != count) {
        fail();
    }
    return percents;
}

Options ParseOptions(int argumentCount, const char* const* arguments) {
    Options options;
    std::string widths;
    std::string region;
    double timeoutSeconds = 30;
    constexpr double maxTimeoutSeconds = 3600;
    constexpr int maxThreads = 256;

    CLI::App app(description, "evaluate");
    app.footer(footer);
    app.add_option("folder", options.folder, "Folder with the pictures and their list")
        ->required()
        ->type_name("FOLDER");
    app.add_option("--engine", options.engine, "Library of the engine")->required()->take_last()->type_name("PATH");
    app.add_option("--server", options.server,
                   "Program of the engine's server, which is started before the evaluation and stopped after it")
        ->take_last()
        ->type_name("PATH");
    app.add_option("--server-argument", options.serverArguments, "Argument of the server; may be repeated")
        ->type_name("WORD")
        ->allow_extra_args(false);
    app.add_option("--wait", timeoutSeconds, "Time limit for the engine's server to respond [30]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, maxTimeoutSeconds));
    app.add_option("--threads", options.settings.threads, "Number of pictures to process in parallel [1]")
        ->type_name("N")
        ->check(CLI::Range(1, maxThreads));
    app.add_option("--width-range", widths,
                   "Plate-size range: width of plates, in percent of the picture's width [0,100]")
        ->type_name("MIN,MAX");
    app.add_option("--region", region, "Region of interest, in percent of the picture [all of it]")
        ->type_name("LEFT,TOP,RIGHT,BOTTOM");
    app.add_option("--details", options.details, "Write a line with tab-separated columns for every plate")
        ->type_name("FILE");
    app.add_option("--json", options.json, "Write the results as JSON")->type_name("FILE");
    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            throw Failure(OneCell(error.what()) + " (see --help)");
        }
        app.exit(error, std::cout, std::cerr);
        options.isHelpPrinted = true;
        return options;
    }

    options.settings.timeout = std::chrono::milliseconds(std::llround(timeoutSeconds * 1000));
    if (!widths.empty()) {
        const std::vector<int> percents = ParsePercents(widths, 2, "--width-range");
        options.settings.widths = {percents[0], percents[1]};
        if (percents[0] > percents[1]) {
            throw Failure("--width-range: the minimum is greater than the maximum");
        }
    }
    if (!region.empty()) {
        const std::vector<int> percents = ParsePercents(region, 4, "--region");
        options.settings.region = {percents[0], percents[1], percents[2], percents[3]};
        if (percents[0] >= percents[2] || percents[1] >= percents[3]) {
            throw Failure("--region: the region is empty");
        }
    }
    if (options.server.empty() && !options.serverArguments.empty()) {
        throw Failure("--server-argument: requires --server");
    }
    return options;
}

}  // namespace plate_evaluation
