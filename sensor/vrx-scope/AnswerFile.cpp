#include "AnswerFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Failure.h"

ZTCAnswerFile::ZTCAnswerFile(std::string aPath)
    : mPath(std::move(aPath)),
      mFile(open(mPath.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0640)) {
    if (!mFile.isOpen()) {
        throw ZTCScopeFailure(fmt::format("cannot write {}: {}", mPath, strerror(errno)));
    }
    checkWhole();
}

// What comes behind something that is no answer, or half of one, could not be read again.
void ZTCAnswerFile::checkWhole() const {
    struct stat lStatus {};
    if (fstat(mFile.get(), &lStatus) != 0 || !S_ISREG(lStatus.st_mode)) {
        return;
    }
    for (off_t lAt = 0; lAt != lStatus.st_size;) {
        std::uint8_t lBytes[ZTSSensorHeader::Size];
        const ssize_t lRead = pread(mFile.get(), lBytes, sizeof lBytes, lAt);
        const auto lHeader = lRead == sizeof lBytes ? ZTSSensorHeader::decode(lBytes) : std::nullopt;
        const off_t lEnd = lHeader ? lAt + static_cast<off_t>(sizeof lBytes + lHeader->mLength) : 0;
        if (!lHeader || lEnd > lStatus.st_size) {
            throw ZTCScopeFailure(
                lAt == 0 && !lHeader
                    ? fmt::format("{} is not added to: it holds something else than answers", mPath)
                    : fmt::format("{} is not added to: its last answer is cut short (truncate -s {} {})",
                                  mPath, lAt, mPath));
        }
        lAt = lEnd;
    }
}

void ZTCAnswerFile::add(const ZTSensorBytes& acrMessage) {
    const auto lFail = [&](int aError) {
        throw ZTCUnsavedAnswer(fmt::format("cannot write {}: {}{}", mPath, strerror(aError),
                                           mWholeEnd ? ", and its last message is cut short" : ""),
                               acrMessage);
    };
    if (mWholeEnd && ftruncate(mFile.get(), *mWholeEnd) != 0) {
        lFail(errno);
    }
    mWholeEnd.reset();
    const off_t lEnd = lseek(mFile.get(), 0, SEEK_END);
    int lError = 0;
    std::size_t lAt = 0;
    while (lAt < acrMessage.size() && lError == 0) {
        const ssize_t lWritten = write(mFile.get(), acrMessage.data() + lAt, acrMessage.size() - lAt);
        lError = lWritten < 0 && errno != EINTR ? errno : 0;
        lAt += lWritten < 0 ? 0 : static_cast<std::size_t>(lWritten);
    }
    if (lError == 0 && fdatasync(mFile.get()) != 0 && errno != EINVAL) {  // EINVAL: a pipe or a device
        lError = errno;
    }
    if (lError != 0) {
        // A message half written would hide those that come after it.
        if (lAt != 0 && ftruncate(mFile.get(), lEnd) != 0) {
            mWholeEnd = lEnd;
        }
        lFail(lError);
    }
}
