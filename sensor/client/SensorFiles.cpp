#include "SensorFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

[[noreturn]] void refuse(const std::string& acrPath, const char* apWhy) {
    throw ZTCUnsafeFileError(acrPath + " is not used: " + apWhy);
}

const char* nameOf(unsigned int aType) {
    return aType == S_IFIFO   ? "it is not a pipe"
           : aType == S_IFDIR ? "it is not a directory"
                              : "it is not a file";
}

}  // namespace

ZTCSensorDescriptor& ZTCSensorDescriptor::operator=(ZTCSensorDescriptor&& arOther) noexcept {
    std::swap(mDescriptor, arOther.mDescriptor);
    return *this;
}

ZTCSensorDescriptor::~ZTCSensorDescriptor() {
    if (mDescriptor >= 0) {
        close(mDescriptor);
    }
}

void throwSensorErrno(const std::string& acrPath, int aErrno) {
    switch (aErrno) {
        case ENOENT:
        case ENXIO:
            throw ZTCNoAgentError(
                "no agent serves " + acrPath +
                ": start vrx-sca, or name its runtime directory (--dir, ZT_VRX_SENSOR_DIR)");
        case EACCES:
        case EPERM:
            throw ZTCNoPermissionError("no permission for " + acrPath +
                                       ": use the account that runs vrx-sca");
        case ELOOP:
            refuse(acrPath, "it is a symbolic link");
        default:
            throw ZTCSensorError("cannot use " + acrPath + ": " + strerror(aErrno));
    }
}

ZTCSensorDescriptor openSensorFile(const std::string& acrPath, int aFlags, unsigned int aType) {
    // A directory may be named by a link, as the agent's own may be.
    const int lNoLink = aType == S_IFDIR ? 0 : O_NOFOLLOW;
    ZTCSensorDescriptor lFile(
        open(acrPath.c_str(), aFlags | lNoLink | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0644));
    struct stat lStatus {};
    if (!lFile.isOpen() || fstat(lFile.get(), &lStatus) != 0) {
        throwSensorErrno(acrPath, errno);
    }
    if ((lStatus.st_mode & S_IFMT) != aType) {
        refuse(acrPath, nameOf(aType));
    }
    if (lStatus.st_uid != geteuid() && lStatus.st_uid != 0) {
        refuse(acrPath, "it belongs to another user");
    }
    if (aType != S_IFDIR && lStatus.st_nlink > 1) {
        refuse(acrPath, "it has more than one name");
    }
    if (aType == S_IFIFO && (lStatus.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        refuse(acrPath, "others may use it");
    }
    return lFile;
}
