#include "StandingWrites.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

std::atomic<bool> sStand{false};
std::atomic<unsigned int> sStanding{0};
std::atomic<const char*> sReadsStand{nullptr};
std::atomic<unsigned int> sReadsStanding{0};

template <class Condition>
void sStandWhile(std::atomic<unsigned int>& arStanding, const Condition& acrCondition) {
    ++arStanding;
    while (acrCondition()) {
        const timespec lTime{0, 1000000};
        nanosleep(&lTime, nullptr);
    }
    --arStanding;
}

void sStandBeforeRead(int aFile) {
    if (sReadsStand.load() == nullptr) {
        return;
    }
    char lLink[64];
    char lPath[4096]{};
    snprintf(lLink, sizeof lLink, "/proc/self/fd/%d", aFile);
    const bool lIsNamed = readlink(lLink, lPath, sizeof lPath - 1) > 0;
    const auto lStands = [&] {
        const char* const lpPart = sReadsStand.load();
        return lIsNamed && lpPart != nullptr && strstr(lPath, lpPart) != nullptr;
    };
    if (lStands()) {
        sStandWhile(sReadsStanding, lStands);
    }
}

}  // namespace

void ZTSetReadsStand(const char* apPart) {
    sReadsStand.store(apPart);
}

bool ZTIsAReadStanding() {
    return sReadsStanding.load() != 0;
}

void ZTSetWritesStand(bool aStand) {
    sStand.store(aStand);
}

bool ZTIsAWriteStanding() {
    return sStanding.load() != 0;
}

extern "C" {

ssize_t __real_write(int aFile, const void* apBytes, size_t aSize);
ssize_t __real_read(int aFile, void* apBytes, size_t aSize);
ssize_t __real_pread(int aFile, void* apBytes, size_t aSize, off_t aAt);

ssize_t __wrap_read(int aFile, void* apBytes, size_t aSize) {
    sStandBeforeRead(aFile);
    return __real_read(aFile, apBytes, aSize);
}

ssize_t __wrap_pread(int aFile, void* apBytes, size_t aSize, off_t aAt) {
    sStandBeforeRead(aFile);
    return __real_pread(aFile, apBytes, aSize, aAt);
}

// In the place of write, by the linker.
ssize_t __wrap_write(int aFile, const void* apBytes, size_t aSize) {
    struct stat lStatus {};
    if (sStand.load() && fstat(aFile, &lStatus) == 0 && S_ISREG(lStatus.st_mode)) {
        sStandWhile(sStanding, [] { return sStand.load(); });
    }
    return __real_write(aFile, apBytes, aSize);
}
}
