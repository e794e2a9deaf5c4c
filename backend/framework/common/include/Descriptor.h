// A file descriptor that is closed when its owner goes.
#pragma once

#include <sys/stat.h>
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
    ~ZTCDescriptor() { close(); }

    int get() const { return mDescriptor; }
    bool isOpen() const { return mDescriptor >= 0; }
    int release() { return std::exchange(mDescriptor, -1); }
    /// Closes it now, if it is open.
    void close() {
        if (isOpen()) {
            ::close(release());
        }
    }

  private:
    int mDescriptor;
};

/// Whether both tell of one file, by whatever names it was reached.
inline bool ZTIsSameFile(const struct stat& acrOne, const struct stat& acrOther) {
    return acrOne.st_dev == acrOther.st_dev && acrOne.st_ino == acrOther.st_ino;
}

/// Whether what stands at the path, a link not followed, is still the file that was opened.
inline bool ZTIsStillAt(int aDescriptor, const char* apPath) {
    struct stat lOpened {};
    struct stat lNamed {};
    return fstat(aDescriptor, &lOpened) == 0 && lstat(apPath, &lNamed) == 0 && ZTIsSameFile(lOpened, lNamed);
}

/// The path that leads to an open file wherever it lies now. To open it anew is to open this very file.
struct ZTSDescriptorPath {
    explicit ZTSDescriptorPath(int aDescriptor) {
        snprintf(mText, sizeof mText, "/proc/self/fd/%d", aDescriptor);
    }

    char mText[32];
};
