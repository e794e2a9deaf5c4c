// A file descriptor that is closed when its owner goes.
#pragma once

#include <unistd.h>

#include <utility>

class ZTCStoreDescriptor {
  public:
    explicit ZTCStoreDescriptor(int aDescriptor = -1) : mDescriptor(aDescriptor) {}
    ~ZTCStoreDescriptor() {
        if (mDescriptor >= 0) {
            close(mDescriptor);
        }
    }
    ZTCStoreDescriptor(ZTCStoreDescriptor&& arOther) noexcept
        : mDescriptor(std::exchange(arOther.mDescriptor, -1)) {}
    ZTCStoreDescriptor& operator=(ZTCStoreDescriptor&& arOther) noexcept {
        std::swap(mDescriptor, arOther.mDescriptor);
        return *this;
    }

    int get() const { return mDescriptor; }

  private:
    int mDescriptor;
};
