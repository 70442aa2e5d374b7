#pragma once

namespace reading_engine_test {

/// A second instance of the engine's library, besides the one that the program is linked to.
class OtherEngine {
  public:
    /// Throws std::runtime_error.
    OtherEngine();

    bool SetRange(int minimum, int maximum) const { return setRange_(minimum, maximum); }
    void Unload() const;

  private:
    void* library_ = nullptr;
    bool (*setRange_)(int, int) = nullptr;
};

}  // namespace reading_engine_test
