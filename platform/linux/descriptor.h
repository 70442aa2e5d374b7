/// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

namespace platform {

/// Owns a descriptor; a negative value is none. One thread at a time.
class Descriptor {
  public:
    explicit Descriptor(int opened) : value_(opened) {}
    ~Descriptor() {
        if (value_ >= 0) {
            ::close(value_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool IsOpen() const { return value_ >= 0; }
    int Get() const { return value_; }

  private:
    int value_;
};

}  // namespace platform
