#include "PipeFile.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "Exception.h"
#include "SafeFile.h"

void ZTCPipeFile::make() {
    if (mkfifo(mPath.get(), S_IRUSR | S_IWUSR) != 0 && errno != EEXIST) {
        fail("mkfifo", errno);
    }
    // Without opening an end: a sensor that waits for one must not find it only to lose it again.
    ZTCDescriptor lIdentity(open(mPath.get(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!lIdentity.isOpen()) {
        fail("open", errno);
    }
    OsCheckFile(lIdentity.get(), mPath.get(), S_IFIFO);
    mIdentity = std::move(lIdentity);
    if (chmod(ZTSDescriptorPath(mIdentity.get()).mText, S_IRUSR | S_IWUSR) != 0) {
        fail("chmod", errno);
    }
}

void ZTCPipeFile::remove() {
    if (ZTIsStillAt(mIdentity.get(), mPath.get()) && unlink(mPath.get()) != 0) {
        fail("unlink", errno);
    }
}

ZTCDescriptor ZTCPipeFile::openEnd(int aAccess) const {
    ZTCDescriptor lEnd(open(ZTSDescriptorPath(mIdentity.get()).mText, aAccess | O_NONBLOCK | O_CLOEXEC));
    if (!lEnd.isOpen()) {
        fail("open", errno);
    }
    return lEnd;
}

ZTCDescriptor ZTCPipeFile::watchReading() const {
    ZTCDescriptor lWatch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    inotify_add_watch(lWatch.get(), ZTSDescriptorPath(mIdentity.get()).mText, IN_ACCESS);
    return lWatch;
}

void ZTCPipeFile::fail(const char* apOperation, int aErrno) const {
    throwErrno<ZTCOsException>(apOperation, mPath.get(), aErrno);
}
