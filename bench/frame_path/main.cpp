// frame-path LIBRARY ENGINE [--quick]: measures the time of a frame in the built library with the idle engine, and
// prints one JSON object. The environment variable VEXLANE_KERNEL selects the conversion.

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/frame_path/measure.h"
#include "tools/host/system.h"

namespace frame_path {
namespace {

constexpr char usage[] = "usage: frame-path LIBRARY ENGINE [--quick]";
constexpr Effort thorough{60, 10};
constexpr Effort quick{15, 4};

struct Options {
    std::string library;
    std::string engine;
    bool isQuick = false;
};

Options Parse(const std::vector<std::string>& words) {
    const bool isQuick = words.size() == 3 && words[2] == "--quick";
    if (words.size() != 2 && !isQuick) {
        throw std::invalid_argument(usage);
    }
    return {words[0], words[1], isQuick};
}

void Run(const Options& options) {
    Library library({options.library, options.engine});
    // The engine that the library has already loaded.
    const boost::dll::shared_library loaded(plate_host::ToOpenPath(library.plugin.EnginePath()));
    const auto& selectTraffic = loaded.get<idle_engine::SelectTrafficFunction>(idle_engine::selectTrafficName);
    const Engine engine = {[&](idle_engine::Traffic traffic) { selectTraffic(static_cast<int>(traffic)); },
                           loaded.get<idle_engine::LastPixelsFunction>(idle_engine::lastPixelsName)};
    std::cout << Measure(library, engine, options.isQuick ? quick : thorough).dump() << std::endl;
}

}  // namespace
}  // namespace frame_path

int main(int argumentCount, char** arguments) {
    try {
        plate_host::PrepareProcess();
        frame_path::Run(frame_path::Parse(plate_host::CommandLine(argumentCount, arguments)));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "frame-path: " << error.what() << '\n';
    }
    return 2;
}
