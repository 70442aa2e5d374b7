/// Runs a recognition engine on pictures whose plates are known, and reports how well it reads them.
#include <cerrno>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "tools/evaluate/engine.h"
#include "tools/evaluate/evaluation.h"
#include "tools/evaluate/failure.h"
#include "tools/evaluate/options.h"
#include "tools/evaluate/process.h"
#include "tools/evaluate/report.h"
#include "tools/evaluate/text.h"
#include "tools/evaluate/truth.h"

namespace plate_evaluation {
namespace {

/// An output file, opened before the evaluation so that a wrong path fails early. Does nothing without a path.
class ResultFile {
  public:
    explicit ResultFile(const std::filesystem::path& path) : path_(path) {
        errno = 0;
        if (!path_.empty()) {
            stream_.open(path_, std::ios::binary);
            RequireGood();
        }
    }

    void Write(const std::string& text) {
        errno = 0;
        if (!path_.empty()) {
            stream_ << text;
            stream_.close();
            RequireGood();
        }
    }

  private:
    void RequireGood() const {
        if (!stream_) {
            throw Failure("cannot write \"" + path_.string() + "\": " + std::generic_category().message(errno));
        }
    }

    const std::filesystem::path path_;
    std::ofstream stream_;
};

std::vector<PictureResult> RunWithServer(const Options& options, const std::vector<TruePicture>& pictures) {
    const std::unique_ptr<PlateEngine> engine = LoadEngine(options.engine);
    std::unique_ptr<ServerProcess> server;
    if (!options.server.empty()) {
        server = std::make_unique<ServerProcess>(options.server, options.serverArguments);
    }
    const Checkpoint checkpoint = [&server] {
        if (Interruption() != 0) {
            throw Failure("interrupted");
        }
        if (server != nullptr) {
            server->RequireRunning();
        }
    };
    WaitForEngine(*engine, options.settings.timeout, checkpoint);
    return Evaluate(options.folder, pictures, *engine, options.settings, checkpoint);
}

int Run(const Options& options) {
    const std::vector<TruePicture> pictures = ReadTruthOf(options.folder);
    ResultFile details(options.details);
    ResultFile json(options.json);
    const std::vector<PictureResult> results = RunWithServer(options, pictures);

    for (std::size_t index = 0; index < pictures.size(); ++index) {
        if (!results[index].IsReadable()) {
            std::cerr << "evaluate: cannot read \"" << OneCell(pictures[index].file)
                      << "\": " << OneCell(results[index].error) << "\n";
        }
    }
    const Summary summary = Summarise(pictures, results);
    details.Write(ToDetails(pictures, results));
    json.Write(ToJson(summary));
    std::cout << ToTable(summary) << std::flush;
    if (!std::cout) {
        throw Failure("cannot write the results to standard output");
    }
    return summary.total.unreadablePictures == 0 ? 0 : exitUnreadablePictures;
}

}  // namespace
}  // namespace plate_evaluation

int main(int argumentCount, char** arguments) {
    using namespace plate_evaluation;
    try {
        RecordInterruptions();
        const Options options = ParseOptions(argumentCount, arguments);
        return options.isHelpPrinted ? 0 : Run(options);
    } catch (const std::bad_alloc&) {
        std::cerr << "evaluate: out of memory\n";
    } catch (const std::exception& failure) {
        std::cerr << "evaluate: " << OneCell(failure.what()) << "\n";
    }
    return Interruption() == 0 ? exitFailure : 128 + Interruption();
}
