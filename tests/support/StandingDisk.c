// Loaded before a program's own libraries (LD_PRELOAD), makes the paths that ZT_TEST_DISK is a part of lie on
// a disk, and no file system be one in memory. While the file that ZT_TEST_STANDS names is there, whoever
// makes, writes, syncs or removes a file of it waits; while that of ZT_TEST_FULL is, the disk has no room for
// what is written at a place of a file, or for a file that is made.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

static bool sIsSwitched(const char* apVariable) {
    const char* const lpSwitch = getenv(apVariable);
    return lpSwitch != NULL && access(lpSwitch, F_OK) == 0;
}

// Whether it is a path of the disk: then this has waited for it.
static bool sWait(const char* apPath) {
    const char* const lpDisk = getenv("ZT_TEST_DISK");
    const bool lIsOnDisk = lpDisk != NULL && strstr(apPath, lpDisk) != NULL;
    while (lIsOnDisk && sIsSwitched("ZT_TEST_STANDS")) {
        const struct timespec lTime = {0, 1000000};
        nanosleep(&lTime, NULL);
    }
    return lIsOnDisk;
}

static bool sWaitFor(int aFile) {
    char lLink[64];
    char lPath[4096];
    snprintf(lLink, sizeof lLink, "/proc/self/fd/%d", aFile);
    const ssize_t lLength = readlink(lLink, lPath, sizeof lPath - 1);
    lPath[lLength > 0 ? lLength : 0] = '\0';
    return sWait(lPath);
}

int statfs(const char* apPath, struct statfs* apStatus) {
    const int lResult = (int)syscall(SYS_statfs, apPath, apStatus);
    apStatus->f_type = EXT4_SUPER_MAGIC;
    return lResult;
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

int posix_fallocate(int aFile, off_t aAt, off_t aSize) {
    sWaitFor(aFile);
    if (sIsSwitched("ZT_TEST_FULL")) {
        return ENOSPC;
    }
    return syscall(SYS_fallocate, aFile, 0, aAt, aSize) == 0 ? 0 : errno;
}

int rename(const char* apFrom, const char* apTo) {
    sWait(apTo);
    return (int)syscall(SYS_renameat2, AT_FDCWD, apFrom, AT_FDCWD, apTo, 0);
}

int unlink(const char* apPath) {
    sWait(apPath);
    return (int)syscall(SYS_unlink, apPath);
}

ssize_t write(int aFile, const void* apBytes, size_t aSize) {
    sWaitFor(aFile);
    return syscall(SYS_write, aFile, apBytes, aSize);
}

ssize_t pwrite(int aFile, const void* apBytes, size_t aSize, off_t aAt) {
    if (sWaitFor(aFile) && sIsSwitched("ZT_TEST_FULL")) {
        errno = ENOSPC;
        return -1;
    }
    return syscall(SYS_pwrite64, aFile, apBytes, aSize, aAt);
}

ssize_t pwrite64(int aFile, const void* apBytes, size_t aSize, off64_t aAt) {
    return pwrite(aFile, apBytes, aSize, aAt);
}

int fsync(int aFile) {
    sWaitFor(aFile);
    return (int)syscall(SYS_fsync, aFile);
}

int fdatasync(int aFile) {
    sWaitFor(aFile);
    return (int)syscall(SYS_fdatasync, aFile);
}
