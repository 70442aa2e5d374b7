// The recognition server.

#include <iostream>

#include "reference/reader/plate_frame_reader.h"
#include "reference/server/configuration.h"
#include "reference/server/program.h"
#include "reference/server/service.h"

int main(int argc, char**) {
    if (argc > 1) {
        std::cerr
            << "The recognition server of the reference engine. It takes no arguments: the library starts it, and it\n"
               "exits a minute after its last client has disconnected. Its configuration is plate-Server.conf in its\n"
               "folder, or the file that the environment variable VEXLANE_READING_CONFIG names.\n";
        return 2;
    }
    const plate_reading::ReadingOptions options =
        reading_service::LoadConfiguration(reading_service::ProgramFolder(), std::cerr);
    reading_service::Settings settings;
    settings.confirmations = options.confirmations;
    reading_service::Service service(settings, [options] { return plate_reading::MakePlateFrameReader(options); });
    return reading_service::RunUntilTerminated(service);
}
