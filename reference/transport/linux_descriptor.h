/// Owns a file descriptor and closes it.
#pragma once

#include <unistd.h>

#include <utility>

namespace transport {

class Owned {
  public:
    explicit Owned(int opened = -1) : descriptor_(opened) {}
    Owned(Owned&& other) noexcept : descriptor_(other.Take()) {}
    Owned& operator=(Owned&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Owned() { Close(); }

    bool IsOpen() const { return descriptor_ >= 0; }
    int Get() const { return descriptor_; }
    int Take() { return std::exchange(descriptor_, -1); }
    void Close() {
        if (IsOpen()) {
            ::close(Take());
        }
    }

  private:
    int descriptor_;
};

}  // namespace transport
