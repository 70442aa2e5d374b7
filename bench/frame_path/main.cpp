// frame-path LIBRARY ENGINE [--quick]: the time of a frame in the built library, with the engine that reads nothing, as
// one object of JSON. VEXLANE_KERNEL in the environment chooses the conversion.
// frame-path LIBRARY ENGINE --soak MINUTES [--channels N]: that much of a road's traffic, a line for each minute of it;
// ends with 1 when the memory grows in the second half.

#include <algorithm>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/frame_path/measure.h"
#include "bench/frame_path/soak.h"
#include "tools/host/system.h"

namespace frame_path {
namespace {

constexpr char usage[] = "usage: frame-path LIBRARY ENGINE [--quick | --soak MINUTES [--channels N]]";
constexpr Effort thorough{60, 10};
constexpr Effort quick{15, 4};

struct Options {
    std::string library;
    std::string engine;
    bool isQuick = false;
    SoakOptions soak{0, 4};
};

Options Parse(const std::vector<std::string>& words) {
    if (words.size() < 2) {
        throw std::invalid_argument(usage);
    }
    Options options{words[0], words[1], false, {0, 4}};
    for (std::size_t index = 2; index < words.size(); ++index) {
        const bool hasNumber = index + 1 < words.size();
        if (words[index] == "--quick") {
            options.isQuick = true;
        } else if (words[index] == "--soak" && hasNumber) {
            options.soak.minutes = std::max(std::stoi(words[++index]), 2);
        } else if (words[index] == "--channels" && hasNumber) {
            options.soak.channels = std::max(std::stoi(words[++index]), 1);
        } else {
            throw std::invalid_argument(usage);
        }
    }
    return options;
}

int Run(const Options& options) {
    Library library({options.library, options.engine});
    // The very engine that is loaded already.
    const boost::dll::shared_library engine(plate_host::ToOpenPath(library.plugin.EnginePath()));
    const auto& selectTraffic = engine.get<idle_engine::SelectTrafficFunction>(idle_engine::selectTrafficName);
    const SelectTraffic select = [&](idle_engine::Traffic traffic) { selectTraffic(static_cast<int>(traffic)); };
    if (options.soak.minutes > 0) {
        select(idle_engine::Traffic::Road);
        return Soak(library, options.soak) ? 0 : 1;
    }
    std::cout << Measure(library, select, options.isQuick ? quick : thorough).dump() << std::endl;
    return 0;
}

}  // namespace
}  // namespace frame_path

int main(int argumentCount, char** arguments) {
    try {
        plate_host::PrepareProcess();
        return frame_path::Run(frame_path::Parse(plate_host::CommandLine(argumentCount, arguments)));
    } catch (const std::exception& error) {
        std::cerr << "frame-path: " << error.what() << '\n';
    }
    return 2;
}
