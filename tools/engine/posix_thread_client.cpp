#include "tools/engine/thread_client.h"

namespace engine_client {

namespace {

// Outlives the client of its thread, so that a call from what ends behind it finds none.
thread_local bool clientHasEnded = false;

struct ThreadClient {
    ~ThreadClient() { clientHasEnded = true; }
    Client client;
};

}  // namespace

Client* ClientOfThread() {
    if (clientHasEnded) {
        return nullptr;
    }
    static thread_local ThreadClient own;
    return &own.client;
}

}  // namespace engine_client
