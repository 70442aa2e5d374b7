/// Finds and reads plates with the networks of this folder.
#pragma once

#include <memory>
#include <vector>

#include "reference/reader/column_scores.h"
#include "reference/reader/frame_reader.h"

namespace plate_reading {

struct ReadingOptions {
    std::vector<Template> templates;  ///< none: any text
    int confirmations = 3;            ///< pictures of a stream that must agree; 1: each picture for itself
};

/// Takes some milliseconds, and some 20 megabytes when it has read a picture of 1280x720. Throws std::exception.
std::unique_ptr<FrameReader> MakePlateFrameReader(const ReadingOptions& options);

}  // namespace plate_reading
