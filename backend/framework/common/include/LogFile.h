// Where the log's lines go: memory until a file is named, then the file. See Log.h.
//
// Used by one thread at a time, under the log's drain lock. Failing to write never stops anything: lines that
// could not be written are counted, and a line that went out in part is completed before anything else, so
// every line of the file is whole.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

#include "LogLine.h"

class ZTCLogFile {
  public:
    /// Opens the path for appending, made with mode 0640, following no link, and no file of another
    /// user's or with two names. Returns 0: a line that a killed process has left without its end is given
    /// one, then comes what was kept in memory. Or returns the errno, and nothing has changed.
    int open(const char* apPath);

    /// Takes whole lines. What cannot be written, or kept while there is no file, is counted.
    void put(const char* apLines, std::size_t aSize);

    /// Counts kept or lost lines as shown nowhere, and keeps no more: for help and version.
    void discard();

    /// Writes what is kept, if there is still no file, to standard error: at the end of the process.
    void spill();

    bool isOpen() const { return mFile >= 0; }

    /// Lines that could not be written and have not been told yet; the errno of the last failure.
    std::uint64_t lost() const { return mLost; }
    int lastError() const { return mLastError; }
    void setLost(std::uint64_t aLost) { mLost = aLost; }

    /// Whether a line stands in the file in part.
    bool isTorn() const { return mTorn != 0; }
    /// Completes the line that went out in part, if there is one. False: the file takes nothing now.
    bool completeLine();

  private:
    void keep(const char* apLines, std::size_t aSize);
    void putToFile(const char* apLines, std::size_t aSize);
    std::size_t writeSome(const char* apBytes, std::size_t aSize);
    void lose(const char* apLines, std::size_t aSize);

    int mFile = -1;
    int mLastError = 0;
    std::uint64_t mLost = 0;
    bool mDiscards = false;
    char* mpKept = nullptr;
    std::size_t mKept = 0;
    std::size_t mKeptRoom = 0;
    std::size_t mTorn = 0;  ///< bytes of mTornText still to be written
    char mTornText[ZTCLogLine::MaxLine]{};
};
