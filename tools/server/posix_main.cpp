// The recognition server.

#include "tools/server/program.h"
#include "tools/server/service.h"

namespace {

// Reads nothing, until there is what reads.
class NoFrameReader final : public plate_reading::FrameReader {
  public:
    std::vector<plate_reading::Reading> Read(const plate_reading::Picture&, const std::optional<plate_reading::Region>&,
                                             const std::optional<plate_reading::WidthRange>&) override {
        return {};
    }
};

/// The one place that says who reads.
std::unique_ptr<plate_reading::FrameReader> MakeFrameReader() {
    return std::make_unique<NoFrameReader>();
}

}  // namespace

int main() {
    reading_service::Service service(reading_service::Settings(), MakeFrameReader);
    return reading_service::RunUntilTold(service);
}
