/// A registry for one test.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace test_support {

/// Replaces the machine's registry for this process during its lifetime; empty at first. One at a time. Paths use
/// backslashes.
class ScratchRegistry {
  public:
    using Hive = platform::RegistryHive;

    ScratchRegistry();
    ~ScratchRegistry();
    ScratchRegistry(const ScratchRegistry&) = delete;
    ScratchRegistry& operator=(const ScratchRegistry&) = delete;

    void MakeKey(Hive hive, const std::string& path);

    /// Each creates the key if it is missing.
    void StoreBytes(Hive hive, const std::string& path, const std::string& name, const std::string& bytes);
    /// A text, with no NUL after it.
    void StoreText(Hive hive, const std::string& path, const std::string& name, const std::string& text);
    void StoreNumber(Hive hive, const std::string& path, const std::string& name, std::uint32_t number);

    /// From now on no key can be opened or created in that hive. REQUIRES: the hive is empty.
    void Block(Hive hive);

    bool HasKey(Hive hive, const std::string& path) const;
    /// Whether a key has neither values nor keys of its own; the empty path is the hive's root.
    bool IsEmpty(Hive hive, const std::string& path) const;

    struct Place;

  private:
    Place* place_;
};

}  // namespace test_support
