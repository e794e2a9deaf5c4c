// Who has which file open, as /proc tells it.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

/// What a process has a file open for.
struct ZTSOpenFile {
    std::string mPath;       ///< as it was opened, or where it has been moved to
    struct stat mStatus {};  ///< of the file
    bool mIsWritten = false;
    bool mIsAppended = false;
    std::string
        mLock{};  ///< the kind of write lock that was taken through it ("OFDLCK", "FLOCK"), if one was
};
/// The first descriptor of the process for which the condition holds, of those whose path holds the part: no
/// other file is touched, because one on a server that does not answer would not let go.
std::optional<ZTSOpenFile> findOpenFile(pid_t aProcess, const std::string& acrPart,
                                        const std::function<bool(const ZTSOpenFile&)>& acrCondition);

/// The first process with such a descriptor on the file, or 0. acrPath: the file's, of which the last name
/// counts. Only the caller's own processes are seen, unless it is root.
pid_t findProcessWith(const struct stat& acrFile, const std::string& acrPath,
                      const std::function<bool(const ZTSOpenFile&)>& acrCondition);

/// "process 1234 (vrx-scope)", with a name that may be shown, or "another process" for 0.
std::string describeProcess(pid_t aProcess);

/// When it began. Nothing if there is no such process.
std::optional<std::chrono::system_clock::time_point> getProcessStart(pid_t aProcess);

/// Waits for a process's end. False: it has not ended in that time. One that is not there has ended.
bool waitForEnd(pid_t aProcess, std::chrono::milliseconds aTime);
