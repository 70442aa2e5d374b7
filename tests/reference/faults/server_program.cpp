// The recognition server with a reader that follows commands in the picture.

#include <cstdlib>

#include "reference/server/program.h"
#include "tests/reference/engine/scripted_reader.h"

int main() {
    reading_service::Settings settings;
    settings.readers = 4;
    if (const char* const idle = std::getenv("VEXLANE_TEST_IDLE")) {
        settings.idleTimeout = std::chrono::milliseconds(std::atoi(idle));
    }
    reading_service::Service service(settings, scripted_reader::Make);
    return reading_service::RunUntilTerminated(service);
}
