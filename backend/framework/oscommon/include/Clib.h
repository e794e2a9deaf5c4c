// The C library's calls that can fail, under the framework's names. Each throws an exception derived from
// ZTCClibEx, with the operation, what it was done to and the errno's text, instead of returning an error.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include "ClibMemory.h"

/// stat of the path itself: of a symbolic link, not of what it leads to. Throws ZTCClibStatFailedEx.
void ClibStat(const char* apPath, struct stat* apResult);

/// Sets the file's access and modification time to now, following no link. Throws ZTCClibUtimeFailedEx.
void ClibUtime(const char* apPath);

/// Makes a directory; the mode is passed on as it is. Throws ZTCExistsEx when the path exists, else
/// ZTCClibEx.
void ClibMkdir(const char* apPath, int aMode);

/// Copies the value of an environment variable into aSize bytes. Throws ZTCClibEx when it is not set (ENOENT)
/// or too long (ENAMETOOLONG); the bytes are then not touched.
void ClibGetenv(const char* apName, char* apValue, std::size_t aSize);

/// The same into an array, whose size the compiler knows.
template <std::size_t Size>
void ClibGetenv(const char* apName, char (&arValue)[Size]) {
    ClibGetenv(apName, arValue, Size);
}
