#include "KernelFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace {

constexpr std::size_t sLongest = 64 * 1024;

}  // namespace

ZTCKernelFile::ZTCKernelFile(int aFile, const std::string& acrWhat) : mFile(aFile) {
    if (mFile < 0) {
        throw std::system_error(errno, std::generic_category(), acrWhat);
    }
}

ZTCKernelFile::~ZTCKernelFile() {
    if (mFile >= 0) {
        close(mFile);
    }
}

std::string readKernelFile(const std::string& acrPath) {
    // O_NONBLOCK: for a pipe in its place.
    const ZTCKernelFile lFile(open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY), acrPath);
    std::string lText;
    char lBytes[4096];
    for (;;) {
        const ssize_t lRead = read(lFile.get(), lBytes, sizeof lBytes);
        if (lRead == 0) {
            return lText;
        }
        if (lRead < 0 || lText.size() + static_cast<std::size_t>(lRead) > sLongest) {
            throw std::system_error(lRead < 0 ? errno : EFBIG, std::generic_category(), acrPath);
        }
        lText.append(lBytes, static_cast<std::size_t>(lRead));
    }
}
