/// The script that the engine plays back; README.md describes the file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <set>
#include <vector>

#include "engine/engine_records.h"

namespace scripted_engine {

/// Which calls are counted to find the number of a call.
enum class Counting { Process, Thread };

/// The result of one call of Recognize2.
struct ScriptedFrame {
    std::vector<RPLATE> plates;  ///< at most engineRecordCount
    int count = 0;               ///< the return value
};

/// Not changed after it has been read: any thread.
struct Script {
    Counting counting = Counting::Process;
    bool repeats = false;
    bool refusesEveryRange = false;
    std::set<std::uint64_t> refusedRanges;
    std::vector<ScriptedFrame> frames;
    std::filesystem::path journal;  ///< empty for none

    /// Returns null after the end of a script that does not repeat.
    const ScriptedFrame* FrameAt(std::uint64_t number) const;
    bool RefusesRange(std::uint64_t number) const;
};

/// Throws std::exception, whose text names the place in the script.
Script ReadScript(const std::filesystem::path& file);

/// The same from a stream; the journal's path is relative to `folder`.
Script ReadScript(std::istream& stream, const std::filesystem::path& folder);

}  // namespace scripted_engine
