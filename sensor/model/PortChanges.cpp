#include "PortChanges.h"

#include <fmt/format.h>

namespace {

struct Attribute {
    const char* mpName;
    std::string mValue;
    bool mMayBeNone = true;  // else nothing is what is not known, which says nothing
};

std::string sText(const std::optional<std::uint32_t>& acrPortId) {
    return acrPortId ? fmt::format("0x{:06x}", *acrPortId) : "";
}

std::vector<Attribute> sAttributesOf(const ZTSLocalPort& acrPort) {
    return {{"state", acrPort.mState},
            {"speed", acrPort.mSpeed},
            {"port_id", sText(acrPort.mPortId)},
            {"fabric", acrPort.mFabric},
            {"firmware", acrPort.mFirmware, false},
            {"driver", acrPort.mDriver, false}};
}
// Its fabric is its initiator's.
std::vector<Attribute> sAttributesOf(const ZTSRemotePort& acrPort) {
    return {{"state", acrPort.mState},
            {"port_id", sText(acrPort.mPortId)},
            {"dev_loss_tmo", acrPort.mDevLossTmo ? std::to_string(*acrPort.mDevLossTmo) : "", false}};
}

std::string sNameOf(const ZTSLocalPort& acrPort) {
    return acrPort.mNames.mPort.toText();
}
std::string sNameOf(const ZTSRemotePort& acrPort) {
    return fmt::format("{} seen from {}", acrPort.mNames.mPort.toText(), acrPort.mInitiator.toText());
}

ZTSWwn sKeyOf(const ZTSLocalPort& acrPort) {
    return acrPort.mNames.mPort;
}
std::pair<ZTSWwn, ZTSWwn> sKeyOf(const ZTSRemotePort& acrPort) {
    return {acrPort.mInitiator, acrPort.mNames.mPort};
}

template <class Port>
auto sByKey(const std::vector<Port>& acrPorts) {
    std::map<decltype(sKeyOf(acrPorts[0])), const Port*> lPorts;
    for (const Port& lrPort : acrPorts) {
        lPorts.emplace(sKeyOf(lrPort), &lrPort);
    }
    return lPorts;
}

template <class Port>
void sList(const char* apWhat, const std::vector<Port>& acrBefore, const std::vector<Port>& acrAfter,
           ZTNanoseconds aTime, std::vector<ZTSChange>& arChanges) {
    const auto lBefore = sByKey(acrBefore);
    const auto lAfter = sByKey(acrAfter);
    for (const auto& [lrKey, lrpPort] : lBefore) {
        if (!lAfter.contains(lrKey)) {
            arChanges.push_back({aTime, apWhat, sNameOf(*lrpPort), "went", "", lrpPort->mState, ""});
        }
    }
    for (const auto& [lrKey, lrpPort] : lAfter) {
        const auto lOld = lBefore.find(lrKey);
        if (lOld == lBefore.end()) {
            arChanges.push_back({aTime, apWhat, sNameOf(*lrpPort), "came", "", "", lrpPort->mState});
            continue;
        }
        if (*lOld->second == *lrpPort) {
            continue;
        }
        const auto lOldOnes = sAttributesOf(*lOld->second);
        const auto lNewOnes = sAttributesOf(*lrpPort);
        for (std::size_t lAt = 0; lAt < lNewOnes.size(); ++lAt) {
            const auto& [lrpName, lrNew, lrMayBeNone] = lNewOnes[lAt];
            const std::string& lrOld = lOldOnes[lAt].mValue;
            if (lrOld != lrNew && (lrMayBeNone || !(lrOld.empty() || lrNew.empty()))) {
                arChanges.push_back({aTime, apWhat, sNameOf(*lrpPort), "changed", lrpName, lrOld, lrNew});
            }
        }
    }
}

}  // namespace

std::vector<ZTSChange> listPortChanges(const ZTSHostPorts& acrBefore, const ZTSHostPorts& acrAfter,
                                       ZTNanoseconds aTime) {
    std::vector<ZTSChange> lChanges;
    sList("port", acrBefore.mLocal, acrAfter.mLocal, aTime, lChanges);
    sList("remote_port", acrBefore.mRemote, acrAfter.mRemote, aTime, lChanges);
    return lChanges;
}
