// A barrier between all threads of the process that only one of them pays for.
#pragma once

/// Whether OsThreadsBarrier can be used: once, before anybody relies on it. False on a system without it, or
/// where it is not allowed.
bool OsInitThreadsBarrier();

/// Returns when every thread of the process has passed a full memory barrier: what they stored before is seen
/// by the caller afterwards, and what the caller stored before is seen by what they load afterwards.
void OsThreadsBarrier();
