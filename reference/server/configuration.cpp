#include "reference/server/configuration.h"

#include <cstdlib>
#include <fstream>

#include "reference/reader/reading_configuration.h"

namespace reading_service {

plate_reading::ReadingOptions LoadConfiguration(const std::filesystem::path& programFolder, std::ostream& errors) {
    const char* const named = std::getenv("VEXLANE_READING_CONFIG");
    const bool isNamed = named != nullptr && *named != '\0';
    const std::filesystem::path path = isNamed ? std::filesystem::path(named) : programFolder / "plate-Server.conf";
    std::error_code ignored;
    if (!isNamed && !std::filesystem::exists(path, ignored)) {
        return {};
    }
    try {
        std::ifstream file(path);
        if (!file || std::filesystem::is_directory(path, ignored)) {
            throw plate_reading::ConfigurationError("the file cannot be read");
        }
        return plate_reading::ReadConfiguration(file);
    } catch (const plate_reading::ConfigurationError& error) {
        errors << "plate-Server: " + path.string() + ": " + error.what() + "; the defaults are used\n" << std::flush;
    }
    return {};
}

}  // namespace reading_service
