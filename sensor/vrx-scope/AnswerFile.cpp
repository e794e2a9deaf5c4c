#include "AnswerFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "AnswerReader.h"
#include "Failure.h"

ZTCAnswerFile::ZTCAnswerFile(std::string aPath)
    : mPath(std::move(aPath)),
      mFile(open(mPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0640)) {
    if (!mFile.isOpen()) {
        throw ZTCScopeFailure(fmt::format("cannot write {}: {}", mPath, strerror(errno)));
    }
}

void ZTCAnswerFile::add(const ZTSensorBytes& acrMessage) {
    const off_t lEnd = lseek(mFile.get(), 0, SEEK_END);
    int lError = 0;
    for (std::size_t lAt = 0; lAt < acrMessage.size() && lError == 0;) {
        const ssize_t lWritten = write(mFile.get(), acrMessage.data() + lAt, acrMessage.size() - lAt);
        lError = lWritten < 0 && errno != EINTR ? errno : 0;
        lAt += lWritten < 0 ? 0 : static_cast<std::size_t>(lWritten);
    }
    if (lError == 0 && fdatasync(mFile.get()) != 0 && errno != EINVAL) {  // EINVAL: a pipe or a device
        lError = errno;
    }
    if (lError != 0) {
        // A message half written would hide those that come after it.
        const bool lIsAsItWas = lEnd >= 0 && ftruncate(mFile.get(), lEnd) == 0;
        throw ZTCUnsavedAnswer(
            fmt::format("cannot write {}: {}{}; what was fetched:", mPath, strerror(lError),
                        lIsAsItWas ? "" : ", and its last message is cut short"),
            acrMessage);
    }
}

void eachAnswer(const std::string& acrPath, const std::function<bool(const ZTSensorBytes&)>& acrDo) {
    std::ifstream lFile;
    if (acrPath != "-") {
        lFile.open(acrPath, std::ios::binary);
        if (!lFile) {
            throw ZTCScopeFailure(fmt::format("cannot read {}: {}", acrPath, strerror(errno)));
        }
    }
    std::istream& lrInput = acrPath == "-" ? std::cin : lFile;
    std::uint64_t lOffset = 0;
    const auto lFail = [&](const std::string& acrWhat) {
        throw ZTCScopeFailure(fmt::format("{}: the message at byte {} {}", acrPath, lOffset, acrWhat));
    };
    const auto lRead = [&](ZTSensorBytes& arMessage, std::size_t aCount) {
        const std::size_t lHeld = arMessage.size();
        arMessage.resize(lHeld + aCount);
        lrInput.read(reinterpret_cast<char*>(arMessage.data() + lHeld), static_cast<std::streamsize>(aCount));
        arMessage.resize(lHeld + static_cast<std::size_t>(lrInput.gcount()));
    };
    for (;;) {
        ZTSensorBytes lMessage;
        lRead(lMessage, ZTSSensorHeader::Size);
        if (lMessage.empty()) {
            return;
        }
        if (lMessage.size() < ZTSSensorHeader::Size) {
            lFail("is cut short");
        }
        const auto lHeader = ZTSSensorHeader::decode(lMessage);
        if (!lHeader || lHeader->mLength > ZTCAnswerReader::MaxAnswer) {
            lFail("is none: is this a file of raw answers (vrx-scope record)?");
        }
        lRead(lMessage, lHeader->mLength);
        if (lMessage.size() < ZTSSensorHeader::Size + lHeader->mLength) {
            lFail("is cut short");
        }
        if (!acrDo(lMessage)) {
            return;
        }
        lOffset += lMessage.size();
    }
}
