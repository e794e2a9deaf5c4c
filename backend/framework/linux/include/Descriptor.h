// A file descriptor that is closed when its owner goes.
#pragma once

#include <unistd.h>

#include <cstdio>
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

/// The path that leads to an open file wherever it lies now. To open it anew is to open this very file.
struct ZTSDescriptorPath {
    explicit ZTSDescriptorPath(int aDescriptor) {
        snprintf(mText, sizeof mText, "/proc/self/fd/%d", aDescriptor);
    }

    char mText[32];
};
