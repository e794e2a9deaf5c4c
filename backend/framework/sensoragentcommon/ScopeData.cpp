#include "ScopeData.h"

#include <algorithm>

#include "EncodableStream.h"

ZTCScopeData::ZTCScopeData(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apData,
                           unsigned int aLength, unsigned int aCeiling)
    : mEvent(acrEvent), mCeiling(aCeiling) {
    appendEventData(apData, aLength);
}

ZTCScopeData::ZTCScopeData(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apData,
                           unsigned int aLength, unsigned int aCeiling,
                           const ZTCPointer<ZTCWorldWideName>& acrNodeName,
                           const ZTCPointer<ZTCWorldWideName>& acrPortName)
    : ZTCScopeData(acrEvent, apData, aLength, aCeiling) {
    unsigned char* const lpPortName =
        ztwire::put(mNames, acrNodeName->getBinaryForm(), ZTCWorldWideName::Size);
    ztwire::put(lpPortName, acrPortName->getBinaryForm(), ZTCWorldWideName::Size);
    mHasNames = true;
}

ZTCScopeData::~ZTCScopeData() {
    if (mpData != mInline) {
        free(mpData);
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
        const bool lIsInline = mpData == mInline;
        auto* const lpData = static_cast<unsigned char*>(realloc(lIsInline ? nullptr : mpData, lRoom));
        if (lpData == nullptr) {
            throwNoMemory();
        }
        if (lIsInline) {
            ClibMemcpy(lpData, mInline, mLength);
        }
        mpData = lpData;
        mRoom = lRoom;
    }
    ClibMemcpy(mpData + mLength, apData, aLength);
    mLength += aLength;
}

void ZTCScopeData::encode(ZTCEncodableOutStream& arStream) const {
    encode(arStream.extend(getSize()));
}

unsigned char* ZTCScopeData::encode(unsigned char* apTo) const {
    const ZTCScopeEvent& lrEvent = *mEvent;
    unsigned char* lpAt = ztwire::put(apTo, static_cast<unsigned char>(lrEvent.getCategory()));
    lpAt = ztwire::put(lpAt, static_cast<unsigned char>(lrEvent.getSubcategory()));
    lpAt = ztwire::put(lpAt, static_cast<unsigned char>(mHasNames ? 1 : 0));
    if (mHasNames) {
        lpAt = ztwire::put(lpAt, mNames, NamesSize);
    }
    lpAt = ztwire::put(lpAt, mLength);
    return ztwire::put(lpAt, mpData, mLength);
}
