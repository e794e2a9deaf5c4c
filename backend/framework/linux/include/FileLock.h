// The lock on a pid file: held by an open file description, so that closing or touching the file elsewhere in
// the process does not drop it. It ends with the process, whatever ends that.
#pragma once

#include <sys/types.h>

/// Locks the whole file for writing. False: another holds it. Throws ZTCOsException.
bool OsLockFile(int aDescriptor);

/// Whether another open file description holds the lock. Takes nothing, so it disturbs no one who locks.
bool OsIsFileLocked(int aDescriptor);

/// The process that holds the lock on the file, as the kernel tells it; 0 when none is found. What stands in
/// the file plays no part.
pid_t OsFindLockHolder(int aDescriptor);
