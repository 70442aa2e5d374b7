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

constexpr char description[] = "Runs a recognition engine over a folder of pictures whose plates are known.";

constexpr char footer[] = R"(
FOLDER holds a list truth.tsv: lines of columns with tabs between them, under a line that names the columns file, x, y,
width, height and plate. A file is named from FOLDER; x and y are the upper left corner of the plate. A picture with
several plates has one line for each.

A plate counts as localised when the mean of the four reported corners lies in its rectangle and the reported width
(the mean of the upper and the lower edge's extent along x) is 0.45 to 1.35 times its own. Of several such reports the
surest counts, and all others are "other reports". Exact, one error at most and the character errors tell of the text
that was read; of a plate that is not localised, every character is wrong.

Exit status: 0 every picture was evaluated; 1 some pictures could not be read, which counts as not localised; 2 the
evaluation could not be carried out; 130 or 143 interrupted.)";

}  // namespace

std::vector<int> ParsePercents(const std::string& text, std::size_t count, const std::string& option) {
    const auto fail = [&] {
        throw Failure(option + ": \"" + OneCell(text) + "\" is not " + std::to_string(count) +
                      " percents, 0 to 100, with commas between them");
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
    double patienceSeconds = 30;
    constexpr double longestPatience = 3600;
    constexpr int mostThreads = 256;

    CLI::App app(description, "evaluate");
    app.footer(footer);
    app.add_option("folder", options.folder, "Where the pictures and their list lie")->required()->type_name("FOLDER");
    app.add_option("--engine", options.engine, "The engine's library")->required()->take_last()->type_name("PATH");
    app.add_option("--server", options.server, "The engine's server: started before, ended after the evaluation")
        ->take_last()
        ->type_name("PATH");
    app.add_option("--server-argument", options.serverArguments, "Handed to the server; may be given many times")
        ->type_name("WORD")
        ->allow_extra_args(false);
    app.add_option("--wait", patienceSeconds, "How long the engine may refuse plate widths for want of its server [30]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, longestPatience));
    app.add_option("--threads", options.settings.threads, "Pictures that are in the engine at a time [1]")
        ->type_name("N")
        ->check(CLI::Range(1, mostThreads));
    app.add_option("--width-range", widths, "Widths of plates to look for, percent of the picture's width [0,100]")
        ->type_name("MIN,MAX");
    app.add_option("--region", region, "Where to look for plates, percent of the picture [all of it]")
        ->type_name("LEFT,TOP,RIGHT,BOTTOM");
    app.add_option("--details", options.details, "Writes a line for every plate, columns with tabs between them")
        ->type_name("FILE");
    app.add_option("--json", options.json, "Writes the figures as JSON")->type_name("FILE");
    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            throw Failure(OneCell(error.what()) + " (see --help)");
        }
        app.exit(error, std::cout, std::cerr);
        options.isAnswered = true;
        return options;
    }

    options.settings.patience = std::chrono::milliseconds(std::llround(patienceSeconds * 1000));
    if (!widths.empty()) {
        const std::vector<int> percents = ParsePercents(widths, 2, "--width-range");
        options.settings.widths = {percents[0], percents[1]};
        if (percents[0] > percents[1]) {
            throw Failure("--width-range: the smallest width is above the largest one");
        }
    }
    if (!region.empty()) {
        const std::vector<int> percents = ParsePercents(region, 4, "--region");
        options.settings.region = {percents[0], percents[1], percents[2], percents[3]};
        if (percents[0] >= percents[2] || percents[1] >= percents[3]) {
            throw Failure("--region: there is nothing inside");
        }
    }
    if (options.server.empty() && !options.serverArguments.empty()) {
        throw Failure("--server-argument: there is no --server");
    }
    return options;
}

}  // namespace plate_evaluation
