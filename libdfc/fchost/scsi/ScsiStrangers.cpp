#include "ScsiStrangers.h"

#include <unistd.h>

namespace {

constexpr std::size_t sMaxKept = 1024;
constexpr std::size_t sMaxHosts = 4096;
constexpr std::chrono::milliseconds sFresh{100};

}  // namespace

ZTCScsiStrangers::Fate ZTCScsiStrangers::take(const ZTSScsiFailure& acrFailure, Time aNow) {
    const Fate lFate = find(acrFailure.mKey.mHost, aNow);
    if (lFate != Keeps) {
        return lFate;
    }
    if (mKept.size() >= sMaxKept) {
        return NoRoom;
    }
    mKept.push_back({acrFailure, aNow + mPatience});
    return Keeps;
}

// A disk of another kind that fails on and on is not asked for each time.
ZTCScsiStrangers::Fate ZTCScsiStrangers::find(std::uint32_t aHost, Time aNow) {
    const auto lKnown = mNotOurs.find(aHost);
    if (lKnown != mNotOurs.end() && aNow - lKnown->second < sFresh) {
        return Nobodys;
    }
    const auto lIsIn = [&](const char* apClass) {
        return access((mClass + apClass + "/host" + std::to_string(aHost)).c_str(), F_OK) == 0;
    };
    if (lIsIn("fc_host")) {
        return Keeps;
    }
    if (!lIsIn("scsi_host")) {
        return Gone;
    }
    if (mNotOurs.size() >= sMaxHosts) {
        mNotOurs.clear();
    }
    mNotOurs[aHost] = aNow;
    return Nobodys;
}
