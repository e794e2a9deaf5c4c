#include "Measures.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::int64_t sMinute = 60;
constexpr std::int64_t sHour = 60 * sMinute;

std::int64_t sBeginOf(ZTNanoseconds aTime, std::int64_t aLength) {
    const std::int64_t lSeconds = aTime / ZTSecond;
    return lSeconds - lSeconds % aLength;
}

constexpr std::size_t sNode = sizeof(std::pair<ZTCMeasures::Key, std::uint64_t>) + 4 * sizeof(void*);

void sAdd(const ZTCMeasures::Key& acrKey, std::uint64_t& arSum, std::uint64_t aValue) {
    const ZTSMeasureFacts* const lpFacts = findMeasure(acrKey.mName);
    const bool lIsMost = lpFacts != nullptr && lpFacts->mSum == ZTEMeasureSum::Most;
    arSum = lIsMost ? std::max(arSum, aValue) : arSum + aValue;
}

}  // namespace

void ZTCMeasures::add(ZTNanoseconds aTime, const ZTSMeasured& acrWhose, const std::string& acrName,
                      std::uint64_t aValue) {
    put({sBeginOf(aTime, sMinute), false, acrWhose, acrName}, aValue);
}

void ZTCMeasures::addToHour(ZTNanoseconds aTime, const ZTSMeasured& acrWhose, const std::string& acrName,
                            std::uint64_t aValue) {
    put({sBeginOf(aTime, sHour), true, acrWhose, acrName}, aValue);
}

void ZTCMeasures::join(ZTCMeasures aMore) {
    mValues.merge(aMore.mValues);
    for (const auto& [lrKey, lValue] : aMore.mValues) {
        sAdd(lrKey, mValues.find(lrKey)->second, lValue);
    }
}

void ZTCMeasures::coarsen() {
    for (auto lMinutes = std::exchange(mValues, {}); !lMinutes.empty();) {
        auto lValue = lMinutes.extract(lMinutes.begin());
        lValue.key().mTime -= lValue.key().mTime % sHour;
        lValue.key().mIsHour = true;
        const auto lPut = mValues.insert(std::move(lValue));
        if (!lPut.inserted) {
            sAdd(lPut.position->first, lPut.position->second, lPut.node.mapped());
        }
    }
}

std::size_t ZTCMeasures::getBytes() const {
    std::size_t lBytes = mValues.size() * sNode;
    for (const auto& [lrKey, lValue] : mValues) {
        lBytes += lrKey.mWhose.mLun.size() + lrKey.mName.size();
    }
    return lBytes;
}

void ZTCMeasures::put(Key aKey, std::uint64_t aValue) {
    if (aValue != 0) {
        const auto lAt = mValues.try_emplace(std::move(aKey)).first;
        sAdd(lAt->first, lAt->second, aValue);
    }
}

const ZTSMeasureFacts* findMeasure(std::string_view aName) {
    static const ZTSMeasureFacts sMeasures[] = {
        {"commands", ZTEMeasureSum::Add, "commands that disks completed"},
        {"command_us", ZTEMeasureSum::Add, "the time that these took, together, in microseconds"},
        {"slowest_us", ZTEMeasureSum::Most,
         "of the slowest five seconds, the mean time a command in microseconds"},
        {"iorequest", ZTEMeasureSum::Add, "commands that the kernel was given for LUNs"},
        {"iodone", ZTEMeasureSum::Add, "commands to LUNs that have ended"},
        {"ioerr", ZTEMeasureSum::Add, "commands to LUNs that ended with an error"},
        {"iotmo", ZTEMeasureSum::Add, "commands to LUNs that timed out"},
        {"link_failure_count", ZTEMeasureSum::Add, "links that failed"},
        {"loss_of_sync_count", ZTEMeasureSum::Add, "losses of synchronization"},
        {"loss_of_signal_count", ZTEMeasureSum::Add, "losses of signal"},
        {"prim_seq_protocol_err_count", ZTEMeasureSum::Add, "errors of the primitive sequence protocol"},
        {"invalid_tx_word_count", ZTEMeasureSum::Add, "invalid transmission words"},
        {"invalid_crc_count", ZTEMeasureSum::Add, "frames with a wrong check sum"},
        {"lip_count", ZTEMeasureSum::Add, "loop initializations"},
        {"nos_count", ZTEMeasureSum::Add, "not operational sequences"},
        {"error_frames", ZTEMeasureSum::Add, "frames with an error"},
        {"dumped_frames", ZTEMeasureSum::Add, "frames that were thrown away"},
        {"fpin_li", ZTEMeasureSum::Add, "FPINs of links"},
        {"fpin_cn", ZTEMeasureSum::Add, "FPINs of congestion"},
        {"fpin_dn", ZTEMeasureSum::Add, "FPINs of frames that were not delivered"},
        {"fpin_li_failure_unknown", ZTEMeasureSum::Add, "FPINs of links: nothing more is known"},
        {"fpin_li_link_failure_count", ZTEMeasureSum::Add, "FPINs of links: link failures"},
        {"fpin_li_loss_of_sync_count", ZTEMeasureSum::Add, "FPINs of links: losses of synchronization"},
        {"fpin_li_loss_of_signals_count", ZTEMeasureSum::Add, "FPINs of links: losses of signal"},
        {"fpin_li_prim_seq_err_count", ZTEMeasureSum::Add,
         "FPINs of links: errors of the primitive sequence protocol"},
        {"fpin_li_invalid_tx_word_count", ZTEMeasureSum::Add, "FPINs of links: invalid transmission words"},
        {"fpin_li_invalid_crc_count", ZTEMeasureSum::Add, "FPINs of links: frames with a wrong check sum"},
        {"fpin_li_device_specific", ZTEMeasureSum::Add, "FPINs of links: what a device calls so"},
        {"fpin_cn_clear", ZTEMeasureSum::Add, "FPINs of congestion: it is over"},
        {"fpin_cn_lost_credit", ZTEMeasureSum::Add, "FPINs of congestion: lost credits"},
        {"fpin_cn_credit_stall", ZTEMeasureSum::Add, "FPINs of congestion: waits for credits"},
        {"fpin_cn_oversubscription", ZTEMeasureSum::Add, "FPINs of congestion: more than the link takes"},
        {"fpin_cn_device_specific", ZTEMeasureSum::Add, "FPINs of congestion: what a device calls so"},
        {"fpin_dn_unknown", ZTEMeasureSum::Add, "FPINs of frames: nothing more is known"},
        {"fpin_dn_timeout", ZTEMeasureSum::Add, "FPINs of frames: kept for too long"},
        {"fpin_dn_unable_to_route", ZTEMeasureSum::Add, "FPINs of frames: without a way"},
        {"fpin_dn_device_specific", ZTEMeasureSum::Add, "FPINs of frames: what a device calls so"},
    };
    const auto* const lpAt =
        std::find_if(std::begin(sMeasures), std::end(sMeasures),
                     [&](const ZTSMeasureFacts& acrFacts) { return aName == acrFacts.mpName; });
    return lpAt != std::end(sMeasures) ? lpAt : nullptr;
}
