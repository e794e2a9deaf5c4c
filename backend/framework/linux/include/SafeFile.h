// What the daemon, which runs as root, does not touch. Each check throws ZTCOsException with one line that
// names the path and what is wrong with it.
#pragma once

#include <sys/stat.h>

/// The path is a directory in which nobody but us and root can put or replace files: no other owner, and
/// writable for others only with the sticky bit.
void OsCheckDirectory(const char* apPath);

/// The open descriptor is what it must be: of the type (S_IFREG, S_IFIFO), owned by us, with one link.
void OsCheckFile(int aDescriptor, const char* apPath, mode_t aType);

/// The file and every directory that leads to it can be changed by nobody but us and root. Writes the file's
/// path, without symbolic links, into PATH_MAX bytes of room.
void OsCheckCode(const char* apPath, char* apResolved);
