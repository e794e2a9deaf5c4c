#include "PortCounters.h"

#include <algorithm>
#include <charconv>
#include <span>

#include "SysfsFolder.h"

namespace {

#define ZT_COUNTER(name) "statistics/" name
// Of remote ports from fpin_li on. fpin_li, fpin_cn and fpin_dn are the sums of those behind them.
constexpr const char* sCounters[] = {
    ZT_COUNTER("link_failure_count"),
    ZT_COUNTER("loss_of_sync_count"),
    ZT_COUNTER("loss_of_signal_count"),
    ZT_COUNTER("prim_seq_protocol_err_count"),
    ZT_COUNTER("invalid_tx_word_count"),
    ZT_COUNTER("invalid_crc_count"),
    ZT_COUNTER("lip_count"),
    ZT_COUNTER("nos_count"),
    ZT_COUNTER("error_frames"),
    ZT_COUNTER("dumped_frames"),
    ZT_COUNTER("fpin_li"),
    ZT_COUNTER("fpin_cn"),
    ZT_COUNTER("fpin_dn"),
    ZT_COUNTER("fpin_li_failure_unknown"),
    ZT_COUNTER("fpin_li_link_failure_count"),
    ZT_COUNTER("fpin_li_loss_of_sync_count"),
    ZT_COUNTER("fpin_li_loss_of_signals_count"),
    ZT_COUNTER("fpin_li_prim_seq_err_count"),
    ZT_COUNTER("fpin_li_invalid_tx_word_count"),
    ZT_COUNTER("fpin_li_invalid_crc_count"),
    ZT_COUNTER("fpin_li_device_specific"),
    ZT_COUNTER("fpin_cn_clear"),
    ZT_COUNTER("fpin_cn_lost_credit"),
    ZT_COUNTER("fpin_cn_credit_stall"),
    ZT_COUNTER("fpin_cn_oversubscription"),
    ZT_COUNTER("fpin_cn_device_specific"),
    ZT_COUNTER("fpin_dn_unknown"),
    ZT_COUNTER("fpin_dn_timeout"),
    ZT_COUNTER("fpin_dn_unable_to_route"),
    ZT_COUNTER("fpin_dn_device_specific"),
};
constexpr std::size_t sFpins = 10;
constexpr std::size_t sFpinParts = 13;
constexpr std::uint64_t sMostAdded = UINT32_MAX;  // in a round: what is more was no count
constexpr std::size_t sBeforeName = std::string_view("statistics/").size();

constexpr char sLocalClass[] = "fc_host/";
constexpr char sRemoteClass[] = "fc_remote_ports/";
constexpr char sRemotePort[] = "rport-";
constexpr const char* sNames[] = {"port_name"};

std::string sNameOf(std::size_t aCounter) {
    return sCounters[aCounter] + sBeforeName;
}

bool sIsRemote(const std::string& acrFolder) {
    return acrFolder.starts_with(sRemoteClass);
}

// "host3" of fc_host/host3 and of fc_remote_ports/rport-3:0-1.
std::string sHostOf(const std::string& acrFolder) {
    if (!sIsRemote(acrFolder)) {
        return acrFolder.substr(sizeof sLocalClass - 1);
    }
    const std::string lNumbers = acrFolder.substr(sizeof sRemoteClass + sizeof sRemotePort - 2);
    return "host" + lNumbers.substr(0, lNumbers.find(':'));
}

// All ones in 64 or in 32 bits: the driver does not count it.
std::optional<std::uint64_t> sValue(std::string_view aText) {
    const bool lIsHex = aText.starts_with("0x");
    aText.remove_prefix(lIsHex ? 2 : 0);
    std::uint64_t lValue = 0;
    const auto lParsed = std::from_chars(aText.begin(), aText.end(), lValue, lIsHex ? 16 : 10);
    const bool lIsValue = lParsed.ec == std::errc() && lParsed.ptr == aText.end() && lValue != UINT64_MAX &&
                          lValue != UINT32_MAX;
    return lIsValue ? std::optional(lValue) : std::nullopt;
}

}  // namespace

ZTCPortCounters::ZTCPortCounters(const std::string& acrRoot) : mClasses(acrRoot + "/sys/class/") {
    static_assert(std::size(sCounters) == Counters);
}

void ZTCPortCounters::step(const ZTSHostPorts& acrPorts, ZTNanoseconds aTime, ZTCMeasures& arMeasures) {
    if (mCall == 0) {
        begin(acrPorts);
    }
    mCall = (mCall + 1) % CallsARound;
    for (std::size_t lCount = std::min(mPart, mDue.size()); lCount != 0; --lCount) {
        auto* const lpPort = mDue.back();
        mDue.pop_back();
        read(*lpPort, acrPorts, aTime, arMeasures);
    }
}

void ZTCPortCounters::begin(const ZTSHostPorts& acrPorts) {
    ++mRound;
    mDue.clear();
    for (const ZTSLocalPort& lrPort : acrPorts.mLocal) {
        if (!lrPort.mHost.empty()) {
            add(sLocalClass + lrPort.mHost);
        }
    }
    const bool lIsListed = eachSysfsName(mClasses + sRemoteClass, [this](const char* apName, std::uint64_t) {
        if (std::string_view(apName).starts_with(sRemotePort)) {
            add(sRemoteClass + std::string(apName));
        }
    });
    if (lIsListed) {
        std::erase_if(mPorts, [this](const auto& acrPort) { return acrPort.second.mRound != mRound; });
    }
    std::reverse(mDue.begin(), mDue.end());
    mPart = (mDue.size() + CallsARound - 1) / CallsARound;
}

void ZTCPortCounters::add(const std::string& acrFolder) {
    const auto lAt = mPorts.find(acrFolder);
    if (lAt == mPorts.end() && mPorts.size() >= MostPorts) {
        return;
    }
    mDue.push_back(lAt != mPorts.end() ? &*lAt : &*mPorts.try_emplace(acrFolder).first);
    mDue.back()->second.mRound = mRound;
}

void ZTCPortCounters::read(Ports::value_type& arPort, const ZTSHostPorts& acrPorts, ZTNanoseconds aTime,
                           ZTCMeasures& arMeasures) const {
    auto& [lrFolder, lrPort] = arPort;
    const std::string lHost = sHostOf(lrFolder);
    const auto lLocal = std::find_if(acrPorts.mLocal.begin(), acrPorts.mLocal.end(),
                                     [&](const ZTSLocalPort& acrOne) { return acrOne.mHost == lHost; });
    if (lLocal == acrPorts.mLocal.end()) {
        return;
    }
    ZTSMeasured lWhose{lLocal->mNames.mPort, {}, {}};
    const bool lIsRemote = sIsRemote(lrFolder);
    if (lIsRemote) {
        const auto lName = ZTSWwn::fromText(ZTCSysfsFolder(mClasses + lrFolder, sNames).read(0).value_or(""));
        if (!lName) {
            return;
        }
        lWhose.mRemote = *lName;
    }
    if (!lrPort.mIsRead || lrPort.mWhose != lWhose) {
        lrPort.mWhose = lWhose;
        lrPort.mIsRead = false;
        lrPort.mValues.fill(NoValue);
    }
    ZTCSysfsFolder lFolder(mClasses + lrFolder, sCounters);
    bool lHasMore = !lIsRemote || !lrPort.mIsRead;
    for (std::size_t lAt = lIsRemote ? sFpins : 0; lAt < (lHasMore ? Counters : sFpinParts); ++lAt) {
        const auto lValue = sValue(lFolder.read(lAt).value_or(""));
        std::uint64_t& lrKnown = lrPort.mValues[lAt];
        if (lValue && lrKnown != NoValue && *lValue > lrKnown && *lValue - lrKnown <= sMostAdded) {
            arMeasures.add(aTime, lWhose, sNameOf(lAt), *lValue - lrKnown);
        }
        lHasMore = lHasMore || (lValue && *lValue != lrKnown);
        lrKnown = lValue.value_or(lrKnown);
    }
    lrPort.mIsRead = true;
}

std::vector<ZTSBlindSpot> ZTCPortCounters::listBlindSpots() const {
    std::vector<ZTSBlindSpot> lSpots;
    for (const auto& [lrFolder, lrPort] : mPorts) {
        if (sIsRemote(lrFolder) || !lrPort.mIsRead) {
            continue;
        }
        std::string lNames;
        std::size_t lMissing = 0;
        for (std::size_t lAt = 0; lAt <= sFpins; ++lAt) {  // fpin_li for all of its kind
            if (lrPort.mValues[lAt] == NoValue) {
                ++lMissing;
                lNames += (lNames.empty() ? "" : ", ") + (lAt == sFpins ? "fpin_*" : sNameOf(lAt));
            }
        }
        if (lMissing != 0) {
            lSpots.push_back({"counters", lrPort.mWhose.mInitiator.toText(),
                              lMissing > sFpins ? "the driver has none" : "the driver has no " + lNames});
        }
    }
    return lSpots;
}
