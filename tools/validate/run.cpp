#include "tools/validate/validate.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "platform/process.h"
#include "tools/validate/case.h"
#include "tools/validate/session.h"
#include "tools/validate/system.h"

namespace validate {

namespace {

namespace fs = std::filesystem;

using Clock = std::chrono::steady_clock;
using nlohmann::ordered_json;

constexpr int randomCasesOfLevel2 = 64;
constexpr int untilTimeHasPassed = 3;  // the level
constexpr char serverName[] = "plate-Server.exe";
constexpr char resultFile[] = "result";
constexpr char errorsFile[] = "errors";
constexpr char okResult[] = "ok";

std::vector<Case> CasesOfLevel(int level) {
    std::vector<Case> cases;
    for (const auto group :
         {ModuleCases, DetectorCases, SettingsCases, FrameCases, HostCases, EventCases, ThreadCases}) {
        for (Case& each : group()) {
            if (each.level <= level) {
                cases.push_back(std::move(each));
            }
        }
    }
    return cases;
}

bool IsChosen(const Options& options, const Case& each) {
    return each.sentence.find(options.pattern) != std::string::npos;
}

std::vector<Case> ChosenCases(const Options& options) {
    std::vector<Case> cases = CasesOfLevel(options.level);
    if (options.level >= 2) {
        for (std::uint64_t number = 0; number < randomCasesOfLevel2; ++number) {
            cases.push_back(RandomCase(options.seed + number));
        }
    }
    std::erase_if(cases, [&](const Case& each) { return !IsChosen(options, each); });
    return cases;
}

std::string ReadFile(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void WriteFile(const fs::path& file, const std::string& text) {
    std::ofstream stream(file, std::ios::binary);
    stream << text;
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write \"" + file.string() + "\"");
    }
}

// A folder for one run. The program and the libraries beside it get second names there, because the library starts a
// server from the program's folder: a case must not depend on whether there is one.
class RunFolder {
  public:
    explicit RunFolder(const Options& options) : path_(MakeTemporaryFolder("vexlane-validate-")) {
        Place(options.program);
        if (options.program.extension() == ".exe") {
            for (const fs::directory_entry& entry : fs::directory_iterator(options.program.parent_path())) {
                const bool isOfTheCheck = entry.path() == options.library || entry.path() == options.engine;
                if (entry.path().extension() == ".dll" && !isOfTheCheck) {
                    Place(entry.path());
                }
            }
        }
    }
    ~RunFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;

    const fs::path& Path() const { return path_; }

  private:
    void Place(const fs::path& file) const {
        std::error_code error;
        fs::create_hard_link(file, path_ / file.filename(), error);
        if (error) {
            fs::copy_file(file, path_ / file.filename());
        }
    }

    const fs::path path_;
};

struct Result {
    std::string sentence;
    int level = 1;
    std::string reason;  // empty for a case that holds
    std::string errors;  // what the process of a failed case wrote
    double seconds = 0;
};

std::string Rounded(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", seconds);
    return text;
}

std::string ReasonOf(const ProcessEnd& end, const std::string& result, int timeLimit) {
    if (end.isTimedOut) {
        return "did not end within " + std::to_string(timeLimit) + " s";
    }
    if (!end.crash.empty()) {
        return "crashed: " + end.crash;
    }
    if (!result.empty() && result != okResult) {
        return result;
    }
    if (end.status != 0 || result.empty()) {
        return "its process ended with status " + std::to_string(end.status);
    }
    return {};
}

// Any thread.
class Runner {
  public:
    explicit Runner(const Options& options)
        : options_(options), cases_(ChosenCases(options)), folder_(options), start_(Clock::now()) {}

    int RunAll() {
        if (cases_.empty()) {
            throw std::runtime_error("no case of level " + std::to_string(options_.level) + " contains \"" +
                                     options_.pattern + "\"");
        }
        std::vector<std::thread> threads;
        const unsigned count = std::max(2u, std::thread::hardware_concurrency());
        for (unsigned each = 0; each < count; ++each) {
            threads.emplace_back([this] { RunSome(); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        if (!error_.empty()) {
            throw std::runtime_error(error_);
        }
        const std::string failed =
            failedCount_ == 0 ? "none fails" : std::to_string(failedCount_) + (failedCount_ == 1 ? " fails" : " fail");
        options_.explain(std::to_string(printed_) + (printed_ == 1 ? " case, " : " cases, ") + failed + ", " +
                         Rounded(SecondsSince(start_)) + " s");
        return failedCount_;
    }

  private:
    static double SecondsSince(Clock::time_point start) {
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    void RunSome() {
        try {
            while (const std::optional<std::size_t> number = TakeNext()) {
                Result result = Run(*number);
                if (options_.mustStop()) {
                    return;
                }
                Keep(*number, std::move(result));
            }
        } catch (const std::exception& error) {
            const std::lock_guard lock(mutex_);
            error_ = error.what();
        }
    }

    // The list grows at the last level until the time has passed.
    std::optional<std::size_t> TakeNext() {
        const std::lock_guard lock(mutex_);
        if (options_.mustStop() || !error_.empty()) {
            return std::nullopt;
        }
        if (next_ == cases_.size()) {
            if (options_.level < untilTimeHasPassed || SecondsSince(start_) > options_.minutes * 60) {
                return std::nullopt;
            }
            Case next = RandomCase(options_.seed + nextRandom_++);
            if (!IsChosen(options_, next)) {
                return std::nullopt;
            }
            cases_.push_back(std::move(next));
        }
        return next_++;
    }

    Result Run(std::size_t number) {
        Result result;
        {
            const std::lock_guard lock(mutex_);
            result.sentence = cases_[number].sentence;
            result.level = cases_[number].level;
        }
        const fs::path folder = folder_.Path() / std::to_string(number);
        fs::create_directory(folder);
        const Clock::time_point start = Clock::now();
        const ProcessEnd end =
            RunProgram(folder_.Path() / options_.program.filename(),
                       {"validate", "--run-case", result.sentence, "--case-folder", PathText(folder), "--plugin",
                        PathText(options_.library), "--engine", PathText(options_.engine)},
                       std::chrono::seconds(options_.timeLimit), folder / errorsFile, options_.mustStop);
        result.seconds = SecondsSince(start);
        result.reason = ReasonOf(end, ReadFile(folder / resultFile), options_.timeLimit);
        if (!result.reason.empty()) {
            result.errors = ReadFile(folder / errorsFile);
        }
        std::error_code ignored;
        fs::remove_all(folder, ignored);
        return result;
    }

    // Prints in the order of the cases.
    void Keep(std::size_t number, Result result) {
        const std::lock_guard lock(mutex_);
        results_.resize(std::max(results_.size(), number + 1));
        results_[number] = std::move(result);
        for (; printed_ < results_.size() && results_[printed_].has_value(); ++printed_) {
            Print(*results_[printed_]);
        }
    }

    void Print(const Result& result) {
        const bool isOk = result.reason.empty();
        failedCount_ += isOk ? 0 : 1;
        if (options_.json) {
            ordered_json line = {{"case", result.sentence}, {"level", result.level}, {"result", isOk ? "ok" : "fails"}};
            if (!isOk) {
                line["reason"] = result.reason;
            }
            line["seconds"] = std::stod(Rounded(result.seconds));
            options_.print(line.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
        } else {
            options_.print((isOk ? "ok     " : "fails  ") + result.sentence + (isOk ? "" : ": " + result.reason));
        }
        std::istringstream errors(result.errors);
        for (std::string line; std::getline(errors, line);) {
            options_.explain("| " + line);
        }
    }

    const Options& options_;
    std::vector<Case> cases_;  // guarded by mutex_ like all that follows, except the folder and the start
    const RunFolder folder_;
    const Clock::time_point start_;
    std::mutex mutex_;
    std::size_t next_ = 0;
    std::uint64_t nextRandom_ = randomCasesOfLevel2;
    std::vector<std::optional<Result>> results_;
    std::size_t printed_ = 0;
    int failedCount_ = 0;
    std::string error_;
};

Case CaseOf(const std::string& sentence) {
    for (Case& each : CasesOfLevel(untilTimeHasPassed)) {
        if (each.sentence == sentence) {
            return each;
        }
    }
    // A random sequence has its seed in its name.
    const std::size_t digits = sentence.find_first_of("0123456789", sentence.find("seed "));
    if (digits != std::string::npos) {
        return RandomCase(std::strtoull(sentence.c_str() + digits, nullptr, 10));
    }
    throw std::runtime_error("there is no case \"" + sentence + "\"");
}

}  // namespace

void List(const Options& options) {
    for (const Case& each : ChosenCases(options)) {
        options.print(options.json ? ordered_json({{"case", each.sentence}, {"level", each.level}}).dump()
                                   : std::to_string(each.level) + "  " + each.sentence);
    }
}

int Run(const Options& options) {
    // The library would take over a server that runs, for every case.
    for (const platform::ProcessEntry& process : platform::ListProcesses()) {
        if (process.executableName == serverName) {
            throw std::runtime_error(std::string("a recognition server runs (") + serverName + ", process " +
                                     std::to_string(process.processId) + "): end it, or the cases would disturb it");
        }
    }
    return Runner(options).RunAll();
}

int RunCase(const Options& options, const std::string& sentence, const fs::path& folder) {
    PrepareCaseProcess();
    // The engine and the library read the case's files by relative paths, which are short and plain in every folder.
    fs::current_path(folder);
    SetEnvironment("PATH", "");
    const Case chosen = CaseOf(sentence);
    auto session = std::make_unique<Session>(options.engine, options.library, ".");
    try {
        chosen.check(*session);
        session->End();
    } catch (const std::exception& failure) {
        WriteFile(folder / resultFile, failure.what());
        // Without the destructors, which the library may not survive.
        std::fflush(nullptr);
        std::_Exit(0);
    }
    session.reset();
    WriteFile(folder / resultFile, okResult);
    return 0;
}

}  // namespace validate
