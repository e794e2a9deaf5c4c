#include "ScsiKinds.h"

#include <algorithm>

#include "Boards.h"

namespace {

enum Status : std::uint8_t { Good = 0x00, CheckCondition = 0x02, Busy = 0x08, TaskSetFull = 0x28 };

enum HostByte : std::uint8_t {
    NoConnect = 0x01,
    Error = 0x07,
    TransportDisrupted = 0x0e,
    TransportFailFast = 0x0f,
    TransportMarginal = 0x14,
};

std::uint8_t sStatusOf(const ZTSScsiKey& acrKey) {
    return static_cast<std::uint8_t>(acrKey.mResult);
}

std::uint8_t sHostByteOf(const ZTSScsiKey& acrKey) {
    return static_cast<std::uint8_t>(acrKey.mResult >> 16);
}

bool sHasStatus(const ZTSScsiKey& acrKey, Status aStatus) {
    return sStatusOf(acrKey) == aStatus;
}

bool sIsUnreached(const ZTSScsiKey& acrKey) {
    const std::uint8_t lByte = sHostByteOf(acrKey);
    return lByte == NoConnect || lByte == TransportDisrupted || lByte == TransportFailFast ||
           lByte == TransportMarginal;
}

bool sHasSense(const ZTSScsiKey& acrKey, std::uint8_t aAsc) {
    return sHasStatus(acrKey, CheckCondition) && acrKey.mHasSense != 0 && acrKey.mAsc == aAsc;
}

// Unit attention: something has been reset. What, says the qualifier.
bool sTellsOfReset(const ZTSScsiKey& acrKey) {
    return sHasSense(acrKey, 0x29) && acrKey.mSenseKey == 0x06;
}

struct Meaning {
    bool (*mpIsIt)(const ZTSScsiKey& acrKey);
    ZTSScsiMeaning mMeaning;
};

constexpr ZTSScsiMeaning sEvent(ZTEScsiKind aKind) {
    return {aKind, toFcFigure(ZTFF_BeyondQueueFull, aKind), ZTFL_Beyond};
}

// The first that fits counts.
constexpr Meaning sMeanings[] = {
    {[](const ZTSScsiKey& acrKey) { return acrKey.mTrace == ZTST_TimedOut; },
     {{}, ZTFF_TimeOuts, ZTFL_TimeOuts}},
    {sIsUnreached, {{}, ZTFF_Unreached, ZTFL_Unreached}},
    {[](const ZTSScsiKey& acrKey) { return sTellsOfReset(acrKey) && acrKey.mAscq == 0x03; },
     sEvent(ZTSK_LunReset)},
    // Power on, a bus or a target; 05 and above are no resets.
    {[](const ZTSScsiKey& acrKey) { return sTellsOfReset(acrKey) && acrKey.mAscq <= 0x04; },
     sEvent(ZTSK_TargetReset)},
    // A protection information that does not fit the data.
    {[](const ZTSScsiKey& acrKey) { return sHasSense(acrKey, 0x10) && acrKey.mIsRead != 0; },
     sEvent(ZTSK_FcpReadCheckError)},
    {[](const ZTSScsiKey& acrKey) { return sHasStatus(acrKey, CheckCondition); },
     sEvent(ZTSK_CheckCondition)},
    {[](const ZTSScsiKey& acrKey) { return sHasStatus(acrKey, TaskSetFull); }, sEvent(ZTSK_QueueFull)},
    {[](const ZTSScsiKey& acrKey) { return sHasStatus(acrKey, Busy); }, sEvent(ZTSK_DeviceBusy)},
    // Bytes are missing, which is an error if the driver says so: tapes read less than asked for as a rule.
    {[](const ZTSScsiKey& acrKey) {
         return sHasStatus(acrKey, Good) && sHostByteOf(acrKey) == Error && acrKey.mResidual != 0;
     },
     sEvent(ZTSK_FcpReadCheckError)},
    {[](const ZTSScsiKey& /*acrKey*/) { return true; }, {{}, ZTFF_Failures, ZTFL_Failures}},
};

// By kind.
constexpr ZTSFcEventId sIds[] = {{0, 4, 1},  {0, 4, 2},  {0, 4, 4}, {0, 4, 8},
                                 {0, 4, 16}, {0, 4, 64}, {0, 2, 4}};
static_assert(std::size(sIds) == ZTSK_Count);

}  // namespace

ZTSScsiMeaning getScsiMeaning(const ZTSScsiKey& acrKey) {
    const Meaning* lpMeaning = sMeanings;
    while (!lpMeaning->mpIsIt(acrKey)) {
        ++lpMeaning;
    }
    return lpMeaning->mMeaning;
}

ZTCScsiEvent::ZTCScsiEvent(ZTEScsiKind aKind, const ZTSScsiFailure& acrFailure, std::uint64_t aPort) {
    const ZTSScsiKey& lrKey = acrFailure.mKey;
    const std::uint32_t lCode = lrKey.mOperationCode;
    if (aKind == ZTSK_CheckCondition) {
        const std::uint32_t lAdditional = static_cast<std::uint32_t>(lrKey.mAsc) << 8 | lrKey.mAscq;
        const std::uint32_t lWords[] = {lCode, lrKey.mSenseKey, lAdditional, acrFailure.mTag};
        write(aKind, aPort, lrKey.mLun, lWords);
    } else if (aKind == ZTSK_FcpReadCheckError) {
        const std::uint32_t lWords[] = {lCode, lrKey.mResidual};
        write(aKind, aPort, lrKey.mLun, lWords);
    } else {
        write(aKind, aPort, lrKey.mLun, {});
    }
}

ZTCScsiEvent::ZTCScsiEvent(std::uint64_t aPort, std::uint64_t aLun, std::uint32_t aOld, std::uint32_t aNow) {
    const std::uint32_t lWords[] = {aOld, aNow};
    write(ZTSK_QueueDepthChange, aPort, aLun, lWords);
}

// The subcategory, the port's name, the logical unit, and what the kind has behind it. Of a LUN with more
// than two levels, the word has the first two.
void ZTCScsiEvent::write(ZTEScsiKind aKind, std::uint64_t aPort, std::uint64_t aLun,
                         std::span<const std::uint32_t> aWords) {
    mId = sIds[aKind];
    const auto lPut = [this](const void* apBytes, std::size_t aSize) {
        std::copy_n(static_cast<const unsigned char*>(apBytes), aSize, mBytes.data() + mSize);
        mSize += static_cast<unsigned int>(aSize);
    };
    const HBA_wwn lName = toFcName(aPort);
    const auto lLun = static_cast<std::uint32_t>(aLun);
    lPut(&mId.mSubcategory, sizeof mId.mSubcategory);
    lPut(lName.wwn, sizeof lName.wwn);
    lPut(&lLun, sizeof lLun);
    lPut(aWords.data(), aWords.size_bytes());
}
