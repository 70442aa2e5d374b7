/// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

namespace platform {

class Descriptor {
  public:
    explicit Descriptor(int opened) : value(opened) {}
    ~Descriptor() {
        if (value >= 0) {
            ::close(value);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool IsOpen() const { return value >= 0; }
    int Get() const { return value; }

  private:
    int value;
};

}  // namespace platform
