// Loaded before a program's own libraries (LD_PRELOAD), makes the directory that ZT_TEST_DISK names a disk
// that stands still: while DIRECTORY.stands exists, whoever makes or writes a file in it waits.
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

static void sWait(const char* apPath) {
    const char* const lpDisk = getenv("ZT_TEST_DISK");
    char lSwitch[4096];
    if (lpDisk == NULL || strncmp(apPath, lpDisk, strlen(lpDisk)) != 0) {
        return;
    }
    snprintf(lSwitch, sizeof lSwitch, "%s.stands", lpDisk);
    while (access(lSwitch, F_OK) == 0) {
        const struct timespec lTime = {0, 1000000};
        nanosleep(&lTime, NULL);
    }
}

static void sWaitFor(int aFile) {
    char lLink[64];
    char lPath[4096];
    snprintf(lLink, sizeof lLink, "/proc/self/fd/%d", aFile);
    const ssize_t lLength = readlink(lLink, lPath, sizeof lPath - 1);
    if (lLength > 0) {
        lPath[lLength] = '\0';
        sWait(lPath);
    }
}

int open(const char* apPath, int aFlags, ...) {
    va_list lMore;
    va_start(lMore, aFlags);
    const int lMode = (aFlags & O_CREAT) != 0 ? va_arg(lMore, int) : 0;
    va_end(lMore);
    if ((aFlags & O_CREAT) != 0) {
        sWait(apPath);
    }
    return (int)syscall(SYS_openat, AT_FDCWD, apPath, aFlags, lMode);
}

int rename(const char* apFrom, const char* apTo) {
    sWait(apTo);
    return (int)syscall(SYS_renameat2, AT_FDCWD, apFrom, AT_FDCWD, apTo, 0);
}

ssize_t write(int aFile, const void* apBytes, size_t aSize) {
    sWaitFor(aFile);
    return syscall(SYS_write, aFile, apBytes, aSize);
}

ssize_t pwrite(int aFile, const void* apBytes, size_t aSize, off_t aAt) {
    sWaitFor(aFile);
    return syscall(SYS_pwrite64, aFile, apBytes, aSize, aAt);
}
