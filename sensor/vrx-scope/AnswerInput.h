// Reads files of raw answers, one answer at a time.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Fetched.h"

/// What is wrong with the file is told on standard error when it is come to, the first time. One thread.
class ZTCAnswerInput {
  public:
    /// aPath "-": standard input. aIsReadTwice: there will be a rewind(). What is no regular file comes only
    /// once, so that its answers are copied into a temporary file then, which has no name.
    ZTCAnswerInput(std::string aPath, bool aIsReadTwice)
        : mPath(std::move(aPath)), mIsReadTwice(aIsReadTwice) {}

    /// The next answer that can be read; nothing at the end, or where nothing behind can be read.
    std::optional<ZTSFetched> next();
    /// Begins anew. What somebody has added to the file meanwhile stays out; what has gone from it is wrong.
    void rewind();
    /// Whether everything so far could be read.
    bool areGood() const { return mAreGood; }

  private:
    struct Closer {
        void operator()(FILE* apFile) const { fclose(apFile); }
    };
    using File = std::unique_ptr<FILE, Closer>;

    static File makeCopy();
    void open();
    bool readMessage();
    std::size_t readInto(std::size_t aAt, std::size_t aCount);
    [[noreturn]] void fail(const char* apWhat) const;

    const std::string mPath;
    const bool mIsReadTwice;
    File mOwned;             ///< the file, if it was opened here
    FILE* mpFile = nullptr;  ///< it, standard input, or behind the rewind the copy
    File mCopy;
    long mStart = 0;                     ///< where the first answer begins in it
    ZTSensorBytes mMessage;              ///< the last one, whole
    std::uint64_t mBegin = 0;            ///< where it begins, counted from the first
    std::uint64_t mEnd = 0;              ///< and ends
    std::optional<std::uint64_t> mLast;  ///< set by the rewind: where the last whole one ends
    std::vector<std::uint64_t> mTold;    ///< where those begin that were told to be wrong, in their order
    bool mAreGood = true;
};
