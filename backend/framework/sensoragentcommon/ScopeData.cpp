#include "ScopeData.h"

#include <algorithm>

#include "EncodableStream.h"

ZTCScopeData::ZTCScopeData(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apData,
                           unsigned int aLength, unsigned int /*aCeiling*/)
    : mCategory(static_cast<unsigned char>(acrEvent->getCategory())),
      mSubcategory(static_cast<unsigned char>(acrEvent->getSubcategory())) {
    appendEventData(apData, aLength);
}

ZTCScopeData::ZTCScopeData(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apData,
                           unsigned int aLength, unsigned int aCeiling, const unsigned char* apNodeName,
                           const unsigned char* apPortName)
    : ZTCScopeData(acrEvent, apData, aLength, aCeiling) {
    unsigned char* const lpPortName = ztwire::put(mNames, apNodeName, ZTCWorldWideName::Size);
    ztwire::put(lpPortName, apPortName, ZTCWorldWideName::Size);
    mHasNames = true;
}

ZTCScopeData::~ZTCScopeData() {
    if (!isInline()) {
        free(mBytes.mpOutside);
    }
}

void ZTCScopeData::appendEventData(const unsigned char* apData, unsigned int aLength) {
    if (aLength == 0) {
        return;  // apData may be null
    }
    constexpr unsigned int lMost = ZTCBuffer::MaxLength - FixedSize - NamesSize;
    if (aLength > lMost - mLength) {
        throwNoMemory();
    }
    if (aLength > mRoom - mLength) {
        const unsigned int lRoom = std::max(mLength + aLength, std::min(mRoom, lMost / 2) * 2);
        void* const lpOld = isInline() ? nullptr : mBytes.mpOutside;
        auto* const lpData = static_cast<unsigned char*>(realloc(lpOld, lRoom));
        if (lpData == nullptr) {
            throwNoMemory();
        }
        if (isInline()) {
            ClibMemcpy(lpData, mBytes.mInline, mLength);
        }
        mBytes.mpOutside = lpData;
        mRoom = lRoom;
    }
    ClibMemcpy(getEventData() + mLength, apData, aLength);
    mLength += aLength;
}

void ZTCScopeData::encode(ZTCEncodableOutStream& arStream) const {
    encode(arStream.extend(getSize()));
}

unsigned char* ZTCScopeData::encode(unsigned char* apTo) const {
    unsigned char* lpAt = ztwire::put(apTo, mCategory);
    lpAt = ztwire::put(lpAt, mSubcategory);
    lpAt = ztwire::put(lpAt, static_cast<unsigned char>(mHasNames ? 1 : 0));
    if (mHasNames) {
        lpAt = ztwire::put(lpAt, mNames, NamesSize);
    }
    lpAt = ztwire::put(lpAt, mLength);
    return ztwire::put(lpAt, getEventData(), mLength);
}
