/* Preloaded into the agent: a directory on a disk, for the file of the statistics alone. While the file that
 * ZT_TEST_FROZEN names is there, what is done to it stands still; while that of ZT_TEST_FULL is, it has no
 * room. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/vfs.h>
#include <unistd.h>

static int isThere(const char* variable) {
    const char* const name = getenv(variable);
    return name != NULL && access(name, F_OK) == 0;
}

static void freeze(const char* path) {
    while (strstr(path, "vrx-sca.stats") != NULL && isThere("ZT_TEST_FROZEN")) {
        usleep(1000);
    }
}

static void freezeFile(int file) {
    char link[64];
    char path[4096] = "";
    snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    if (readlink(link, path, sizeof path - 1) > 0) {
        freeze(path);
    }
}

int statfs(const char* path, struct statfs* status) {
    int (*const real)(const char*, struct statfs*) =
        (int (*)(const char*, struct statfs*))dlsym(RTLD_NEXT, "statfs");
    const int result = real(path, status);
    status->f_type = 0xef53;
    return result;
}

int open(const char* path, int flags, ...) {
    int (*const real)(const char*, int, ...) = (int (*)(const char*, int, ...))dlsym(RTLD_NEXT, "open");
    va_list arguments;
    va_start(arguments, flags);
    const unsigned int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned int) : 0;
    va_end(arguments);
    freeze(path);
    return real(path, flags, mode);
}

int posix_fallocate(int file, off_t offset, off_t size) {
    int (*const real)(int, off_t, off_t) = (int (*)(int, off_t, off_t))dlsym(RTLD_NEXT, "posix_fallocate");
    freezeFile(file);
    return isThere("ZT_TEST_FULL") ? ENOSPC : real(file, offset, size);
}

ssize_t pwrite(int file, const void* bytes, size_t size, off_t offset) {
    ssize_t (*const real)(int, const void*, size_t, off_t) =
        (ssize_t(*)(int, const void*, size_t, off_t))dlsym(RTLD_NEXT, "pwrite");
    freezeFile(file);
    return real(file, bytes, size, offset);
}

int unlink(const char* path) {
    int (*const real)(const char*) = (int (*)(const char*))dlsym(RTLD_NEXT, "unlink");
    freeze(path);
    return real(path);
}
