#include "tools/evaluate/engine.h"

#include <array>
#include <boost/dll/shared_library.hpp>
#include <chrono>
#include <string>
#include <string_view>
#include <system_error>

#include "engine/engine_records.h"
#include "tools/evaluate/failure.h"
#include "tools/evaluate/text.h"

namespace plate_evaluation {
namespace {

namespace LoadMode = boost::dll::load_mode;

// The mangled names of the engine's two functions.
constexpr const char* recognizeName = "_Z10Recognize2P10YUV420_IMGP3IMGP7tagRECTP6RPLATEi";
constexpr const char* setPlateRangeName = "_Z13SetPlateRangeii";

Point ToPoint(const EngineCorner& corner) {
    return {corner.x, corner.y};
}

Report ToReport(const RPLATE& plate) {
    Report report;
    report.text = FromEngineText(std::string_view(plate.text, sizeof plate.text));
    report.confidence = report.text.empty() ? 0 : ConfidenceSumOf(plate) / static_cast<double>(report.text.size());
    report.corners = {ToPoint(plate.corner1), ToPoint(plate.corner2), ToPoint(plate.corner3), ToPoint(plate.corner4)};
    report.country = CountryCodeOf(plate);
    return report;
}

class LoadedEngine final : public PlateEngine {
  public:
    explicit LoadedEngine(const std::filesystem::path& path) {
        try {
            library_.load(path, LoadMode::rtld_now | LoadMode::rtld_local);
        } catch (const std::system_error& error) {
            throw Failure("cannot load the engine \"" + path.string() + "\": " + OneCell(error.what()));
        }
        recognize_ = Find<decltype(Recognize2)>(path, recognizeName);
        setPlateRange_ = Find<decltype(SetPlateRange)>(path, setPlateRangeName);
    }

    bool SetWidthRange(const WidthRange& range) override { return setPlateRange_(range.minimum, range.maximum); }

    Recognition Recognise(Picture& picture, const std::optional<Region>& region) override {
        IMG image{static_cast<std::uint32_t>(picture.width), static_cast<std::uint32_t>(picture.height), 3,
                  static_cast<std::uint32_t>(picture.Stride()), picture.pixels.data()};
        const Region wanted = region.value_or(Region{});
        tagRECT rectangle{wanted.left, wanted.top, wanted.right, wanted.bottom};
        std::array<RPLATE, engineRecordCount> plates{};
        const auto start = std::chrono::steady_clock::now();
        const int count = recognize_(nullptr, &image, region ? &rectangle : nullptr, plates.data(), 0);
        const std::chrono::duration<double, std::milli> spent = std::chrono::steady_clock::now() - start;
        if (count < 0 || count > engineRecordCount) {
            throw Failure("the engine returned " + std::to_string(count) + " plates; the limit is " +
                          std::to_string(engineRecordCount));
        }
        Recognition recognition;
        recognition.milliseconds = spent.count();
        for (std::size_t index = 0; index < static_cast<std::size_t>(count); ++index) {
            recognition.reports.push_back(ToReport(plates[index]));
        }
        return recognition;
    }

  private:
    template <class Function>
    Function* Find(const std::filesystem::path& path, const char* name) const {
        if (!library_.has(name)) {
            throw Failure("\"" + path.string() + "\" is not an engine: it does not export " + name);
        }
        return &library_.get<Function>(name);
    }

    boost::dll::shared_library library_;
    decltype(Recognize2)* recognize_ = nullptr;
    decltype(SetPlateRange)* setPlateRange_ = nullptr;
};

}  // namespace

std::unique_ptr<PlateEngine> LoadEngine(const std::filesystem::path& library) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(library, error)) {
        throw Failure("cannot load the engine \"" + library.string() + "\": no such file");
    }
    // The loader would search its own folders for a path without a folder.
    return std::make_unique<LoadedEngine>(std::filesystem::absolute(library));
}

}  // namespace plate_evaluation
