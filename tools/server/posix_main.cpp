// The recognition server.

#include <filesystem>
#include <iostream>

#include "tools/reading/plate_frame_reader.h"
#include "tools/server/configuration.h"
#include "tools/server/program.h"
#include "tools/server/service.h"

int main() {
    std::error_code ignored;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", ignored);
    const plate_reading::ReadingOptions options = reading_service::LoadConfiguration(program.parent_path(), std::cerr);
    reading_service::Settings settings;
    settings.confirmations = options.confirmations;
    reading_service::Service service(settings, [options] { return plate_reading::MakePlateFrameReader(options); });
    return reading_service::RunUntilTold(service);
}
