#include "reference/server/program.h"

#include <exception>

namespace reading_service {

int RunToCompletion(Service& service) {
    try {
        switch (service.Run()) {
            case End::NameTaken:
                LogError("another server is already listening");
                return exitNameTaken;
            case End::Stopped:
            case End::Idle:
                return exitSuccess;
        }
    } catch (const std::exception& error) {
        LogError(error.what());
    }
    return exitFailure;
}

}  // namespace reading_service
