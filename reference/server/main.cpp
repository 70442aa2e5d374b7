// The recognition server.

#include <iostream>

#include "reference/reader/plate_frame_reader.h"
#include "reference/server/configuration.h"
#include "reference/server/program.h"
#include "reference/server/service.h"

int main() {
    const plate_reading::ReadingOptions options =
        reading_service::LoadConfiguration(reading_service::ProgramFolder(), std::cerr);
    reading_service::Settings settings;
    settings.confirmations = options.confirmations;
    reading_service::Service service(settings, [options] { return plate_reading::MakePlateFrameReader(options); });
    return reading_service::RunUntilTerminated(service);
}
