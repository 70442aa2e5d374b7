#pragma once

namespace reading_engine_test {

/// The engine's library once more, apart from the one that the program is bound to.
class OtherEngine {
  public:
    /// Throws std::runtime_error.
    OtherEngine();

    bool SetRange(int minimum, int maximum) const { return setRange(minimum, maximum); }
    void Unload() const;

  private:
    void* library = nullptr;
    bool (*setRange)(int, int) = nullptr;
};

}  // namespace reading_engine_test
