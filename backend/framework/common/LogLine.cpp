#include "LogLine.h"

#include <unistd.h>

#include <bit>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>

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

// Appends text with control characters as \xNN, up to a limit.
class Text {
  public:
    Text(char* apOut, std::size_t aMost) : mpAt(apOut), mpLimit(apOut + aMost - sizeof sCut) {}

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
        char lDigits[32];
        const auto lEnd = std::to_chars(lDigits, lDigits + sizeof lDigits, aValue, aBase);
        append(lDigits, static_cast<std::size_t>(lEnd.ptr - lDigits));
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
        char lText[ZTCLogRing::MaxText + 2];
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
    if (acrConversion.mLetter == '%') {
        arText.append("%", 1);
        return;
    }
    if (!acrConversion.mPlain) {
        appendByLibrary(arText, acrConversion, apConversion, arArguments);
        return;
    }
    const int lBase = acrConversion.mLetter == 'x' ? 16 : 10;
    switch (acrConversion.mLetter) {
        case 's': {
            std::size_t lLength = 0;
            const char* const lpText = arArguments.text(lLength);
            if (lLength > ZTCLogRing::MaxText) {
                lLength = ZTCLogRing::MaxText;
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
    return acrOne.mpFile == acrOther.mpFile && acrOne.mLine == acrOther.mLine &&
           acrOne.mpFunction == acrOther.mpFunction && acrOne.mpTag == acrOther.mpTag;
}

void putTwoDigits(char* apOut, unsigned int aValue) {
    apOut[0] = static_cast<char>('0' + aValue / 10);
    apOut[1] = static_cast<char>('0' + aValue % 10);
}

char* appendCopy(char* apOut, const char* apText, std::size_t aLength) {
    memcpy(apOut, apText, aLength);
    return apOut + aLength;
}

}  // namespace

char* ZTCLogLine::format(const ZTCLogRecord& acrRecord, char* apOut) {
    char* lpOut = appendTime(acrRecord.mStamp, apOut);
    lpOut = appendThread(acrRecord.mThread, lpOut);
    lpOut = appendPlace(acrRecord.mSite, lpOut);

    Text lText(lpOut, MaxText);
    Arguments lArguments(acrRecord);
    const char* lpFormat = acrRecord.mSite.mpFormat;
    for (;;) {
        const char* const lpConversion = strchrnul(lpFormat, '%');
        lText.append(lpFormat, static_cast<std::size_t>(lpConversion - lpFormat));
        if (*lpConversion == '\0') {
            break;
        }
        const ztlog::Conversion lConversion = ztlog::parseConversion(lpConversion);
        appendConversion(lText, lConversion, lpConversion, lArguments);
        lpFormat = lpConversion + lConversion.mLength;
    }
    lpOut = lText.finish();
    *lpOut++ = '\n';
    return lpOut;
}

char* ZTCLogLine::appendTime(std::uint64_t aStamp, char* apOut) {
    constexpr std::size_t lLength = 20;  // "2026-11-21T02:46:01."
    const std::uint64_t lSecond = aStamp / 1000000000;
    if (lSecond != mSecond) {
        const auto lTime = static_cast<time_t>(lSecond);
        tm lParts{};
        gmtime_r(&lTime, &lParts);
        strftime(mSecondText, sizeof mSecondText, "%Y-%m-%dT%H:%M:%S.", &lParts);
        mSecond = lSecond;
    }
    char* const lpOut = appendCopy(apOut, mSecondText, lLength);
    const auto lMicros = static_cast<unsigned int>(aStamp % 1000000000 / 1000);
    putTwoDigits(lpOut, lMicros / 10000);
    putTwoDigits(lpOut + 2, lMicros / 100 % 100);
    putTwoDigits(lpOut + 4, lMicros % 100);
    lpOut[6] = 'Z';
    lpOut[7] = ' ';
    return lpOut + 8;
}

char* ZTCLogLine::appendThread(std::uint32_t aThread, char* apOut) {
    if (mProcessLength == 0) {
        const auto lEnd = std::to_chars(mProcessText, mProcessText + sizeof mProcessText - 1, getpid());
        *lEnd.ptr = '.';
        mProcessLength = static_cast<std::size_t>(lEnd.ptr + 1 - mProcessText);
    }
    char* const lpOut = appendCopy(apOut, mProcessText, mProcessLength);
    return std::to_chars(lpOut, lpOut + 10, aThread).ptr;
}

char* ZTCLogLine::appendPlace(const ztlog::Site& acrSite, char* apOut) {
    const auto lKey = std::bit_cast<std::uintptr_t>(acrSite.mpFile) / 8 + acrSite.mLine * 7;
    Place& lrPlace = mPlaces[lKey % std::size(mPlaces)];
    if (!isSamePlace(lrPlace.mSite, acrSite)) {
        const int lLength = snprintf(lrPlace.mText, sizeof lrPlace.mText, " %s %s:%u %s: ", acrSite.mpTag,
                                     acrSite.mpFile, acrSite.mLine, acrSite.mpFunction);
        lrPlace.mLength = static_cast<std::size_t>(lLength) < sizeof lrPlace.mText
                              ? static_cast<std::size_t>(lLength)
                              : sizeof lrPlace.mText - 1;
        lrPlace.mSite = acrSite;
    }
    return appendCopy(apOut, lrPlace.mText, lrPlace.mLength);
}
