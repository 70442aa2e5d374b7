// The engine's two functions, which use the connection of the calling thread.

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

// On false the caller ends the server, which serves other clients too. So only a failure of the server returns false.
bool SetPlateRange(int minimumWidth, int maximumWidth) {
    try {
        engine_client::Client* const client = ClientOfThread();
        return client == nullptr || client->SetRange(minimumWidth, maximumWidth);
    } catch (...) {
        return true;
    }
}
