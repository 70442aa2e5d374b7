/// A file descriptor until somebody takes it.
#pragma once

#include <unistd.h>

#include <utility>

namespace transport {

class Owned {
  public:
    explicit Owned(int opened = -1) : descriptor(opened) {}
    Owned(Owned&& other) noexcept : descriptor(other.Take()) {}
    Owned& operator=(Owned&& other) noexcept {
        std::swap(descriptor, other.descriptor);
        return *this;
    }
    ~Owned() { Close(); }

    bool IsOpen() const { return descriptor >= 0; }
    int Get() const { return descriptor; }
    int Take() { return std::exchange(descriptor, -1); }
    void Close() {
        if (IsOpen()) {
            ::close(Take());
        }
    }

  private:
    int descriptor;
};

}  // namespace transport
