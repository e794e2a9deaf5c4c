#include "ThreadsBarrier.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

bool OsInitThreadsBarrier() {
    return syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
}

void OsThreadsBarrier() {
    syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0);
}
