#include "AnswerReader.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t sChunk = 64 * 1024;

[[noreturn]] void sFail(const std::string& acrWhat) {
    throw ZTCMalformedAnswerError("malformed answer: " + acrWhat +
                                  " (is it an agent that serves these pipes?)");
}

}  // namespace

ZTSensorBytes ZTCAnswerReader::read(std::uint32_t aTag) {
    for (;;) {
        if (!mHeader) {
            mHeader = readHeader();
            mLeft = mHeader->mLength;
        }
        const bool lIsWanted = mHeader->mTag == aTag;
        if (lIsWanted && (mHeader->mLength == 0 || mHeader->mLength > MaxAnswer)) {
            sFail("its header says " + std::to_string(mHeader->mLength) + " bytes");
        }
        if (!lIsWanted) {
            mMessage.clear();
        }
        while (mLeft != 0) {
            if (mAt == mBuffer.size()) {
                fill();
            }
            const std::size_t lPart = std::min(mLeft, mBuffer.size() - mAt);
            if (lIsWanted) {
                mMessage.insert(mMessage.end(), mBuffer.data() + mAt, mBuffer.data() + mAt + lPart);
            }
            mAt += lPart;
            mLeft -= lPart;
        }
        mHeader.reset();
        if (lIsWanted) {
            return std::exchange(mMessage, {});
        }
    }
}

// Keeps the header's bytes as the message's beginning.
ZTSSensorHeader ZTCAnswerReader::readHeader() {
    for (;; ++mAt, ++mSkipped) {
        while (mBuffer.size() - mAt < ZTSSensorHeader::Size) {
            fill();
        }
        const std::uint8_t* const lpAt = mBuffer.data() + mAt;
        if (const auto lHeader = ZTSSensorHeader::decode({lpAt, ZTSSensorHeader::Size})) {
            mIsInStep = true;
            mMessage.assign(lpAt, lpAt + ZTSSensorHeader::Size);
            mAt += ZTSSensorHeader::Size;
            return *lHeader;
        }
        if (mIsInStep || mSkipped == MaxAnswer) {
            sFail("a message does not begin with VRX1");
        }
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
