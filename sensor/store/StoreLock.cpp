#include "StoreLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::string sNameOf(const std::string& acrStore) {
    return acrStore + "-lock";
}

std::string sFirstLine(const std::string& acrPath) {
    std::ifstream lFile(acrPath);
    std::string lLine;
    std::getline(lFile, lLine);
    return lLine;
}

std::string sBoot() {
    return sFirstLine("/proc/sys/kernel/random/boot_id");
}

// A lock of the open file, not of the process: closing another descriptor of it leaves it alone, and it can
// be asked about without being taken.
struct flock sWholeFile(short aType) {
    struct flock lLock {};
    lLock.l_type = aType;
    lLock.l_whence = SEEK_SET;
    return lLock;
}

ZTSStoreHolder sRead(int aFile) {
    std::array<char, 4096 + 128> lBytes{};
    const ssize_t lCount = pread(aFile, lBytes.data(), lBytes.size(), 0);
    ZTSStoreHolder lHolder;
    lHolder.mIsKnown = lCount >= 0;
    std::istringstream lText(std::string(lBytes.data(), lCount > 0 ? static_cast<std::size_t>(lCount) : 0));
    std::string lBoot;
    std::string lMade;
    lText >> lHolder.mProcess >> lBoot;
    std::getline(lText, lMade);
    lHolder.mMade = std::strtoll(lMade.c_str(), nullptr, 10);
    std::getline(lText, lHolder.mSetAside);
    lHolder.mIsOfBoot = !lBoot.empty() && lBoot == sBoot();
    struct flock lLock = sWholeFile(F_WRLCK);
    const bool lIsKnown = fcntl(aFile, F_OFD_GETLK, &lLock) == 0;
    lHolder.mIsHere = lIsKnown && lLock.l_type == F_WRLCK;
    lHolder.mIsAdded = lIsKnown && lLock.l_type == F_RDLCK;
    return lHolder;
}

[[noreturn]] void sRefuse(const std::string& acrStore, const ZTSStoreHolder& acrHolder) {
    if (acrHolder.mIsAdded) {
        throw ZTCStoreError(ZTEStoreFault::Busy, acrStore + " is just being added to by another process");
    }
    const std::string& lrProcess = acrHolder.mProcess;
    const std::string lName = lrProcess.empty() ? "" : sFirstLine("/proc/" + lrProcess + "/comm");
    throw ZTCStoreError(ZTEStoreFault::Unusable,
                        acrStore + " is written by process " + (lrProcess.empty() ? "?" : lrProcess) +
                            (lName.empty() ? "" : " (" + lName + ")") + " already: one vrx-sn a store");
}

}  // namespace

ZTSStoreHolder findStoreHolder(const std::string& acrStore) {
    const ZTCStoreDescriptor lFile(open(sNameOf(acrStore).c_str(), O_RDONLY | O_CLOEXEC));
    return sRead(lFile.get());
}

ZTCStoreDescriptor lockStoreToAdd(const std::string& acrStore, ZTSStoreHolder& arHolder) {
    // Who may only read the store keeps nobody from it: the lock is for those who may write.
    ZTCStoreDescriptor lFile(open(sNameOf(acrStore).c_str(), O_RDWR | O_CLOEXEC));
    if (lFile.get() < 0) {
        arHolder = findStoreHolder(acrStore);
        return lFile;
    }
    struct flock lLock = sWholeFile(F_RDLCK);
    const bool lIsLocked = fcntl(lFile.get(), F_OFD_SETLK, &lLock) == 0;
    arHolder = sRead(lFile.get());
    arHolder.mIsGone = lIsLocked && !arHolder.mIsAdded;
    return lIsLocked ? std::move(lFile) : ZTCStoreDescriptor();
}

ZTCStoreLock::ZTCStoreLock(const std::string& acrStore) {
    // No link that somebody laid there leads to another file.
    constexpr int lFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    const std::string lName = sNameOf(acrStore);
    bool lIsNew = false;
    ZTCStoreDescriptor lFile(open(lName.c_str(), lFlags));
    if (lFile.get() < 0 && errno == ENOENT) {
        lFile = ZTCStoreDescriptor(open(lName.c_str(), lFlags | O_CREAT, 0640));
        lIsNew = true;
    }
    if (lFile.get() < 0) {
        throw toStoreError(errno, acrStore);
    }
    mBefore = sRead(lFile.get());
    mBefore.mIsKnown = !lIsNew;
    struct flock lLock = sWholeFile(F_WRLCK);
    if (fcntl(lFile.get(), F_OFD_SETLK, &lLock) != 0) {
        if (errno == EAGAIN || errno == EACCES) {
            sRefuse(acrStore, mBefore);
        }
        throw toStoreError(errno, acrStore);
    }
    mBefore.mIsHere = mBefore.mIsAdded = false;
    mBefore.mIsGone = true;
    mFile = std::move(lFile);
    noteSetAside(mBefore.mSetAside);
}

void ZTCStoreLock::noteSetAside(const std::string& acrPath) {
    mBefore.mSetAside = acrPath;
    write();
}

void ZTCStoreLock::noteMade(std::int64_t aTime) {
    mBefore.mMade = aTime;
    write();
}

void ZTCStoreLock::write() const {
    const std::string lText = std::to_string(getpid()) + " " + sBoot() + " " + std::to_string(mBefore.mMade) +
                              "\n" + mBefore.mSetAside + "\n";
    // On a full disk nothing of it may be there: the lock holds all the same.
    if (ftruncate(mFile.get(), 0) == 0) {
        [[maybe_unused]] const ssize_t lWritten = pwrite(mFile.get(), lText.data(), lText.size(), 0);
    }
}
