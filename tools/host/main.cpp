/// The reference host: plays videos through the library, checks it, and records, replays and explains its runs.
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "tools/host/check.h"
#include "tools/host/console.h"
#include "tools/host/explain.h"
#include "tools/host/failure.h"
#include "tools/host/info.h"
#include "tools/host/options.h"
#include "tools/host/play.h"
#include "tools/host/replay.h"
#include "tools/host/report_command.h"
#include "tools/host/system.h"
#include "tools/host/validate.h"

namespace plate_host {
namespace {

int Run(const std::vector<std::string>& words, Console& console) {
    const Options options = ParseOptions(words);
    switch (options.command) {
        case Command::Play:
            return Play(options.play, console);
        case Command::Info:
            return Info(options.info, console);
        case Command::Replay:
            return Replay(options.replay, console);
        case Command::Explain:
            return Explain(options.explain, console);
        case Command::Cut:
            return Cut(options.explain, console);
        case Command::Report:
            return Report(options.report, console);
        case Command::Check:
            return options.check.isInside ? CheckInside(options.check, console) : Check(options.check, console);
        case Command::Validate:
            return Validate(options.validate, console);
        case Command::None:
            break;
    }
    return 0;
}

}  // namespace
}  // namespace plate_host

int main(int argumentCount, char** arguments) {
    plate_host::Console console(plate_host::ErrorsGoToTerminal());
    try {
        plate_host::PrepareProcess();
        return plate_host::Run(plate_host::CommandLine(argumentCount, arguments), console);
    } catch (const std::bad_alloc&) {
        console.Line("plate-host: out of memory");
    } catch (const std::exception& failure) {
        console.Line("plate-host: " + plate_host::OneLine(failure.what()));
    }
    return plate_host::exitFailure;
}
