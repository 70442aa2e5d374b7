#include "tools/host/validate.h"

#include <array>
#include <atomic>
#include <filesystem>

#include "tools/host/failure.h"
#include "tools/host/system.h"
#include "tools/validate/validate.h"

namespace plate_host {
namespace {

// Where the scripted engine is in a package, and where it is built.
constexpr std::array scriptedEngineFolders{"scripted-engine", "scripted"};

std::filesystem::path FileOf(const std::string& given, const std::filesystem::path& byDefault, const char* what,
                             const char* option) {
    const std::filesystem::path file = std::filesystem::absolute(given.empty() ? byDefault : ToPath(given));
    if (!IsRegularFile(ToText(file))) {
        throw Failure(std::string("cannot find the ") + what + " \"" + ToText(file) + "\"; set its path with " +
                      option);
    }
    return std::filesystem::path(file).make_preferred();
}

std::filesystem::path ScriptedEngine(const std::filesystem::path& programs) {
    for (const char* const folder : scriptedEngineFolders) {
        if (const std::filesystem::path file = programs / folder / EngineFileName(); IsRegularFile(ToText(file))) {
            return file;
        }
    }
    return programs / scriptedEngineFolders.front() / EngineFileName();
}

}  // namespace

int Validate(const ValidateOptions& options, Console& console) {
    validate::Options checks;
    checks.level = options.level;
    checks.seed = options.seed;
    checks.minutes = options.minutes;
    checks.pattern = options.pattern;
    checks.timeLimit = options.timeLimit;
    checks.json = options.json;
    std::atomic<bool> isWritten = true;
    checks.print = [&](const std::string& line) {
        const WriteResult written = WriteStandard(StandardStream::Output, OneLine(line) + "\n");
        if (!written.isWritten && isWritten) {
            isWritten = false;
            if (!written.error.empty()) {
                console.Line("plate-host: error: cannot write: " + written.error);
            }
        }
    };
    checks.explain = [&](const std::string& line) { console.Line("plate-host: " + OneLine(line)); };
    checks.mustStop = [&] { return Interruption() != 0 || !isWritten; };
    if (options.list) {
        validate::List(checks);
        return isWritten ? 0 : exitDefect;
    }
    const std::filesystem::path programs = ProgramFile().parent_path();
    checks.program = ProgramFile();
    checks.library = FileOf(options.paths.library, programs / LibraryFileName(), "library", "--plugin");
    checks.engine = FileOf(options.paths.engine, ScriptedEngine(programs), "scripted engine", "--engine");
    if (!options.runCase.empty()) {
        return validate::RunCase(checks, options.runCase, ToPath(options.caseFolder));
    }
    const int failed = validate::Run(checks);
    if (Interruption() != 0) {
        return 128 + Interruption();
    }
    return failed != 0 ? exitFailure : isWritten ? 0 : exitDefect;
}

}  // namespace plate_host
