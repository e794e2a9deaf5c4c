// The file that the log's lines go to. See Log.h.
//
// Used by the log's writer alone. Failing to write never stops anything: lines that could not be written are
// counted, and a line that went out in part is completed before anything else, so every line of the file is
// whole.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "LogLine.h"

class ZTCLogFile {
  public:
    /// Opens the path for appending, made with mode 0640, following no link: a regular file of ours or of
    /// root's with one name, or a device below /dev. Returns 0: a line that a killed process has left
    /// without its end is given one. Or returns the errno, and nothing has changed.
    int open(const char* apPath);

    /// Makes the file at the path, which is this one, apPath.1, in place of the one before, and begins a new
    /// one. When the path has become another file (somebody has moved ours away), that one is opened and
    /// nothing is moved. Returns 0, or the errno, and the file stays in use, under its name.
    int rotate(const char* apPath);

    /// Takes whole lines. Returns how many were lost since the last call, because they could not be written.
    std::uint64_t put(const char* apLines, std::size_t aSize);

    bool isOpen() const { return mFile >= 0; }
    /// Bytes in the file; 0 for a device.
    std::uint64_t size() const { return mIsRegular ? mSize : 0; }

    /// The errno of the last failure to write.
    int lastError() const { return mLastError; }

    /// Whether a line stands in the file in part.
    bool isTorn() const { return mTorn != 0; }
    /// Completes the line that went out in part, if there is one. False: the file takes nothing now.
    bool completeLine();

  private:
    void use(int aFile, bool aIsTorn);
    std::size_t writeSome(const char* apBytes, std::size_t aSize);

    int mFile = -1;  ///< not closed with this: there is a log until the process is gone
    bool mIsRegular = false;
    int mLastError = 0;
    std::uint64_t mSize = 0;
    std::uint64_t mLost = 0;  ///< since the last call of put
    std::size_t mTorn = 0;    ///< bytes of mTornText still to be written
    char mTornText[ZTCLogLine::MaxLine]{};
};
