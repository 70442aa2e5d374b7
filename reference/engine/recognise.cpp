// The engine's two functions, each over the connection of the thread that calls it.

#include "engine/engine_records.h"
#include "reference/engine/thread_client.h"

using engine_client::ClientOfThread;

int Recognize2(YUV420_IMG*, IMG* image, tagRECT* region, RPLATE* plates, int) {
    try {
        engine_client::Client* const client = ClientOfThread();
        return client == nullptr ? 0 : client->Recognise(image, region, plates);
    } catch (...) {
        return 0;
    }
}

// False is the caller's reason to end the server, which serves others as well. It is told of nothing else.
bool SetPlateRange(int minimumWidth, int maximumWidth) {
    try {
        engine_client::Client* const client = ClientOfThread();
        return client == nullptr || client->SetRange(minimumWidth, maximumWidth);
    } catch (...) {
        return true;
    }
}
