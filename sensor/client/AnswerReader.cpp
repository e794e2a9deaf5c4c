#include "AnswerReader.h"

#include <algorithm>

namespace {

constexpr std::size_t sChunk = 64 * 1024;

[[noreturn]] void fail(const std::string& acrWhat) {
    throw ZTCMalformedAnswerError("malformed answer: " + acrWhat +
                                  " (is it an agent that serves these pipes?)");
}

}  // namespace

ZTSensorBytes ZTCAnswerReader::read(std::uint32_t aTag) {
    for (;;) {
        const ZTSSensorHeader lHeader = readHeader();
        if (lHeader.mTag != aTag) {
            skip(lHeader.mLength);
            continue;
        }
        if (lHeader.mLength == 0 || lHeader.mLength > MaxAnswer) {
            fail("its header says " + std::to_string(lHeader.mLength) + " bytes");
        }
        ZTSensorBytes lMessage(mBuffer.begin() + static_cast<std::ptrdiff_t>(mAt - ZTSSensorHeader::Size),
                               mBuffer.begin() + static_cast<std::ptrdiff_t>(mAt));
        for (std::size_t lLeft = lHeader.mLength; lLeft != 0;) {
            const std::size_t lPart = std::min(lLeft, sChunk);
            lMessage.resize(lMessage.size() + lPart);
            readInto(lMessage.data() + lMessage.size() - lPart, lPart);
            lLeft -= lPart;
        }
        return lMessage;
    }
}

// Leaves the header's bytes in the buffer, before the place that it has come to.
ZTSSensorHeader ZTCAnswerReader::readHeader() {
    for (std::size_t lSkipped = 0;; ++lSkipped) {
        while (mBuffer.size() - mAt < ZTSSensorHeader::Size) {
            fill();
        }
        const auto lHeader = ZTSSensorHeader::decode({mBuffer.data() + mAt, ZTSSensorHeader::Size});
        if (lHeader) {
            mIsInStep = true;
            mAt += ZTSSensorHeader::Size;
            return *lHeader;
        }
        if (mIsInStep || lSkipped == MaxAnswer) {
            fail("a message does not begin with VRX1");
        }
        ++mAt;
    }
}

// Adds what comes to the buffer, and lets go of what has been read.
void ZTCAnswerReader::fill() {
    mBuffer.erase(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(mAt));
    mAt = 0;
    const std::size_t lHeld = mBuffer.size();
    mBuffer.resize(lHeld + sChunk);
    std::size_t lCome = 0;
    try {
        lCome = mSource(mBuffer.data() + lHeld, sChunk);
    } catch (...) {
        mBuffer.resize(lHeld);
        throw;
    }
    mBuffer.resize(lHeld + lCome);
}

void ZTCAnswerReader::readInto(std::uint8_t* apBytes, std::size_t aCount) {
    while (aCount != 0) {
        if (mAt == mBuffer.size()) {
            fill();
        }
        const std::size_t lPart = std::min(aCount, mBuffer.size() - mAt);
        apBytes = std::copy_n(mBuffer.data() + mAt, lPart, apBytes);
        mAt += lPart;
        aCount -= lPart;
    }
}

void ZTCAnswerReader::skip(std::size_t aCount) {
    while (aCount != 0) {
        if (mAt == mBuffer.size()) {
            fill();
        }
        const std::size_t lPart = std::min(aCount, mBuffer.size() - mAt);
        mAt += lPart;
        aCount -= lPart;
    }
}
