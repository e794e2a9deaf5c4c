// Loaded before a program's own libraries (LD_PRELOAD), makes the paths that ZT_TEST_DISK is a part of lie on
// a disk, and no file system be one in memory. While the file that ZT_TEST_STANDS names is there, whoever
// makes, writes, syncs or removes a file of it waits; while that of ZT_TEST_STILL is, so does who looks for,
// opens or reads one; while that of ZT_TEST_FULL is, the disk has no room for what is written at a place of a
// file, or for a file that is made.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

static bool sIsSwitched(const char* apVariable) {
    const char* const lpSwitch = getenv(apVariable);
    return lpSwitch != NULL && access(lpSwitch, F_OK) == 0;
}

// Whether it is a path of the disk: then this has waited for it.
static bool sWaitWhile(const char* apVariable, const char* apPath) {
    const char* const lpDisk = getenv("ZT_TEST_DISK");
    const bool lIsOnDisk = lpDisk != NULL && strstr(apPath, lpDisk) != NULL;
    while (lIsOnDisk && sIsSwitched(apVariable)) {
        const struct timespec lTime = {0, 1000000};
        nanosleep(&lTime, NULL);
    }
    return lIsOnDisk;
}

static bool sWait(const char* apPath) {
    return sWaitWhile("ZT_TEST_STANDS", apPath);
}

static bool sWaitForWhile(const char* apVariable, int aFile) {
    char lLink[64];
    char lPath[4096];
    snprintf(lLink, sizeof lLink, "/proc/self/fd/%d", aFile);
    const ssize_t lLength = readlink(lLink, lPath, sizeof lPath - 1);
    lPath[lLength > 0 ? lLength : 0] = '\0';
    return sWaitWhile(apVariable, lPath);
}

static bool sWaitFor(int aFile) {
    return sWaitForWhile("ZT_TEST_STANDS", aFile);
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
    sWaitWhile("ZT_TEST_STILL", apPath);
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

int open64(const char* apPath, int aFlags, ...) {
    va_list lMore;
    va_start(lMore, aFlags);
    const int lMode = (aFlags & O_CREAT) != 0 ? va_arg(lMore, int) : 0;
    va_end(lMore);
    sWaitWhile("ZT_TEST_STILL", apPath);
    return (int)syscall(SYS_openat, AT_FDCWD, apPath, aFlags, lMode);
}

int stat64(const char* apPath, struct stat64* apStatus) {
    sWaitWhile("ZT_TEST_STILL", apPath);
    return (int)syscall(SYS_newfstatat, AT_FDCWD, apPath, apStatus, 0);
}

int stat(const char* apPath, struct stat* apStatus) {
    return stat64(apPath, (struct stat64*)apStatus);
}

ssize_t pread64(int aFile, void* apBytes, size_t aSize, off64_t aAt) {
    sWaitForWhile("ZT_TEST_STILL", aFile);
    return syscall(SYS_pread64, aFile, apBytes, aSize, aAt);
}

ssize_t pread(int aFile, void* apBytes, size_t aSize, off_t aAt) {
    return pread64(aFile, apBytes, aSize, aAt);
}
