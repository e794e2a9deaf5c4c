#include "SimEvent.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint32_t sEventVersion = 1;
constexpr uint8_t sRscnCommand = 0x61;
constexpr uint8_t sRscnPageSize = 4;

void sPutWord(std::vector<uint8_t>& arBytes, uint32_t aOffset, uint64_t aWord) {
    const auto lWord = static_cast<uint32_t>(aWord);
    memcpy(arBytes.data() + aOffset, &lWord, sizeof lWord);
}

void sPutName(std::vector<uint8_t>& arBytes, uint32_t aOffset, const HBA_wwn& acrName) {
    std::ranges::copy(acrName.wwn, arBytes.begin() + aOffset);
}

std::vector<uint8_t> sMakeRscn(const std::vector<uint8_t>& acrPages) {
    const size_t lSize = 4 + acrPages.size();
    std::vector<uint8_t> lBytes{sRscnCommand, sRscnPageSize, static_cast<uint8_t>(lSize >> 8),
                                static_cast<uint8_t>(lSize)};
    lBytes.insert(lBytes.end(), acrPages.begin(), acrPages.end());
    return lBytes;
}

std::vector<uint8_t> sMakePayload(const ZTSSimKind& acrKind, const ZTSSimStatement& acrStatement,
                                  const HBA_wwn& acrPort) {
    std::vector<uint8_t> lBytes(acrKind.mSize);
    if (acrKind.mId.mMask == ZT_DFC_LINK) {
        sPutName(lBytes, 0, acrPort);
    } else if (acrKind.mSize != 0) {
        sPutWord(lBytes, 0, acrKind.mId.mSubcategory);
    }
    for (const ZTSSimKey& lrField : acrKind.mFields) {
        const ZTSSimValueRead& lrValue = acrStatement.mValues.at(lrField.mpName);
        switch (lrField.mValue) {
            case ZTESimValue::Name:
                sPutName(lBytes, lrField.mOffset, makeSimName(lrValue.mNumber));
                break;
            case ZTESimValue::Sense:  // the key, then the additional code and qualifier
                sPutWord(lBytes, lrField.mOffset, lrValue.mNumber >> 16);
                sPutWord(lBytes, lrField.mOffset + 4, lrValue.mNumber & 0xFFFF);
                break;
            case ZTESimValue::Pages:
                lBytes = sMakeRscn(lrValue.mBytes);
                break;
            default:
                sPutWord(lBytes, lrField.mOffset, lrValue.mNumber);
        }
    }
    return lBytes;
}

}  // namespace

HBA_wwn makeSimName(uint64_t aName) {
    HBA_wwn lName{};
    for (unsigned int lByte = 0; lByte < sizeof lName.wwn; ++lByte) {
        lName.wwn[lByte] = static_cast<uint8_t>(aName >> (56 - 8 * lByte));
    }
    return lName;
}

ZTCSimEvent::ZTCSimEvent(const ZTSSimStatement& acrStatement, uint32_t aBoard, uint64_t aPort)
    : mBoard(aBoard), mPort(makeSimName(aPort)), mIsRaw(acrStatement.mpKind == nullptr) {
    if (const ZTSSimKind* const lpKind = acrStatement.mpKind) {
        mId = lpKind->mId;
        setPayload(sMakePayload(*lpKind, acrStatement, mPort));
        return;
    }
    mId = {acrStatement.getWord("mask"), acrStatement.getWord("category"),
           acrStatement.getWord("subcategory")};
    const auto lBytes = acrStatement.mValues.find("bytes");
    setPayload(lBytes != acrStatement.mValues.end() ? lBytes->second.mBytes : std::vector<uint8_t>());
    mLength = acrStatement.getWord(mId.mMask == 0 ? "total-length" : "length", mLength);
    if (acrStatement.has("no-descriptor")) {
        mpPayload = nullptr;
    } else if (mpPayload == nullptr && mId.mMask == 0) {
        mpPayload = std::make_unique<uint8_t[]>(0);  // a descriptor of nothing
    }
}

ZTCSimEvent::ZTCSimEvent(const ZTSSimRegistration& acrRegistration)
    : mId(acrRegistration.mId), mBoard(acrRegistration.mBoard), mPort(acrRegistration.mPort) {
    const auto lFound = std::ranges::find(getSimKinds(), mId, &ZTSSimKind::mId);
    if (lFound != getSimKinds().end()) {
        setPayload(sMakePayload(*lFound, readScenario(lFound->mpName, "").front(), mPort));
    }
}

void ZTCSimEvent::setPayload(const std::vector<uint8_t>& acrBytes) {
    mLength = static_cast<uint32_t>(acrBytes.size()) + (mId.mMask == 0 ? ZT_EVENT_HEADER : 0);
    if (!acrBytes.empty()) {
        mpPayload = std::make_unique<uint8_t[]>(acrBytes.size());
        std::ranges::copy(acrBytes, mpPayload.get());
    }
}

void ZTCSimEvent::callBack(const ZTSSimRegistration& acrRegistration) const {
    if (acrRegistration.mpByMask != nullptr) {
        acrRegistration.mpByMask(mBoard, mpPayload.get(), mLength);
        return;
    }
    const ZT_event_descriptor lDescriptor{mId.mCategory, mpPayload.get()};
    const ZT_event lEvent{sEventVersion, mLength, mpPayload != nullptr ? &lDescriptor : nullptr};
    acrRegistration.mpGeneric(mBoard, mPort, mId.mCategory, mId.mSubcategory, acrRegistration.mpContext,
                              &lEvent);
}
