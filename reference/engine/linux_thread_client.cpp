#include <unistd.h>

#include <optional>

#include "reference/engine/thread_client.h"

namespace engine_client {

namespace {

// Outlives the client of its thread, so that a call from what ends after it finds none.
thread_local bool clientHasEnded = false;

struct ThreadClient {
    ~ThreadClient() { clientHasEnded = true; }
    std::optional<Client> client;
    pid_t process = 0;  // whose client it is
};

}  // namespace

Client* ClientOfThread() {
    if (clientHasEnded) {
        return nullptr;
    }
    static thread_local ThreadClient own;
    // A child that the host forks has the connection of its parent, and each would be given what the other has asked
    // for.
    if (const pid_t process = ::getpid(); own.process != process) {
        own.client.emplace();
        own.process = process;
    }
    return &*own.client;
}

}  // namespace engine_client
