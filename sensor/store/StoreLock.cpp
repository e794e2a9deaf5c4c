#include "StoreLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

namespace {

// The holder writes its process id into the file: others may not be allowed to look into /proc/locks.
[[noreturn]] void sRefuse(const std::string& acrStore, const std::string& acrLock) {
    std::string lProcess;
    std::getline(std::ifstream(acrLock), lProcess);
    std::string lName;
    std::getline(std::ifstream("/proc/" + lProcess + "/comm"), lName);
    throw ZTCStoreError(ZTEStoreFault::Unusable,
                        acrStore + " is written by process " + (lProcess.empty() ? "?" : lProcess) +
                            (lName.empty() ? "" : " (" + lName + ")") + " already: one vrx-sn a store");
}

}  // namespace

ZTCStoreLock::ZTCStoreLock(const std::string& acrStore) : mDescriptor(-1) {
    const std::string lLock = acrStore + "-lock";
    // Not to be made by a link that somebody else laid there.
    ZTCStoreLock lNew(open(lLock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0640));
    if (lNew.mDescriptor < 0) {
        throw toStoreError(errno, acrStore);
    }
    if (flock(lNew.mDescriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            sRefuse(acrStore, lLock);
        }
        throw toStoreError(errno, acrStore);
    }
    const std::string lProcess = std::to_string(getpid()) + "\n";
    // On a full disk it stays empty; the lock holds all the same.
    if (ftruncate(lNew.mDescriptor, 0) == 0) {
        [[maybe_unused]] const ssize_t lWritten =
            pwrite(lNew.mDescriptor, lProcess.data(), lProcess.size(), 0);
    }
    std::swap(mDescriptor, lNew.mDescriptor);
}

ZTCStoreLock::~ZTCStoreLock() {
    if (mDescriptor >= 0) {
        close(mDescriptor);
    }
}
