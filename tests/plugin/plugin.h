/// The built library, loaded as a host loads it.
#pragma once

#include <filesystem>

#include "tools/validate/library.h"

namespace plugin_test {

using validate::CallSlot;
using validate::DebugLines;
using validate::IsLoaded;
using validate::pollingKeepsTheLibrary;

/// The library with the scripted engine or another one.
class Plugin : public validate::Library {
  public:
    Plugin();
    explicit Plugin(const std::filesystem::path& enginePath);
};

/// The library's file.
std::filesystem::path LibraryFile();

/// A temporary folder, removed at the end of its test.
class TemporaryFolder {
  protected:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path made_;
};

/// The private registry and the engine's script of one test. One at a time.
class TestFolder : private TemporaryFolder, public validate::CaseFolder {
  public:
    TestFolder() : CaseFolder(made_) {}
};

}  // namespace plugin_test
