#include "Sysfs.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

namespace {

enum HostAttribute : unsigned char { HA_State, HA_Node, HA_Port, HA_PermanentPort, HA_Counters };
constexpr auto sHostAttributes = [] {
    std::array<const char*, HA_Counters + std::size(ZTFcCounters)> lNames{"port_state", "node_name",
                                                                          "port_name", "permanent_port_name"};
    std::copy(std::begin(ZTFcCounters), std::end(ZTFcCounters), lNames.begin() + HA_Counters);
    return lNames;
}();

enum PortAttribute : unsigned char { PA_Id, PA_State };
constexpr const char* sPortAttributes[] = {"port_id", "port_state"};

std::string sReadText(ZTCFcFolder& arFolder, std::size_t aAttribute) {
    ZTCFcFolder::Bytes lBytes;
    return std::string(arFolder.read(aAttribute, lBytes));
}

// A number as sysfs writes those of Fibre Channel: hexadecimal, with 0x. All ones: the driver does not count
// that. Of a name and a port id: there is none.
std::optional<std::uint64_t> sReadNumber(ZTCFcFolder& arFolder, std::size_t aAttribute,
                                         std::uint64_t aAllOnes = UINT64_MAX) {
    ZTCFcFolder::Bytes lBytes;
    const std::string_view lText = arFolder.read(aAttribute, lBytes);
    const auto lNumber = lText.starts_with("0x") ? toFcNumber(lText.substr(2), 16) : std::nullopt;
    return lNumber == aAllOnes ? std::nullopt : lNumber;
}

std::optional<std::uint64_t> sReadName(ZTCFcFolder& arFolder, std::size_t aAttribute) {
    const auto lName = sReadNumber(arFolder, aAttribute);
    return lName == 0 ? std::nullopt : lName;
}

// The number that a name such as host3 or rport-3:0-1 has behind the prefix.
std::optional<std::uint32_t> sNumberIn(std::string_view aName, std::string_view aPrefix, char aEnd) {
    std::uint32_t lNumber = 0;
    if (!aName.starts_with(aPrefix)) {
        return {};
    }
    const auto lParsed = std::from_chars(aName.begin() + aPrefix.size(), aName.end(), lNumber);
    const bool lIsWhole =
        lParsed.ec == std::errc() && (lParsed.ptr == aName.end() ? aEnd == '\0' : *lParsed.ptr == aEnd);
    return lIsWhole ? std::optional(lNumber) : std::nullopt;
}

}  // namespace

ZTCFcSysfs::ZTCFcSysfs(const std::string& acrRoot, int aKeptBelow)
    : mKept{aKeptBelow},
      mHosts{acrRoot + "/class/fc_host/", "host", '\0', sHostAttributes},
      mRemotePorts{acrRoot + "/class/fc_remote_ports/", "rport-", ':', sPortAttributes} {}

ZTCFcSysfs::Known::Known(const Class& acrClass, const char* apName, std::uint64_t aInode, ZTSFcKept& arKept)
    : mInode(aInode), mFolder(acrClass.mPath + apName, acrClass.mAttributes, arKept) {}

// The rest of the process has left no descriptor: then it is to have half of those that are kept, and all
// that is kept is opened anew.
std::optional<ZTFcHosts> ZTCFcSysfs::look() {
    for (;;) {
        mKept.mHasRunOut = false;
        auto lHosts = read();
        if (!mKept.mHasRunOut || mKept.mBelow == 0 || mHosts.mKnown.empty()) {
            return lHosts;
        }
        mKept.mBelow /= 2;
        mHosts.mKnown.clear();
        mRemotePorts.mKnown.clear();
    }
}

std::optional<ZTFcHosts> ZTCFcSysfs::read() {
    ZTFcHosts lHosts;
    ++mLook;
    bool lAreHostsRead = true;
    const bool lIsListRead = each(mHosts, [&](std::uint32_t aHost, const char*, Known& arKnown) {
        lAreHostsRead = readHost(aHost, arKnown, lHosts) && lAreHostsRead;
    });
    const bool lArePortsRead =
        each(mRemotePorts, [&](std::uint32_t aHost, const char* apName, Known& arKnown) {
            const auto lHost = lHosts.find(aHost);
            if (lHost == lHosts.end()) {
                return;
            }
            const auto lId = sReadNumber(arKnown.mFolder, PA_Id, UINT32_MAX);
            lHost->second.mRemotePorts[apName] = {
                lId && *lId <= 0xffffff ? std::optional(static_cast<std::uint32_t>(*lId)) : std::nullopt,
                sReadText(arKnown.mFolder, PA_State)};
        });
    return lIsListRead && lAreHostsRead && lArePortsRead ? std::optional(std::move(lHosts)) : std::nullopt;
}

// Calls the function with each folder of a class: the number of its host, its name, and what is known of it.
// False: they cannot be listed.
template <class Do>
bool ZTCFcSysfs::each(Class& arClass, const Do& acrDo) {
    const bool lIsRead = eachFcName(arClass.mPath, mKept, [&](const char* apName, std::uint64_t aInode) {
        const auto lNumber = sNumberIn(apName, arClass.mpPrefix, arClass.mEnd);
        if (!lNumber) {
            return;
        }
        auto lKnown = arClass.mKnown.find(std::string_view(apName));
        if (lKnown != arClass.mKnown.end() && lKnown->second.mInode != aInode) {
            arClass.mKnown.erase(lKnown);
            lKnown = arClass.mKnown.end();
        }
        if (lKnown == arClass.mKnown.end()) {
            lKnown = arClass.mKnown.try_emplace(apName, arClass, apName, aInode, mKept).first;
        }
        lKnown->second.mLook = mLook;
        lKnown->second.mFolder.begin();
        acrDo(*lNumber, apName, lKnown->second);
        lKnown->second.mFolder.end();
    });
    if (lIsRead) {
        std::erase_if(arClass.mKnown,
                      [this](const auto& acrKnown) { return acrKnown.second.mLook != mLook; });
    }
    return lIsRead;
}

// Adds a host, unless it has gone since its name was read. False: whether it is there cannot be known.
bool ZTCFcSysfs::readHost(std::uint32_t aNumber, Known& arKnown, ZTFcHosts& arHosts) const {
    ZTCFcFolder& lrFolder = arKnown.mFolder;
    if (const int lError = lrFolder.find(); lError != 0) {
        return lError == ENOENT || lError == ENOTDIR || lError == ENODEV;
    }
    ZTSFcHost& lrHost = arHosts[aNumber];
    lrHost.mIdentity = arKnown.mInode;
    lrHost.mState = sReadText(lrFolder, HA_State);
    lrHost.mNode = sReadName(lrFolder, HA_Node);
    lrHost.mPort = sReadName(lrFolder, HA_Port);
    if (!lrHost.mPort) {
        lrHost.mPermanentPort = sReadName(lrFolder, HA_PermanentPort);
    }
    for (std::size_t lAt = 0; lAt < lrHost.mCounters.size(); ++lAt) {
        lrHost.mCounters[lAt] = sReadNumber(lrFolder, HA_Counters + lAt);
    }
    return true;
}
