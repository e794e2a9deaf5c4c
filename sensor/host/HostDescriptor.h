// A descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

class ZTCHostDescriptor {
  public:
    explicit ZTCHostDescriptor(int aDescriptor) : mDescriptor(aDescriptor) {}
    ~ZTCHostDescriptor() {
        if (isOpen()) {
            close(mDescriptor);
        }
    }
    ZTCHostDescriptor(const ZTCHostDescriptor&) = delete;
    ZTCHostDescriptor& operator=(const ZTCHostDescriptor&) = delete;

    int get() const { return mDescriptor; }
    bool isOpen() const { return mDescriptor >= 0; }
    /// Leaves it to the caller to close.
    int release() { return std::exchange(mDescriptor, -1); }

  private:
    int mDescriptor;
};
