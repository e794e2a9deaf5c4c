// A file descriptor that is closed when its owner goes.
#pragma once

#include <unistd.h>

#include <utility>

class ZTCDescriptor {
  public:
    explicit ZTCDescriptor(int aDescriptor = -1) : mDescriptor(aDescriptor) {}
    ZTCDescriptor(ZTCDescriptor&& arOther) noexcept : mDescriptor(arOther.release()) {}
    ZTCDescriptor& operator=(ZTCDescriptor&& arOther) noexcept {
        std::swap(mDescriptor, arOther.mDescriptor);
        return *this;
    }
    ~ZTCDescriptor() {
        if (mDescriptor >= 0) {
            close(mDescriptor);
        }
    }

    int get() const { return mDescriptor; }
    bool isOpen() const { return mDescriptor >= 0; }
    int release() { return std::exchange(mDescriptor, -1); }

  private:
    int mDescriptor;
};
