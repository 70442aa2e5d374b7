#include "tools/evaluate/report.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>

#include "tools/evaluate/text.h"

namespace plate_evaluation {
namespace {

using Json = nlohmann::ordered_json;
using Row = std::vector<std::string>;

std::string Number(double number, int digits) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, number);
    return text.data();
}

std::string CountAndShare(int count, int all) {
    const std::string share = all == 0 ? "-" : Number(100.0 * count / all, 1) + " %";
    return std::to_string(count) + std::string(share.size() < 8 ? 8 - share.size() : 0, ' ') + share;
}

Row ToRow(const std::string& name, const Figures& figures) {
    return {OneCell(name),
            std::to_string(figures.pictures),
            std::to_string(figures.plates),
            CountAndShare(figures.localised, figures.plates),
            CountAndShare(figures.exact, figures.plates),
            CountAndShare(figures.exactFolded, figures.plates),
            CountAndShare(figures.oneErrorAtMost, figures.plates),
            Number(100 * figures.CharacterErrorRate(), 1) + " %",
            Number(figures.OtherReportsPerPicture(), 2),
            Number(figures.MillisecondsPerPicture(), 1)};
}

Json ToJsonObject(const Figures& figures) {
    return {{"pictures", figures.pictures},
            {"unreadable_pictures", figures.unreadablePictures},
            {"plates", figures.plates},
            {"localised", figures.localised},
            {"exact", figures.exact},
            {"exact_folded", figures.exactFolded},
            {"one_error_at_most", figures.oneErrorAtMost},
            {"characters", figures.characters},
            {"character_errors", figures.characterErrors},
            {"character_error_rate", figures.CharacterErrorRate()},
            {"other_reports", figures.otherReports},
            {"other_reports_per_picture", figures.OtherReportsPerPicture()},
            {"milliseconds_per_picture", figures.MillisecondsPerPicture()}};
}

std::string Joined(const Row& cells, char between) {
    std::string line;
    for (std::size_t index = 0; index < cells.size(); ++index) {
        line.append(index == 0 ? 0 : 1, between).append(OneCell(cells[index]));
    }
    return line;
}

std::string ToText(const Point& point) {
    return std::to_string(point.x) + "," + std::to_string(point.y);
}

std::string Corners(const Report& report) {
    Row corners;
    for (const Point& corner : report.corners) {
        corners.push_back(ToText(corner));
    }
    return Joined(corners, ' ');
}

// Text and upper left corner of the reports that match no plate.
std::string Others(const PictureResult& result) {
    Row others;
    for (const std::size_t index : result.score.otherReports) {
        const Report& report = result.reports[index];
        others.push_back(ToUtf8(report.text).append("@").append(ToText(report.corners.front())));
    }
    return Joined(others, ' ');
}

}  // namespace

Summary Summarise(const std::vector<TruePicture>& pictures, const std::vector<PictureResult>& results) {
    Summary summary;
    for (std::size_t index = 0; index < pictures.size(); ++index) {
        const std::string name = GroupOf(pictures[index].file);
        auto group = std::find_if(summary.groups.begin(), summary.groups.end(),
                                  [&name](const auto& known) { return known.first == name; });
        if (group == summary.groups.end()) {
            group = summary.groups.insert(group, {name, {}});
        }
        const PictureResult& result = results[index];
        group->second.Add(result.score,
                          result.IsReadable() ? std::optional<double>(result.milliseconds) : std::nullopt);
    }
    for (const auto& [name, figures] : summary.groups) {
        summary.total.Add(figures);
    }
    return summary;
}

std::string ToTable(const Summary& summary) {
    std::vector<Row> rows{{"", "pictures", "plates", "localised", "exact", "exact, O=0=Q I=1", "one error at most",
                           "character errors", "other reports a picture", "ms a picture"}};
    for (const auto& [name, figures] : summary.groups) {
        rows.push_back(ToRow(name, figures));
    }
    rows.push_back(ToRow("total", summary.total));
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], FromUtf8(row[column]).size());
        }
    }
    std::string table;
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::size_t fill = widths[column] - FromUtf8(row[column]).size();
            if (column == 0) {
                table.append(row[column]).append(fill, ' ');
            } else {
                table.append(fill + 2, ' ').append(row[column]);
            }
        }
        table += "\n";
    }
    return table;
}

std::string ToJson(const Summary& summary) {
    Json groups = Json::object();
    for (const auto& [name, figures] : summary.groups) {
        groups[name] = ToJsonObject(figures);
    }
    const Json all{{"groups", groups}, {"total", ToJsonObject(summary.total)}};
    return all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string ToDetails(const std::vector<TruePicture>& pictures, const std::vector<PictureResult>& results) {
    std::string lines = "file\ttruth\tread\tconfidence\tcorners\tlocalised\tmilliseconds\tothers\tcountry\n";
    for (std::size_t index = 0; index < pictures.size(); ++index) {
        const PictureResult& result = results[index];
        for (std::size_t plate = 0; plate < pictures[index].plates.size(); ++plate) {
            const std::optional<std::size_t> taken = result.score.plates[plate].report;
            const Report* const report = taken ? &result.reports[*taken] : nullptr;
            lines += Joined({pictures[index].file, ToUtf8(pictures[index].plates[plate].text),
                             report == nullptr ? "" : ToUtf8(report->text),
                             report == nullptr ? "" : Number(report->confidence, 1),
                             report == nullptr ? "" : Corners(*report),
                             result.IsReadable() ? (report == nullptr ? "no" : "yes") : "unreadable",
                             result.IsReadable() ? Number(result.milliseconds, 2) : "",
                             plate == 0 ? Others(result) : "", report == nullptr ? "" : report->country},
                            '\t') +
                     '\n';
        }
    }
    return lines;
}

}  // namespace plate_evaluation
