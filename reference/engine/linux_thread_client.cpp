#include <unistd.h>

#include <optional>

#include "reference/engine/thread_client.h"

namespace engine_client {

namespace {

// Outlives the thread's client, so that a call from a destructor that runs later finds none.
thread_local bool isClientDestroyed = false;

struct ThreadClient {
    ~ThreadClient() { isClientDestroyed = true; }
    std::optional<Client> client;
    pid_t process = 0;  // the process that created the client
};

}  // namespace

Client* ClientOfThread() {
    if (isClientDestroyed) {
        return nullptr;
    }
    static thread_local ThreadClient own;
    // A forked child inherits its parent's connection, on which each process could receive the other's replies.
    if (const pid_t process = ::getpid(); own.process != process) {
        own.client.emplace();
        own.process = process;
    }
    return &*own.client;
}

}  // namespace engine_client
