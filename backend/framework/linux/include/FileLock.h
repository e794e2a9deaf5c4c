// The lock on a pid file, by which an instance is known: for writing, on the whole file, and held by an open
// file description, so that closing or touching the file elsewhere in the process does not drop it. It ends
// with the process, whatever ends that. No other kind of lock on the file means anything: anybody who may
// read it may hold one.
#pragma once

#include <sys/types.h>

/// Takes the lock. False: another holds it, or a lock that does not go with it. Throws ZTCOsException.
bool OsLockFile(int aDescriptor);

/// Whether another open file description holds the lock. Takes nothing, so it disturbs no one who locks.
bool OsIsFileLocked(int aDescriptor);

/// The process of our user that holds the lock, as the kernel tells it; 0 when none is found. What stands in
/// the file plays no part.
pid_t OsFindLockHolder(int aDescriptor);
