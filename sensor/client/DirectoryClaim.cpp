#include "DirectoryClaim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "ProcessTable.h"

ZTCDirectoryClaim::ZTCDirectoryClaim(const std::string& acrDirectory, std::chrono::milliseconds aWait)
    : mPath(acrDirectory), mDirectory(openSensorFile(acrDirectory, O_RDONLY | O_DIRECTORY, S_IFDIR)) {
    const auto lDeadline = std::chrono::steady_clock::now() + aWait;
    while (flock(mDirectory.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            throwSensorErrno(acrDirectory, errno);
        }
        if (std::chrono::steady_clock::now() >= lDeadline) {
            struct stat lStatus {};
            fstat(mDirectory.get(), &lStatus);
            // Its name, wherever the path leads.
            const auto lName =
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(mDirectory.get()));
            const pid_t lHolder = findProcessWith(
                lStatus, lName, [](const ZTSOpenFile& acrFile) { return acrFile.mLock == "FLOCK"; });
            throw ZTCPipesTakenError("the pipes in " + acrDirectory + " are taken by " +
                                         describeProcess(lHolder) + ": end it, or wait for it",
                                     lHolder);
        }
        // Nothing tells when a lock is free, but to wait for it without end.
        std::this_thread::sleep_for(LookEvery);
    }
}

bool ZTCDirectoryClaim::isInItsPlace() const {
    struct stat lOurs {};
    struct stat lNamed {};
    return fstat(mDirectory.get(), &lOurs) == 0 && stat(mPath.c_str(), &lNamed) == 0 &&
           lOurs.st_dev == lNamed.st_dev && lOurs.st_ino == lNamed.st_ino;
}
