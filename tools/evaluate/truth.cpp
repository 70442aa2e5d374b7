#include "tools/evaluate/truth.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <fstream>
#include <string_view>
#include <unordered_map>

#include "tools/evaluate/failure.h"
#include "tools/evaluate/text.h"

namespace plate_evaluation {
namespace {

enum Column { File, X, Y, Width, Height, Plate, ColumnCount };

constexpr std::array<std::string_view, ColumnCount> columnNames{"file", "x", "y", "width", "height", "plate"};

std::vector<std::string> Cells(const std::string& line) {
    std::vector<std::string> cells;
    std::size_t start = 0;
    for (std::size_t tab = line.find('\t'); tab != std::string::npos; tab = line.find('\t', start)) {
        cells.push_back(line.substr(start, tab - start));
        start = tab + 1;
    }
    cells.push_back(line.substr(start));
    return cells;
}

/// Reads lines without their line ends, LF or CR LF.
class LineReader {
  public:
    explicit LineReader(std::istream& stream) : stream_(stream) {}

    bool Next(std::string& line) {
        if (!std::getline(stream_, line)) {
            return false;
        }
        ++number_;
        constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
        if (number_ == 1 && line.starts_with(byteOrderMark)) {
            line.erase(0, byteOrderMark.size());
        }
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        return true;
    }

    [[noreturn]] void Fail(const std::string& message) const {
        throw Failure("line " + std::to_string(number_) + ": " + message);
    }

  private:
    std::istream& stream_;
    int number_ = 0;
};

std::array<std::size_t, ColumnCount> FindColumns(const std::vector<std::string>& header) {
    std::array<std::size_t, ColumnCount> columns{};
    for (std::size_t column = 0; column < columns.size(); ++column) {
        const auto found = std::find(header.begin(), header.end(), columnNames[column]);
        if (found == header.end()) {
            throw Failure("there is no column \"" + std::string(columnNames[column]) + "\"");
        }
        columns[column] = static_cast<std::size_t>(found - header.begin());
    }
    return columns;
}

int ReadNumber(const LineReader& lines, const std::string& cell, Column column) {
    int number = 0;
    const char* const end = cell.data() + cell.size();
    const auto [stop, error] = std::from_chars(cell.data(), end, number);
    if (error != std::errc() || stop != end) {
        lines.Fail(std::string(columnNames[column]) + " is \"" + OneCell(cell) + "\" and not a whole number");
    }
    return number;
}

int ReadSize(const LineReader& lines, const std::string& cell, Column column) {
    const int size = ReadNumber(lines, cell, column);
    if (size <= 0) {
        lines.Fail(std::string(columnNames[column]) + " is " + std::to_string(size) + " and must be positive");
    }
    return size;
}

}  // namespace

std::vector<TruePicture> ReadTruth(std::istream& stream) {
    LineReader lines(stream);
    std::string line;
    if (!lines.Next(line)) {
        throw Failure("it is empty");
    }
    const std::vector<std::string> header = Cells(line);
    const std::array<std::size_t, ColumnCount> columns = FindColumns(header);

    std::vector<TruePicture> pictures;
    std::unordered_map<std::string, std::size_t> indices;
    while (lines.Next(line)) {
        if (line.empty()) {
            continue;
        }
        const std::vector<std::string> cells = Cells(line);
        if (cells.size() != header.size()) {
            lines.Fail("there are " + std::to_string(cells.size()) + " columns instead of " +
                       std::to_string(header.size()));
        }
        const auto cell = [&](Column column) -> const std::string& { return cells[columns[column]]; };
        const auto number = [&](Column column) { return ReadNumber(lines, cell(column), column); };
        const auto size = [&](Column column) { return ReadSize(lines, cell(column), column); };
        TruePlate plate{{number(X), number(Y), size(Width), size(Height)}, FromUtf8(cell(Plate))};
        if (cell(File).empty() || plate.text.empty()) {
            lines.Fail(cell(File).empty() ? "the file name is empty" : "the plate has no text");
        }
        const auto [place, isNew] = indices.try_emplace(cell(File), pictures.size());
        if (isNew) {
            pictures.push_back({cell(File), {}});
        }
        pictures[place->second].plates.push_back(std::move(plate));
    }
    if (stream.bad()) {
        throw Failure("cannot read it to its end");
    }
    if (pictures.empty()) {
        throw Failure("it contains no picture");
    }
    return pictures;
}

std::vector<TruePicture> ReadTruthOf(const std::filesystem::path& folder) {
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        throw Failure("cannot open \"" + folder.string() + "\": no such folder");
    }
    const std::filesystem::path file = folder / truthFileName;
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw Failure("cannot open \"" + file.string() + "\", which must list the plates in the pictures");
    }
    try {
        return ReadTruth(stream);
    } catch (const Failure& failure) {
        throw Failure("\"" + file.string() + "\": " + failure.what());
    }
}

std::string GroupOf(const std::string& file) {
    const std::size_t slash = file.find('/');
    return slash == std::string::npos || slash == 0 ? "." : file.substr(0, slash);
}

}  // namespace plate_evaluation
