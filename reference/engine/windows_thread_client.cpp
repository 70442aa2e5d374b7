#include <memory>

#include "reference/engine/thread_client.h"
#include "reference/engine/windows_library.h"

namespace engine_client {

Client* ClientOfThread() {
    if (void* const kept = engine_library::Kept()) {
        return static_cast<Client*>(kept);
    }
    auto made = std::make_unique<Client>();
    engine_library::Keep(made.get());
    return made.release();
}

}  // namespace engine_client

void engine_library::End(void* kept) {
    delete static_cast<engine_client::Client*>(kept);
}
