#include "ScsiSample.h"

#include <algorithm>

#include "ScsiSense.h"

namespace {

constexpr std::uint32_t sStatus = 0xff;
constexpr std::uint32_t sStatusAndHostByte = 0xff00ff;
constexpr std::uint32_t sCheckCondition = 2;

}  // namespace

const char* const ZTCScsiSample::sNames[] = {
    "common_type", "host_no",    "channel",   "id",  "lun",  "result",
    "opcode",      "driver_tag", "sense_key", "asc", "ascq",
};

ZTCScsiSample::ZTCScsiSample(const ZTCTraceFormat& acrFormat, ZTEScsiTrace aTrace)
    : mId(acrFormat.getId()), mTrace(aTrace) {
    for (std::size_t lAt = 0; lAt < mFields.size(); ++lAt) {
        const auto lField = acrFormat.find(sNames[lAt]);
        if (!lField && lAt < Tag) {
            throw ZTCScsiNotAvailable(std::string("the trace events of SCSI have no field ") + sNames[lAt]);
        }
        mFields[lAt] = lField.value_or(ZTSTraceField{});
        mEnd = std::max(mEnd, mFields[lAt].getEnd());
    }
}

bool ZTCScsiSample::hasSense() const {
    return mFields[SenseKey].mSize != 0 && mFields[Asc].mSize != 0 && mFields[Ascq].mSize != 0;
}

std::optional<ZTSScsiFailure> ZTCScsiSample::read(const unsigned char* apSample, std::size_t aSize) const {
    const auto lNumber = [&](Field aField) {
        return static_cast<std::uint32_t>(readTraceNumber(apSample, mFields[aField]));
    };
    const auto lByte = [&](Field aField) { return static_cast<std::uint8_t>(lNumber(aField)); };
    if (aSize < mEnd || lNumber(Type) != mId) {
        return {};
    }
    ZTSScsiFailure lFailure;
    ZTSScsiKey& lrKey = lFailure.mKey;
    lrKey.mLun = lNumber(Lun);
    lrKey.mHost = lNumber(Host);
    lrKey.mChannel = lNumber(Channel);
    lrKey.mTarget = lNumber(Target);
    lrKey.mOperationCode = lByte(OperationCode);
    const __u8 lCdb[10] = {lrKey.mOperationCode};  // the rest is not told, and not looked at but for 32 bytes
    lrKey.mIsRead = ZTIsScsiRead(lCdb, sizeof lCdb) != 0 ? 1 : 0;
    lrKey.mTrace = static_cast<std::uint8_t>(mTrace);
    lFailure.mTag = lNumber(Tag);
    if (mTrace != ZTST_TimedOut) {
        lrKey.mResult = lNumber(Result) & sStatusAndHostByte;
    }
    // The kernel writes zeros where a command has no sense data.
    const std::uint32_t lSense = lNumber(SenseKey) << 16 | lNumber(Asc) << 8 | lNumber(Ascq);
    if ((lrKey.mResult & sStatus) == sCheckCondition && hasSense() && lSense != 0) {
        lrKey.mHasSense = 1;
        lrKey.mSenseKey = lByte(SenseKey);
        lrKey.mAsc = lByte(Asc);
        lrKey.mAscq = lByte(Ascq);
    }
    return lFailure;
}
