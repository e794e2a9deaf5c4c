#include "WorldWideName.h"

#include "EncodableStream.h"
#include "Immortal.h"
#include "Mutex.h"

namespace {

constexpr unsigned int sNotHex = 16;

unsigned int sHexValueOf(char aDigit) {
    if (aDigit >= '0' && aDigit <= '9') {
        return static_cast<unsigned int>(aDigit - '0');
    }
    const char lLower = static_cast<char>(aDigit | 0x20);
    return lLower >= 'a' && lLower <= 'f' ? static_cast<unsigned int>(lLower - 'a') + 10 : sNotHex;
}

// Reads the digits that one of the two forms consists of. The separator is ':' or, for none, NUL.
bool sParse(const char* apText, char aSeparator, unsigned char* apBinary) {
    for (unsigned int lAt = 0; lAt < ZTCWorldWideName::Size; ++lAt) {
        if (lAt != 0 && aSeparator != '\0' && *apText++ != aSeparator) {
            return false;
        }
        const unsigned int lHigh = sHexValueOf(apText[0]);
        const unsigned int lLow = lHigh != sNotHex ? sHexValueOf(apText[1]) : sNotHex;
        if (lLow == sNotHex) {
            return false;
        }
        apBinary[lAt] = static_cast<unsigned char>(lHigh << 4 | lLow);
        apText += 2;
    }
    return *apText == '\0';
}

// One lock for all names: a name is printed once in its life.
ZTCMutex& sPrintLock() {
    static ZTCImmortal<ZTCMutex> sLock;
    return sLock.get();
}

}  // namespace

ZTCWorldWideName::Text::Text(const unsigned char* apBinary) {
    char* lpAt = mText;
    for (unsigned int lByte = 0; lByte < Size; ++lByte) {
        lpAt += ClibSprintf(lpAt, lByte == 0 ? "%02x" : ":%02x", apBinary[lByte]);
    }
}

const ZTCString& ZTCWorldWideName::getStringForm() const {
    if (!mIsPrinted.load(std::memory_order_acquire)) {
        const Text lText(mBinaryForm);
        const ZTCScopedLock lLock(sPrintLock());
        if (!mIsPrinted.load(std::memory_order_relaxed)) {
            mStringForm.emplace(mIsSet ? lText.get() : "");
            mIsPrinted.store(true, std::memory_order_release);
        }
    }
    return *mStringForm;
}

void ZTCWorldWideName::_init(const unsigned char* apBinary) {
    ClibMemcpy(mBinaryForm, apBinary, Size);
    mIsSet = true;
    mIsPrinted.store(false, std::memory_order_relaxed);
}

void ZTCWorldWideName::_init(const ZTCString& acrString) {
    const char* const lpText = acrString.get();
    const bool lHasPrefix = lpText[0] == '0' && (lpText[1] == 'x' || lpText[1] == 'X');
    unsigned char lBinary[Size];
    if (!sParse(lHasPrefix ? lpText + 2 : lpText, '\0', lBinary) && !sParse(lpText, ':', lBinary)) {
        throw ZTCInvalidEx("Not a world wide name of the form 20:00:00:25:b5:01:00:0a");
    }
    _init(lBinary);
}

void ZTCWorldWideName::copy(const ZTCWorldWideName& acrCopy) {
    ClibMemcpy(mBinaryForm, acrCopy.mBinaryForm, Size);
    mIsSet = acrCopy.mIsSet;
    mIsPrinted.store(false, std::memory_order_relaxed);
}

void ZTCWorldWideName::decode(ZTCEncodableInStream& arStream) {
    _init(arStream.take(Size));
}
