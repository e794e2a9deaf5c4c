#include "ScsiTargets.h"

#include <algorithm>
#include <string_view>

#include "Folder.h"

namespace {

constexpr std::size_t sMaxNames = 16384;
constexpr std::uint32_t sMaxNumber = INT32_MAX;  // the kernel's own numbers are signed

constexpr std::string_view sPrefix = "rport-";

// Whether what was read then need not be read again. What was not found then may be there soon.
bool sIsFresh(const std::optional<ZTCScsiTargets::Time>& acrRead, bool aIsFound, ZTCScsiTargets::Time aNow) {
    return acrRead && aNow - *acrRead < std::chrono::milliseconds(aIsFound ? 1000 : 100);
}

std::optional<std::uint32_t> sToNumber(std::string_view aText) {
    const auto lNumber = toFcNumber(aText);
    return lNumber && *lNumber <= sMaxNumber ? std::optional(static_cast<std::uint32_t>(*lNumber))
                                             : std::nullopt;
}

// What a target's or a remote port's folder says, read once.
class Attributes {
  public:
    explicit Attributes(const std::string& acrPath) : mFolder(acrPath, sNames, mKept) { mFolder.begin(); }
    std::optional<std::uint64_t> readPort() {
        const std::string_view lText = mFolder.read(0, mBytes);
        const auto lPort = lText.starts_with("0x") ? toFcNumber(lText.substr(2), 16) : std::nullopt;
        return lPort == 0 || lPort == UINT64_MAX ? std::nullopt : lPort;
    }
    std::optional<std::uint32_t> readTarget() { return sToNumber(mFolder.read(1, mBytes)); }

  private:
    static constexpr const char* sNames[] = {"port_name", "scsi_target_id"};

    ZTSFcKept mKept{0};  // none
    ZTCFcFolder mFolder;
    ZTCFcFolder::Bytes mBytes;
};

}  // namespace

std::uint64_t ZTCScsiTargets::getPort(const ZTSScsiTarget& acrTarget, std::uint64_t aIdentity, Time aNow) {
    Name& lrName = find(acrTarget, aIdentity);
    if (!sIsFresh(lrName.mRead, lrName.mPort != 0, aNow)) {
        lrName.mPort = read(acrTarget, aNow).value_or(lrName.mPort);
        lrName.mRead = aNow;
    }
    return lrName.mPort;
}

// When there are too many names, all are forgotten, and read again where they still can be.
ZTCScsiTargets::Name& ZTCScsiTargets::find(const ZTSScsiTarget& acrTarget, std::uint64_t aIdentity) {
    Host& lrHost = mHosts[acrTarget.mHost];
    if (lrHost.mIdentity != aIdentity) {
        mCount -= lrHost.mNames.size();
        lrHost.mNames.clear();
        lrHost.mIdentity = aIdentity;
    }
    const auto [lName, lIsNew] = lrHost.mNames.try_emplace({acrTarget.mChannel, acrTarget.mTarget});
    mCount += lIsNew ? 1 : 0;
    if (mCount <= sMaxNames) {
        return lName->second;
    }
    mHosts.clear();
    mCount = 0;
    return find(acrTarget, aIdentity);
}

std::optional<std::uint64_t> ZTCScsiTargets::read(const ZTSScsiTarget& acrTarget, Time aNow) {
    const auto& [lHost, lChannel, lTarget] = acrTarget;
    if (lHost > sMaxNumber || lChannel > sMaxNumber || lTarget > sMaxNumber) {
        return {};
    }
    const std::string lPath = mClass + "fc_transport/target" + std::to_string(lHost) + ":" +
                              std::to_string(lChannel) + ":" + std::to_string(lTarget);
    if (const auto lPort = Attributes(lPath).readPort()) {
        return lPort;
    }
    if (!sIsFresh(mRemotePortsRead, mRemotePorts.count(acrTarget) != 0, aNow)) {
        readRemotePorts();
        mRemotePortsRead = aNow;
    }
    const auto lFound = mRemotePorts.find(acrTarget);
    return lFound != mRemotePorts.end() ? std::optional(lFound->second) : std::nullopt;
}

// A target has no entry of its own before its first logical unit is found, nor a name there with some
// drivers: but the remote port has both, and says which target it is.
void ZTCScsiTargets::readRemotePorts() {
    mRemotePorts.clear();
    const std::string lFolder = mClass + "fc_remote_ports/";
    ZTSFcKept lKept{0};
    eachFcName(lFolder, lKept, [&](const char* apName, std::uint64_t /*aInode*/) {
        const std::string_view lName(apName);  // such as rport-3:0-1
        const std::size_t lColon = std::min(lName.find(':'), lName.size());
        const std::size_t lDash = std::min(lName.find('-', lColon), lName.size());
        if (!lName.starts_with(sPrefix) || lDash == lName.size() || mRemotePorts.size() >= sMaxNames) {
            return;
        }
        Attributes lAttributes(lFolder + apName);
        const auto lHost = sToNumber(lName.substr(sPrefix.size(), lColon - sPrefix.size()));
        const auto lChannel = sToNumber(lName.substr(lColon + 1, lDash - lColon - 1));
        const auto lTarget = lAttributes.readTarget();
        const auto lPort = lAttributes.readPort();
        if (lHost && lChannel && lTarget && lPort) {
            mRemotePorts[{*lHost, *lChannel, *lTarget}] = *lPort;
        }
    });
}
