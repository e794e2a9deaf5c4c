#include "LogLine.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>

namespace {

constexpr char sCut[] = "[cut]";

// Whether one of eight characters is a control character: below 0x20, or 0x7f. May be wrong towards true.
bool sMayHaveControl(std::uint64_t aEight) {
    constexpr std::uint64_t lOnes = 0x0101010101010101;
    constexpr std::uint64_t lHighs = 0x8080808080808080;
    const std::uint64_t lBelow = (aEight - lOnes * 0x20) & ~aEight;
    const std::uint64_t lDelete = aEight ^ (lOnes * 0x7f);
    return ((lBelow | ((lDelete - lOnes) & ~lDelete)) & lHighs) != 0;
}

bool sIsControl(char aCharacter) {
    const auto lCode = static_cast<unsigned char>(aCharacter);
    return lCode < 0x20 || lCode == 0x7f;
}

// The text of a record, up to a limit.
class Text {
  public:
    Text(char* apOut, std::size_t aMost) : mpAt(apOut), mpLimit(apOut + aMost - sizeof sCut) {}

    // Text that has been checked and may be read some bytes beyond its end.
    void appendLiteral(const char* apText, std::size_t aLength) {
        constexpr std::size_t lBlock = 32;
        if (static_cast<std::size_t>(mpLimit - mpAt) < aLength) {
            mCut = true;
            return;
        }
        for (std::size_t lAt = 0; lAt < aLength; lAt += lBlock) {
            memcpy(mpAt + lAt, apText + lAt, lBlock);
        }
        mpAt += aLength;
        mEndsLine = mEndsLine && aLength == 0;
    }

    // Text from outside: control characters become \xNN.
    void append(const char* apText, std::size_t aLength) {
        const char* const lpEnd = apText + aLength;
        while (lpEnd - apText >= 8 && mpLimit - mpAt >= 8) {
            std::uint64_t lEight;
            memcpy(&lEight, apText, sizeof lEight);
            if (sMayHaveControl(lEight)) {
                break;
            }
            memcpy(mpAt, &lEight, sizeof lEight);
            mpAt += 8;
            apText += 8;
            mEndsLine = false;
        }
        for (; apText != lpEnd; ++apText) {
            appendOne(*apText);
        }
    }

    template <class Integer>
    void appendNumber(Integer aValue, int aBase = 10) {
        const auto lEnd = std::to_chars(mpAt, mpLimit, aValue, aBase);
        mCut = mCut || lEnd.ec != std::errc();
        mpAt = lEnd.ec == std::errc() ? lEnd.ptr : mpAt;
        mEndsLine = false;
    }

    void markCut() { mCut = true; }

    // The end of the text, with one line end at its end dropped.
    char* finish() {
        if (mEndsLine) {
            mpAt -= 4;  // it stands there as \x0a
        }
        if (mCut) {
            memcpy(mpAt, sCut, sizeof sCut - 1);
            mpAt += sizeof sCut - 1;
        }
        return mpAt;
    }

  private:
    void appendOne(char aCharacter) {
        if (mpLimit - mpAt < 4) {
            mCut = true;
            return;
        }
        mEndsLine = aCharacter == '\n';
        if (!sIsControl(aCharacter)) {
            *mpAt++ = aCharacter;
            return;
        }
        constexpr char lHex[] = "0123456789abcdef";
        const auto lCode = static_cast<unsigned char>(aCharacter);
        *mpAt++ = '\\';
        *mpAt++ = 'x';
        *mpAt++ = lHex[lCode >> 4];
        *mpAt++ = lHex[lCode & 15];
    }

    char* mpAt;
    char* const mpLimit;
    bool mCut = false;
    bool mEndsLine = false;
};

// The arguments of a record, one after the other.
class Arguments {
  public:
    explicit Arguments(const ZTCLogRecord& acrRecord) : mpAt(acrRecord.arguments()) {}

    std::uint64_t number() {
        std::uint64_t lNumber;
        memcpy(&lNumber, mpAt, sizeof lNumber);
        mpAt += sizeof lNumber;
        return lNumber;
    }

    const char* text(std::size_t& arLength) {
        std::uint32_t lLength;
        memcpy(&lLength, mpAt, sizeof lLength);
        const char* const lpText = reinterpret_cast<const char*>(mpAt + sizeof lLength);
        mpAt += ztlog::sizeOf(ztlog::Text{lpText, lLength});
        arLength = lLength;
        return lpText;
    }

  private:
    const unsigned char* mpAt;
};

void sAppend(Text& arText, ztlog::Conversion aConversion, Arguments& arArguments) {
    switch (aConversion) {
        case ztlog::Conversion::Text: {
            std::size_t lLength = 0;
            const char* const lpText = arArguments.text(lLength);
            if (lLength > ztlog::MaxArgumentText) {
                lLength = ztlog::MaxArgumentText;
                arText.markCut();
            }
            arText.append(lpText, lLength);
            break;
        }
        case ztlog::Conversion::Int:
            arText.appendNumber(static_cast<std::int32_t>(arArguments.number()));
            break;
        case ztlog::Conversion::Unsigned:
            arText.appendNumber(static_cast<std::uint32_t>(arArguments.number()));
            break;
        case ztlog::Conversion::UnsignedLong:
            arText.appendNumber(arArguments.number());
            break;
        case ztlog::Conversion::Address:
            if (const std::uint64_t lAddress = arArguments.number(); lAddress != 0) {
                arText.append("0x", 2);
                arText.appendNumber(lAddress, 16);
            } else {
                arText.append("(nil)", 5);
            }
            break;
        case ztlog::Conversion::None:
            break;
    }
}

bool sIsSamePlace(const ztlog::Site& acrOne, const ztlog::Site& acrOther) {
    return acrOne.mpFormat == acrOther.mpFormat && acrOne.mLine == acrOther.mLine &&
           acrOne.mpFunction == acrOther.mpFunction && acrOne.mpFile == acrOther.mpFile &&
           acrOne.mpTag == acrOther.mpTag;
}

void sPutTwoDigits(char* apOut, unsigned int aValue) {
    apOut[0] = static_cast<char>('0' + aValue / 10);
    apOut[1] = static_cast<char>('0' + aValue % 10);
}

}  // namespace

char* ZTCLogLine::format(const ZTCLogRecord& acrRecord, char* apOut) {
    char* const lpTime = appendTime(acrRecord.mStamp, apOut);
    char* const lpPlace = appendThread(acrRecord.mThread, lpTime);
    const Place& lrPlace = placeOf(acrRecord.mSite);

    Text lText(lpPlace, MaxText);
    Arguments lArguments(acrRecord);
    const char* lpLiteral = lrPlace.mText;
    for (std::size_t lAt = 0; lAt < lrPlace.mPieceCount; ++lAt) {
        const Piece& lrPiece = lrPlace.mPieces[lAt];
        lText.appendLiteral(lpLiteral, lrPiece.mLength);
        lpLiteral += lrPiece.mLength;
        sAppend(lText, lrPiece.mConversion, lArguments);
    }
    char* const lpEnd = lText.finish();
    *lpEnd = '\n';
    return lpEnd + 1;
}

char* ZTCLogLine::appendTime(std::uint64_t aStamp, char* apOut) {
    constexpr std::size_t lSecondLength = 20;  // "2026-11-21T02:46:01."
    constexpr std::size_t lLength = lSecondLength + sizeof "123456Z";
    const std::uint64_t lMicrosecond = aStamp / 1000;
    if (lMicrosecond != mMicrosecond) {
        const std::uint64_t lSecond = lMicrosecond / 1000000;
        if (lSecond != mMicrosecond / 1000000) {
            const auto lTime = static_cast<time_t>(lSecond);
            tm lParts{};
            gmtime_r(&lTime, &lParts);
            strftime(mTimeText, sizeof mTimeText, "%Y-%m-%dT%H:%M:%S.000000Z ", &lParts);
        }
        const auto lFraction = static_cast<unsigned int>(lMicrosecond % 1000000);
        sPutTwoDigits(mTimeText + lSecondLength, lFraction / 10000);
        sPutTwoDigits(mTimeText + lSecondLength + 2, lFraction / 100 % 100);
        sPutTwoDigits(mTimeText + lSecondLength + 4, lFraction % 100);
        mMicrosecond = lMicrosecond;
    }
    memcpy(apOut, mTimeText, sizeof mTimeText);
    return apOut + lLength;
}

char* ZTCLogLine::appendThread(std::uint32_t aThread, char* apOut) {
    if (aThread != mThread) {
        mThreadLength =
            static_cast<std::size_t>(snprintf(mThreadText, sizeof mThreadText, "%d.%u", getpid(), aThread));
        mThread = aThread;
    }
    memcpy(apOut, mThreadText, sizeof mThreadText);
    return apOut + mThreadLength;
}

const ZTCLogLine::Place& ZTCLogLine::placeOf(const ztlog::Site& acrSite) {
    const auto lKey = reinterpret_cast<std::uintptr_t>(acrSite.mpFormat) + acrSite.mLine * std::size_t{7};
    Place& lrPlace = mPlaces[lKey % std::size(mPlaces)];
    if (!sIsSamePlace(lrPlace.mSite, acrSite)) {
        fill(lrPlace, acrSite);
    }
    return lrPlace;
}

void ZTCLogLine::fill(Place& arPlace, const ztlog::Site& acrSite) {
    arPlace.mSite = acrSite;
    arPlace.mPieceCount = 0;
    char* lpText = arPlace.mText;
    const int lPrefix = snprintf(lpText, MaxPrefix, " %s %s:%u %s: ", acrSite.mpTag, acrSite.mpFile,
                                 acrSite.mLine, acrSite.mpFunction);
    lpText += std::min(static_cast<std::size_t>(lPrefix), MaxPrefix - 1);
    const char* lpPiece = arPlace.mText;
    const char* lpFormat = acrSite.mpFormat;
    for (;;) {
        const char* const lpConversion = strchrnul(lpFormat, '%');
        lpText =
            static_cast<char*>(mempcpy(lpText, lpFormat, static_cast<std::size_t>(lpConversion - lpFormat)));
        if (*lpConversion == '\0') {
            // The format's own line end is dropped; it has no other control characters.
            lpText -= lpText != lpPiece && lpText[-1] == '\n' ? 1 : 0;
            arPlace.mPieces[arPlace.mPieceCount++] = {static_cast<std::size_t>(lpText - lpPiece),
                                                      ztlog::Conversion::None};
            break;
        }
        const ztlog::ConversionFacts& lrFacts = *ztlog::findConversion(lpConversion);
        lpFormat = lpConversion + lrFacts.mText.size();
        arPlace.mPieces[arPlace.mPieceCount++] = {static_cast<std::size_t>(lpText - lpPiece),
                                                  lrFacts.mConversion};
        lpPiece = lpText;
    }
}
