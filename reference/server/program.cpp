#include "reference/server/program.h"

#include <exception>

namespace reading_service {

int RunToTheEnd(Service& service) {
    try {
        switch (service.Run()) {
            case End::NameTaken:
                LogError("another server listens already");
                return exitedForTheName;
            case End::Told:
            case End::Idle:
                return exitedWell;
        }
    } catch (const std::exception& error) {
        LogError(error.what());
    }
    return exitedByFailure;
}

}  // namespace reading_service
