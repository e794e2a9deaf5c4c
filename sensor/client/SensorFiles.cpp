#include "SensorFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

[[noreturn]] void sRefuse(const std::string& acrPath, const char* apWhy) {
    throw ZTCUnsafeFileError(acrPath + " is not used: " + apWhy);
}

const char* sNameOf(unsigned int aType) {
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
            sRefuse(acrPath, "it is a symbolic link");
        default:
            throw ZTCSensorError("cannot use " + acrPath + ": " + strerror(aErrno));
    }
}

namespace {

void sCheck(const struct stat& acrStatus, const std::string& acrPath, unsigned int aType, ZTEFileOf aOf) {
    if (S_ISLNK(acrStatus.st_mode)) {
        throwSensorErrno(acrPath, ELOOP);
    }
    if ((acrStatus.st_mode & S_IFMT) != aType) {
        sRefuse(acrPath, sNameOf(aType));
    }
    const bool lIsOurs = aOf == ZTEFileOf::Ours;
    if (lIsOurs && acrStatus.st_uid != geteuid() && acrStatus.st_uid != 0) {
        sRefuse(acrPath, "it belongs to another user");
    }
    if (lIsOurs && aType != S_IFDIR && acrStatus.st_nlink > 1) {
        sRefuse(acrPath, "it has more than one name");
    }
    if (aType == S_IFIFO && (acrStatus.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        sRefuse(acrPath, "others may use it");
    }
}

}  // namespace

// A file is looked at before it is opened: to open a device has effects.
ZTCSensorDescriptor openSensorFile(const std::string& acrPath, int aFlags, unsigned int aType,
                                   ZTEFileOf aOf) {
    constexpr int lAlways = O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    // A directory may be named by a link, as the agent's own may be.
    const int lNoLink = aType == S_IFDIR ? 0 : O_NOFOLLOW;
    for (;;) {
        const ZTCSensorDescriptor lFound(
            open(acrPath.c_str(), O_PATH | O_CLOEXEC | lNoLink | (aFlags & O_DIRECTORY)));
        struct stat lStatus {};
        if (lFound.isOpen() && fstat(lFound.get(), &lStatus) == 0) {
            sCheck(lStatus, acrPath, aType, aOf);
            const std::string lItself = "/proc/self/fd/" + std::to_string(lFound.get());
            ZTCSensorDescriptor lFile(open(lItself.c_str(), (aFlags & ~O_CREAT) | lAlways));
            if (!lFile.isOpen()) {
                throwSensorErrno(acrPath, errno);
            }
            return lFile;
        }
        if (errno != ENOENT || (aFlags & O_CREAT) == 0) {
            throwSensorErrno(acrPath, errno);
        }
        ZTCSensorDescriptor lMade(open(acrPath.c_str(), aFlags | O_EXCL | O_NOFOLLOW | lAlways, 0644));
        if (lMade.isOpen()) {
            return lMade;
        }
        if (errno != EEXIST) {  // somebody made it in this moment
            throwSensorErrno(acrPath, errno);
        }
    }
}
