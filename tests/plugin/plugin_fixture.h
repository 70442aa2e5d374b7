/// The loaded library with a recording host and an installed server program.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "sdk/contract_names.h"
#include "tests/plugin/plugin.h"
#include "tests/support/servers.h"
#include "tests/support/wait_until.h"
#include "tools/validate/recording_host.h"

namespace plugin_test {

class PluginFixture : public testing::Test {
  protected:
    PluginFixture() {
        servers::Place(VEXLANE_SERVER_PROGRAM);
        plugin = std::make_unique<Plugin>();
    }
    ~PluginFixture() override {
        while (!detectors.empty()) {
            Destroy(detectors.back());
        }
        plugin->FinalizeModule();
        plugin.reset();
        servers::KillAll();
        servers::Remove();
    }

    /// The first calls of every host.
    OKM8::Analytics::IModule* Initialize() {
        EXPECT_EQ(plugin->InitializeModule(host.Object()), 0);
        OKM8::Analytics::IModule* const module = plugin->GetModule();
        EXPECT_NE(module, nullptr);
        return module;
    }

    OKM8::Analytics::IDetector* CreateDetector() {
        OKM8::Analytics::IDetector* const detector = plugin->GetModule()->CreateDetector(nullptr, host.Peer());
        EXPECT_NE(detector, nullptr);
        detectors.push_back(detector);
        return detector;
    }

    void Destroy(OKM8::Analytics::IDetector* detector) {
        std::erase(detectors, detector);
        detector->Destroy();
    }

    template <class Interface>
    static Interface* Query(OKM8::IContract* object, const char* name) {
        auto* const found = static_cast<Interface*>(object->QueryContract(name));
        EXPECT_NE(found, nullptr) << name;
        return found;
    }

    TestFolder folder;
    recording_host::RecordingHost host;
    recording_host::BufferCounts buffers;
    std::unique_ptr<Plugin> plugin;
    std::vector<OKM8::Analytics::IDetector*> detectors;
};

}  // namespace plugin_test
