#include <memory>

#include "reference/engine/thread_client.h"
#include "reference/engine/windows_library.h"

namespace engine_client {

Client* ClientOfThread() {
    if (void* const value = engine_library::ThreadValue()) {
        return static_cast<Client*>(value);
    }
    auto made = std::make_unique<Client>();
    engine_library::SetThreadValue(made.get());
    return made.release();
}

}  // namespace engine_client

void engine_library::DestroyThreadValue(void* value) {
    delete static_cast<engine_client::Client*>(value);
}
