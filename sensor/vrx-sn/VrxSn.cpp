// vrx-sn: the sensor that runs all the time.
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "Sensor.h"
#include "ServiceMain.h"

namespace {

#ifdef __SANITIZE_THREAD__
constexpr std::size_t sStackSize = std::size_t{8} << 20;  // what it notes of a thread lies in the stack
#else
constexpr std::size_t sStackSize = std::size_t{512} << 10;
#endif
constexpr std::size_t sRoom = std::size_t{160} << 20;  // for the buffer, a batch, and the store's pages

// What stands on a disk that stands still is not to be needed: all that is touched stays in memory. Where it
// is limited, what is only set aside counts too, so there are small stacks and no heaps a thread.
void sLockMemory(ZTCServiceLog& arLog) {
    bool lIsLocked = mlockall(MCL_CURRENT | MCL_FUTURE | MCL_ONFAULT) == 0;
    int lErrno = errno;
    if (lIsLocked) {
        void* const lpRoom =
            mmap(nullptr, sRoom, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        lErrno = errno;
        lIsLocked = lpRoom != MAP_FAILED;
        lIsLocked ? munmap(lpRoom, sRoom) : munlockall();
    }
    if (!lIsLocked) {
        arLog.note(ZTSL_Warning, "the memory is not locked (LimitMEMLOCK): %s", strerror(lErrno));
    }
}

void sKeepSmall() {
    mallopt(M_ARENA_MAX, 1);
    pthread_attr_t lAttributes;
    pthread_attr_init(&lAttributes);
    pthread_attr_setstacksize(&lAttributes, sStackSize);
    pthread_setattr_default_np(&lAttributes);
    pthread_attr_destroy(&lAttributes);
}

int sRun(const std::vector<std::string>& acrWords, ZTCServiceLog& arLog) {
    const ZTSSnOptions lOptions = readSnOptions(acrWords);
    sKeepSmall();
    sLockMemory(arLog);
    ZTCSensor lSensor(lOptions, acrWords, arLog);
    return lSensor.run();
}

}  // namespace

int main(int argc, char** argv) {
    umask(027);  // the group reads the history
    return runService("vrx-sn", argc, argv, sRun);
}
