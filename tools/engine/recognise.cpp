// The engine's two functions, each over the connection of the thread that calls it.

#include <new>

#include "engine/engine_records.h"
#include "tools/engine/client.h"

namespace {

// Outlives the client of its thread, so that a call from what ends behind it finds none.
thread_local bool clientHasEnded = false;

struct ThreadClient {
    ~ThreadClient() { clientHasEnded = true; }
    engine_client::Client client;
};

engine_client::Client* ClientOfThread() {
    if (clientHasEnded) {
        return nullptr;
    }
    static thread_local ThreadClient own;
    return &own.client;
}

}  // namespace

int Recognize2(YUV420_IMG*, IMG* image, tagRECT* region, RPLATE* plates, int) {
    try {
        engine_client::Client* const client = ClientOfThread();
        return client == nullptr ? 0 : client->Recognise(image, region, plates);
    } catch (...) {
        return 0;
    }
}

bool SetPlateRange(int minimumWidth, int maximumWidth) {
    try {
        engine_client::Client* const client = ClientOfThread();
        return client != nullptr && client->SetRange(minimumWidth, maximumWidth);
    } catch (...) {
        return false;
    }
}
