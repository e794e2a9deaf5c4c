#include "AnswerInput.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "AnswerReader.h"
#include "Collector.h"
#include "Failure.h"
#include "SensorFiles.h"
#include "Terminal.h"

namespace {

bool sIsRegular(FILE* apFile) {
    struct stat lStatus {};
    return fstat(fileno(apFile), &lStatus) == 0 && S_ISREG(lStatus.st_mode);
}

}  // namespace

std::optional<ZTSFetched> ZTCAnswerInput::next() {
    try {
        while (readMessage()) {
            try {
                return readFetched(mMessage, {});
            } catch (const ZTCSensorError& lrError) {
                const auto lAt = std::lower_bound(mTold.begin(), mTold.end(), mBegin);
                if (lAt == mTold.end() || *lAt != mBegin) {
                    mTold.insert(lAt, mBegin);
                    mAreGood = false;
                    complain(fmt::format("{}: the message at byte {}: {}", mPath, mBegin, lrError.what()));
                }
            }
        }
    } catch (const ZTCScopeFailure& lrError) {
        mAreGood = false;
        complain(lrError.what());
    }
    return {};
}

void ZTCAnswerInput::rewind() {
    if (mCopy != nullptr) {
        mpFile = mCopy.get();
        mStart = 0;
    }
    if (mpFile != nullptr) {
        fseek(mpFile, mStart, SEEK_SET);
    }
    mLast = mEnd;
    mEnd = 0;
}

void ZTCAnswerInput::open() {
    mpFile = stdin;
    if (mPath != "-") {
        mOwned.reset(fopen(mPath.c_str(), "re"));
        if (mOwned == nullptr) {
            throw ZTCScopeFailure(fmt::format("cannot read {}: {}", mPath, strerror(errno)));
        }
        mpFile = mOwned.get();
    }
    mStart = ftell(mpFile);
    if (mIsReadTwice && !sIsRegular(mpFile)) {
        mCopy = makeCopy();
    }
}

// Not in /tmp, which may be memory.
ZTCAnswerInput::File ZTCAnswerInput::makeCopy() {
    const char* const lpFolder = getenv("TMPDIR");
    std::string lName = lpFolder != nullptr && *lpFolder != '\0' ? lpFolder : "/var/tmp";
    ZTCSensorDescriptor lDescriptor(::open(lName.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    lName += "/vrx-scope.XXXXXX";
    if (!lDescriptor.isOpen()) {  // not every file system has files without a name
        lDescriptor = ZTCSensorDescriptor(mkostemp(lName.data(), O_CLOEXEC));
        if (lDescriptor.isOpen()) {
            unlink(lName.c_str());
        }
    }
    File lCopy(lDescriptor.isOpen() ? fdopen(lDescriptor.get(), "w+") : nullptr);
    if (lCopy == nullptr) {
        throw ZTCScopeFailure(fmt::format("cannot make {}: {}", lName, strerror(errno)));
    }
    lDescriptor.release();                     // it is the copy's
    setvbuf(lCopy.get(), nullptr, _IONBF, 0);  // a write that fails is told at once
    return lCopy;
}

// False: the end.
bool ZTCAnswerInput::readMessage() {
    if (mLast && mEnd >= *mLast) {
        return false;
    }
    if (mpFile == nullptr) {
        open();
    }
    mBegin = mEnd;
    const std::size_t lCome = readInto(0, ZTSSensorHeader::Size);
    if (lCome == 0 && !mLast) {
        return false;
    }
    if (lCome < ZTSSensorHeader::Size) {
        fail("is cut short");
    }
    const auto lHeader = ZTSSensorHeader::decode(mMessage);
    if (!lHeader || lHeader->mLength > ZTCAnswerReader::MaxAnswer) {
        fail("is none: is this a file of raw answers (vrx-scope record)?");
    }
    if (readInto(lCome, lHeader->mLength) < lHeader->mLength) {
        fail("is cut short");
    }
    if (mCopy != nullptr && !mLast && fwrite(mMessage.data(), mMessage.size(), 1, mCopy.get()) != 1) {
        throw ZTCScopeFailure(fmt::format("cannot write a temporary file: {}", strerror(errno)));
    }
    mEnd = mBegin + mMessage.size();
    return true;
}

// Puts bytes at a place of the message, which is its end then. Fewer: the file ends before.
std::size_t ZTCAnswerInput::readInto(std::size_t aAt, std::size_t aCount) {
    mMessage.resize(aAt + aCount);
    const std::size_t lCome = fread(mMessage.data() + aAt, 1, aCount, mpFile);
    if (lCome < aCount && ferror(mpFile) != 0) {
        fail("cannot be read");
    }
    return lCome;
}

void ZTCAnswerInput::fail(const char* apWhat) const {
    throw ZTCScopeFailure(fmt::format("{}: the message at byte {} {}", mPath, mBegin, apWhat));
}
