// The library's own lines: what it cannot hand on as an event.
#pragma once

#include <string>

/// Any thread. A line that cannot be written is dropped.
class ZTCFcJournal {
  public:
    /// To the file, which is opened for each line; to the system's log if the path is empty.
    explicit ZTCFcJournal(std::string aPath) : mPath(std::move(aPath)) {}

    __attribute__((format(printf, 2, 3))) void note(const char* apFormat, ...) const;

  private:
    const std::string mPath;
};
