// The small files in which the kernel says how things are.
#pragma once

#include <string>
#include <utility>

/// A descriptor, closed with this.
class ZTCKernelFile {
  public:
    /// Throws std::system_error by errno if it is none: acrWhat could not be done.
    ZTCKernelFile(int aFile, const std::string& acrWhat);
    ~ZTCKernelFile();
    ZTCKernelFile(ZTCKernelFile&& arOther) noexcept : mFile(std::exchange(arOther.mFile, -1)) {}
    ZTCKernelFile(const ZTCKernelFile&) = delete;
    ZTCKernelFile& operator=(const ZTCKernelFile&) = delete;

    int get() const { return mFile; }

  private:
    int mFile;
};

/// All of a file. Throws std::system_error: it cannot be read, or is longer (EFBIG) than the kernel makes
/// any.
std::string readKernelFile(const std::string& acrPath);
