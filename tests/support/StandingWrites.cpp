#include "StandingWrites.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace {

std::atomic<bool> sStand{false};
std::atomic<unsigned int> sStanding{0};

}  // namespace

void ZTSetWritesStand(bool aStand) {
    sStand.store(aStand);
}

bool ZTIsAWriteStanding() {
    return sStanding.load() != 0;
}

extern "C" {

ssize_t __real_write(int aFile, const void* apBytes, size_t aSize);

// In the place of write, by the linker.
ssize_t __wrap_write(int aFile, const void* apBytes, size_t aSize) {
    struct stat lStatus {};
    if (sStand.load() && fstat(aFile, &lStatus) == 0 && S_ISREG(lStatus.st_mode)) {
        ++sStanding;
        while (sStand.load()) {
            const timespec lTime{0, 1000000};
            nanosleep(&lTime, nullptr);
        }
        --sStanding;
    }
    return __real_write(aFile, apBytes, aSize);
}
}
