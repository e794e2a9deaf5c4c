// Loaded before a program's own libraries (LD_PRELOAD), sets the host's clock for it: by as many seconds
// forth or back as the file that ZT_TEST_CLOCK names has in its first 8 bytes, at once. The steady clock
// stays as it is.
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static const volatile int64_t* spStep = NULL;

__attribute__((constructor)) static void sOpen(void) {
    const char* const lpPath = getenv("ZT_TEST_CLOCK");
    const int lFile = lpPath != NULL ? open(lpPath, O_RDONLY | O_CLOEXEC) : -1;
    void* const lpMap = lFile >= 0 ? mmap(NULL, sizeof *spStep, PROT_READ, MAP_SHARED, lFile, 0) : MAP_FAILED;
    if (lFile >= 0) {
        close(lFile);
    }
    spStep = lpMap != MAP_FAILED ? lpMap : NULL;
}

int clock_gettime(clockid_t aClock, struct timespec* apTime) {
    const int lResult = (int)syscall(SYS_clock_gettime, aClock, apTime);
    if (spStep != NULL && (aClock == CLOCK_REALTIME || aClock == CLOCK_REALTIME_COARSE)) {
        apTime->tv_sec += *spStep;
    }
    return lResult;
}

int gettimeofday(struct timeval* restrict apTime, void* restrict apZone) {
    (void)apZone;
    struct timespec lTime;
    const int lResult = clock_gettime(CLOCK_REALTIME, &lTime);
    apTime->tv_sec = lTime.tv_sec;
    apTime->tv_usec = lTime.tv_nsec / 1000;
    return lResult;
}

time_t time(time_t* apTime) {
    struct timespec lTime;
    clock_gettime(CLOCK_REALTIME, &lTime);
    if (apTime != NULL) {
        *apTime = lTime.tv_sec;
    }
    return lTime.tv_sec;
}
