/// The report of a run: one page that a browser shows without a network.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/recording/recording.h"
#include "tools/report/truth.h"

namespace report {

struct LedgerLine {
    std::string label;
    std::uint64_t count = 0;
};

/// Counted reasons, and whether their sum is what it must be.
struct LedgerSection {
    std::string title;
    std::vector<LedgerLine> lines;
    std::optional<bool> sumsClose;  ///< none where nothing is compared
};

/// What the recording does not contain. Texts are UTF-8.
struct ReportExtras {
    std::vector<LedgerSection> ledger;
    std::vector<TrueVehicle> truth;  ///< empty for a report without a comparison
    std::vector<std::string> notes;  ///< shown at the top
};

/// Returns the page, in UTF-8.
std::string MakeReport(const recording::Recording& recording, const ReportExtras& extras);

/// Creates or replaces the file. Throws std::runtime_error.
void WriteReport(const std::filesystem::path& file, const recording::Recording& recording, const ReportExtras& extras);

}  // namespace report
