// What the daemon, which runs as root, does not touch. Each check throws ZTCOsException with one line that
// names the path and what is wrong with it.
#pragma once

#include <sys/stat.h>

#include "Descriptor.h"

/// The path is a directory in which nobody but us and root can put or replace files: no other owner, and
/// writable for others only with the sticky bit.
void OsCheckDirectory(const char* apPath);

/// The open descriptor is what it must be: of the type (S_IFREG, S_IFIFO), owned by us, with one link.
void OsCheckFile(int aDescriptor, const char* apPath, mode_t aType);

/// What was found at the path, not following a link, may be believed: it is a regular file, of root or of us,
/// with one link.
void OsCheckOurFile(const struct stat& acrStatus, const char* apPath);

/// Opens such a file, with what open() takes. It is looked at first and only then opened: a link may lead
/// anywhere, and to open a device has effects. With O_CREAT one that is missing is made. The exception's code
/// is ENOENT when there is none.
ZTCDescriptor OsOpenOurFile(const char* apPath, int aFlags, mode_t aMode = 0);

/// The file and every directory that leads to it can be changed by nobody but us and root. Writes the file's
/// path, without symbolic links, into PATH_MAX bytes of room.
void OsCheckCode(const char* apPath, char* apResolved);
