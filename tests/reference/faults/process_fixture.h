/// A server in a separate process, and its client.
#pragma once

#include <memory>
#include <string>

#include "reference/engine/client.h"
#include "reference/server/program.h"
#include "tests/reference/faults/faults_fixture.h"

namespace reading_faults {

using namespace reading_engine_test;
using engine_client::Client;

/// Returns true if the client receives the right readings for its frame.
inline bool IsServedCorrectly(Client& client, unsigned seed = 1) {
    TestPicture picture(40 + seed % 7, 30, 0, seed);
    RPLATE plates[engineRecordCount] = {};
    const auto wanted =
        scripted_reader::DescriptionOf(picture.ForReader(), std::nullopt, plate_reading::WidthRange{1, 2});
    return client.SetRange(1, 2) && client.Recognise(&picture.image, nullptr, plates) == 2 &&
           std::string(plates[0].text) == wanted[0].text && std::string(plates[1].text) == wanted[1].text;
}

class ServerProcess : public ServerPrograms {
  protected:
    void Start() { server = servers::StartForeignServer(); }

    std::unique_ptr<test_support::ChildProcess> server;
    Client client;
};

}  // namespace reading_faults
