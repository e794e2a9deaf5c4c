/* To be preloaded: fails a program's calls for memory, or one kind of its system calls, from a count on.
 *
 * ZT_SCARCE is WHAT:FROM[:ONLY[:ERRNO]]. WHAT is "memory" or the name of one of the functions below, FROM the
 * number, from 1, of the first call in the process that fails; with 1 for ONLY it fails alone. ZT_SCARCE_MARK
 * names a file that is made when a call has failed. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

extern void* __libc_malloc(size_t);
extern void* __libc_calloc(size_t, size_t);
extern void* __libc_realloc(void*, size_t);
extern void* __libc_memalign(size_t, size_t);

static atomic_long sCount;

/* Whether this call fails; then errno is set. Allocates nothing. */
static int is_scarce(const char* what) {
    const char* at = environ == NULL ? NULL : getenv("ZT_SCARCE");
    const size_t length = strlen(what);
    if (at == NULL || strncmp(at, what, length) != 0 || at[length] != ':') {
        return 0;
    }
    char* end = NULL;
    const long from = strtol(at + length + 1, &end, 10);
    const long only = *end == ':' ? strtol(end + 1, &end, 10) : 0;
    const long number = *end == ':' ? strtol(end + 1, &end, 10) : ENOMEM;
    const long count = atomic_fetch_add(&sCount, 1) + 1;
    if (count < from || (only && count != from)) {
        return 0;
    }
    const char* const mark = getenv("ZT_SCARCE_MARK");
    if (count == from && mark != NULL) {
        syscall(SYS_close, syscall(SYS_openat, AT_FDCWD, mark, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    }
    errno = (int)number;
    return 1;
}

EXPORT void* malloc(size_t size) {
    return is_scarce("memory") ? NULL : __libc_malloc(size);
}
EXPORT void* calloc(size_t count, size_t size) {
    return is_scarce("memory") ? NULL : __libc_calloc(count, size);
}
EXPORT void* realloc(void* block, size_t size) {
    return is_scarce("memory") ? NULL : __libc_realloc(block, size);
}
EXPORT void* aligned_alloc(size_t alignment, size_t size) {
    return is_scarce("memory") ? NULL : __libc_memalign(alignment, size);
}
EXPORT int posix_memalign(void** block, size_t alignment, size_t size) {
    void* const made = is_scarce("memory") ? NULL : __libc_memalign(alignment, size);
    if (made == NULL) {
        return ENOMEM;
    }
    *block = made;
    return 0;
}

/* NAME has TYPE for its result and PARAMETERS, which are passed on as ARGUMENTS. */
#define FAILING(TYPE, NAME, PARAMETERS, ARGUMENTS)              \
    EXPORT TYPE NAME PARAMETERS {                               \
        static TYPE(*_Atomic real) PARAMETERS;                  \
        if (is_scarce(#NAME)) {                                 \
            return -1;                                          \
        }                                                       \
        if (real == NULL) {                                     \
            real = (TYPE(*) PARAMETERS)dlsym(RTLD_NEXT, #NAME); \
        }                                                       \
        return real ARGUMENTS;                                  \
    }
FAILING(int, pipe2, (int ends[2], int flags), (ends, flags))
FAILING(int, mkfifo, (const char* path, mode_t mode), (path, mode))
FAILING(int, fstat, (int file, struct stat* status), (file, status))
FAILING(int, stat, (const char* path, struct stat* status), (path, status))
FAILING(int, lstat, (const char* path, struct stat* status), (path, status))
FAILING(int, chmod, (const char* path, mode_t mode), (path, mode))
FAILING(int, unlink, (const char* path), (path))
FAILING(int, socket, (int domain, int type, int protocol), (domain, type, protocol))
FAILING(int, poll, (struct pollfd * polls, nfds_t count, int time), (polls, count, time))
FAILING(ssize_t, read, (int file, void* bytes, size_t size), (file, bytes, size))
FAILING(ssize_t, write, (int file, const void* bytes, size_t size), (file, bytes, size))
FAILING(ssize_t, writev, (int file, const struct iovec* pieces, int count), (file, pieces, count))
FAILING(ssize_t, pwrite, (int file, const void* bytes, size_t size, off_t at), (file, bytes, size, at))
FAILING(int, ftruncate, (int file, off_t size), (file, size))
FAILING(int, eventfd, (unsigned int count, int flags), (count, flags))
FAILING(int, epoll_create1, (int flags), (flags))
FAILING(int, ppoll, (struct pollfd * polls, nfds_t count, const struct timespec* time, const sigset_t* mask),
        (polls, count, time, mask))
FAILING(int, chdir, (const char* path), (path))
FAILING(int, dup2, (int from, int to), (from, to))

EXPORT int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return is_scarce("open") ? -1 : (int)syscall(SYS_openat, AT_FDCWD, path, flags, mode);
}
EXPORT int openat(int directory, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return is_scarce("openat") ? -1 : (int)syscall(SYS_openat, directory, path, flags, mode);
}
/* These return the error. */
EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
    static int (*_Atomic real)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    if (is_scarce("pthread_create")) {
        return errno;
    }
    if (real == NULL) {
        real = (int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*))dlsym(RTLD_NEXT,
                                                                                          "pthread_create");
    }
    return real(thread, attributes, run, argument);
}
