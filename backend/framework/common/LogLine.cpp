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
bool mayHaveControl(std::uint64_t aEight) {
    constexpr std::uint64_t lOnes = 0x0101010101010101;
    constexpr std::uint64_t lHighs = 0x8080808080808080;
    const std::uint64_t lBelow = (aEight - lOnes * 0x20) & ~aEight;
    const std::uint64_t lDelete = aEight ^ (lOnes * 0x7f);
    return ((lBelow | ((lDelete - lOnes) & ~lDelete)) & lHighs) != 0;
}

bool isControl(char aCharacter) {
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
            if (mayHaveControl(lEight)) {
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
        if (!isControl(aCharacter)) {
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
        mpAt += (sizeof lLength + lLength + 7) & ~std::size_t{7};
        arLength = lLength;
        return lpText;
    }

  private:
    const unsigned char* mpAt;
};

// A conversion with flags, width or precision: the C library's own work, on a copy with a known length
// modifier.
void appendByLibrary(Text& arText, const ztlog::Conversion& acrConversion, const char* apConversion,
                     Arguments& arArguments) {
    char lFormat[48];
    char lResult[512];
    std::size_t lPrefix = strcspn(apConversion, "hlzjdiuxXocsp");
    if (lPrefix > sizeof lFormat - 4) {
        lPrefix = 1;
    }
    memcpy(lFormat, apConversion, lPrefix);
    const bool lIsNumber =
        acrConversion.mLetter != 's' && acrConversion.mLetter != 'p' && acrConversion.mLetter != 'c';
    snprintf(lFormat + lPrefix, sizeof lFormat - lPrefix, "%s%c", lIsNumber ? "ll" : "",
             acrConversion.mLetter);
    int lLength = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (acrConversion.mLetter == 's') {
        std::size_t lTextLength = 0;
        const char* const lpText = arArguments.text(lTextLength);
        char lText[ztlog::MaxArgumentText + 2];
        memcpy(lText, lpText, lTextLength);
        lText[lTextLength] = '\0';
        lLength = snprintf(lResult, sizeof lResult, lFormat, lText);
    } else if (acrConversion.mLetter == 'p') {
        lLength = snprintf(lResult, sizeof lResult, lFormat, reinterpret_cast<void*>(arArguments.number()));
    } else if (acrConversion.mLetter == 'c') {
        lLength = snprintf(lResult, sizeof lResult, lFormat, static_cast<int>(arArguments.number()));
    } else {
        std::uint64_t lNumber = arArguments.number();
        if (!acrConversion.mLong) {
            const bool lSigned = acrConversion.mLetter == 'd' || acrConversion.mLetter == 'i';
            lNumber = lSigned ? static_cast<std::uint64_t>(static_cast<std::int32_t>(lNumber))
                              : static_cast<std::uint32_t>(lNumber);
        }
        lLength = snprintf(lResult, sizeof lResult, lFormat, static_cast<unsigned long long>(lNumber));
    }
#pragma GCC diagnostic pop
    if (lLength >= static_cast<int>(sizeof lResult)) {
        lLength = static_cast<int>(sizeof lResult) - 1;
        arText.markCut();
    }
    arText.append(lResult, lLength > 0 ? static_cast<std::size_t>(lLength) : 0);
}

void appendConversion(Text& arText, const ztlog::Conversion& acrConversion, const char* apConversion,
                      Arguments& arArguments) {
    if (!acrConversion.mPlain) {
        appendByLibrary(arText, acrConversion, apConversion, arArguments);
        return;
    }
    const int lBase = acrConversion.mLetter == 'x' ? 16 : 10;
    switch (acrConversion.mLetter) {
        case 's': {
            std::size_t lLength = 0;
            const char* const lpText = arArguments.text(lLength);
            if (lLength > ztlog::MaxArgumentText) {
                lLength = ztlog::MaxArgumentText;
                arText.markCut();
            }
            arText.append(lpText, lLength);
            return;
        }
        case 'd':
        case 'i':
            if (acrConversion.mLong) {
                arText.appendNumber(static_cast<std::int64_t>(arArguments.number()));
            } else {
                arText.appendNumber(static_cast<std::int32_t>(arArguments.number()));
            }
            return;
        case 'u':
        case 'x':
            if (acrConversion.mLong) {
                arText.appendNumber(arArguments.number(), lBase);
            } else {
                arText.appendNumber(static_cast<std::uint32_t>(arArguments.number()), lBase);
            }
            return;
        default:
            appendByLibrary(arText, acrConversion, apConversion, arArguments);
            return;
    }
}

bool isSamePlace(const ztlog::Site& acrOne, const ztlog::Site& acrOther) {
    return acrOne.mpFormat == acrOther.mpFormat && acrOne.mLine == acrOther.mLine &&
           acrOne.mpFunction == acrOther.mpFunction && acrOne.mpFile == acrOther.mpFile &&
           acrOne.mpTag == acrOther.mpTag;
}

void putTwoDigits(char* apOut, unsigned int aValue) {
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
        if (lrPiece.mpConversion != nullptr) {
            appendConversion(lText, lrPiece.mConversion, lrPiece.mpConversion, lArguments);
        }
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
        putTwoDigits(mTimeText + lSecondLength, lFraction / 10000);
        putTwoDigits(mTimeText + lSecondLength + 2, lFraction / 100 % 100);
        putTwoDigits(mTimeText + lSecondLength + 4, lFraction % 100);
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
    if (!isSamePlace(lrPlace.mSite, acrSite)) {
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
            arPlace.mPieces[arPlace.mPieceCount++] = {
                static_cast<std::size_t>(lpText - lpPiece), nullptr, {}};
            break;
        }
        const ztlog::Conversion lConversion = ztlog::parseConversion(lpConversion);
        lpFormat = lpConversion + lConversion.mLength;
        if (lConversion.mLetter == '%') {
            *lpText++ = '%';
            continue;
        }
        arPlace.mPieces[arPlace.mPieceCount++] = {static_cast<std::size_t>(lpText - lpPiece), lpConversion,
                                                  lConversion};
        lpPiece = lpText;
    }
}
