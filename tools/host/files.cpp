#include "tools/host/files.h"

#include <filesystem>
#include <system_error>

#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {

void CreateFolder(const std::string& folder, const std::string& purpose) {
    std::error_code error;
    std::filesystem::create_directories(ToOpenPath(folder), error);
    if (!error && !std::filesystem::is_directory(ToOpenPath(folder), error)) {
        error = std::make_error_code(std::errc::not_a_directory);
    }
    if (error) {
        throw Failure("cannot create the folder \"" + folder + "\" for the " + purpose + ": " + error.message());
    }
}

void RequireOtherFile(const std::string& output, const std::string& input) {
    std::error_code ignored;
    const bool areEqual = !output.empty() && (output == input || std::filesystem::equivalent(
                                                                     ToOpenPath(output), ToOpenPath(input), ignored));
    if (areEqual) {
        throw Failure("\"" + output + "\" would be overwritten while it is read: name another file");
    }
}

}  // namespace plate_host
