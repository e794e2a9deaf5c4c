#include <fmt/format.h>

#include "Commands.h"
#include "Failure.h"
#include "HistoryPrinter.h"
#include "Json.h"
#include "RecordJson.h"
#include "ShownText.h"
#include "StoreReader.h"
#include "Table.h"
#include "Terminal.h"
#include "TimeText.h"

namespace {

struct Ports {
    std::string mHost;
    ZTPortLabels mLabels;
    std::vector<ZTSStoredPort> mLocal;
    std::vector<ZTSStoredRemotePort> mRemote;
};

std::string sNameOf(const ZTPortLabels& acrLabels, const ZTSWwn& acrPort) {
    const auto lAt = acrLabels.find(acrPort);
    return lAt != acrLabels.end() ? lAt->second.mName : "";
}

std::string sShown(const std::string& acrText) {
    return acrText.empty() ? "-" : toShownText(acrText);
}

std::string sIdText(const std::optional<std::uint32_t>& acrId) {
    return acrId ? fmt::format("{:06x}", *acrId) : "";
}

// The state, or that it has gone and when it was there last.
std::string sStateText(const std::string& acrState, bool aIsHere, ZTNanoseconds aSeen, bool aInUtc) {
    if (!aIsHere) {
        return "gone, last seen " + plainText(toSensorTime(aSeen), aInUtc);
    }
    return acrState.empty() ? "state not known" : toShownText(acrState);
}

std::string sTextOf(const Ports& acrPorts, bool aInUtc) {
    if (acrPorts.mLocal.empty() && acrPorts.mRemote.empty()) {
        return "no ports\n";
    }
    std::string lText;
    for (const ZTSStoredPort& lrStored : acrPorts.mLocal) {
        const ZTSLocalPort& lrPort = lrStored.mPort;
        const std::string lName = sNameOf(acrPorts.mLabels, lrPort.mNames.mPort);
        lText +=
            fmt::format("{}{}{}, {}, id {}, fabric {}: {}{}\n", lText.empty() ? "" : "\n",
                        bold(lrPort.mNames.mPort.toText()), lName.empty() ? "" : " " + toShownText(lName),
                        lrPort.mHost.empty() ? "known from the agent alone" : toShownText(lrPort.mHost),
                        sShown(sIdText(lrPort.mPortId)), sShown(lrPort.mFabric),
                        sStateText(lrPort.mState, lrStored.mIsHere, lrStored.mSeen, aInUtc),
                        lrStored.mIsHere && !lrPort.mSpeed.empty() ? ", " + toShownText(lrPort.mSpeed) : "");
        if (lrStored.mIsHere && lrStored.mSince != 0 && !lrPort.mState.empty()) {
            lText.insert(lText.size() - 1, ", since " + plainText(toSensorTime(lrStored.mSince), aInUtc));
        }
        ZTCTable lTable({{"remote port"}, {"name"}, {"id"}, {"roles"}, {"state"}});
        bool lAreAny = false;
        for (const ZTSStoredRemotePort& lrRemote : acrPorts.mRemote) {
            const ZTSRemotePort& lrIt = lrRemote.mPort;
            if (lrIt.mInitiator == lrPort.mNames.mPort) {
                lAreAny = true;
                lTable.add({lrIt.mNames.mPort.toText(), sShown(sNameOf(acrPorts.mLabels, lrIt.mNames.mPort)),
                            sShown(sIdText(lrIt.mPortId)), sShown(lrIt.mRoles),
                            sStateText(lrIt.mState, lrRemote.mIsHere, lrRemote.mSeen, aInUtc)});
            }
        }
        lText += lAreAny ? lTable.toText() : "";
    }
    return lText;
}

// What both sorts of ports have.
template <class Stored>
void sPutPort(ZTCJsonWriter& arJson, const Stored& acrStored, const ZTPortLabels& acrLabels) {
    const auto& lrPort = acrStored.mPort;
    arJson.key("port_name");
    arJson.text(lrPort.mNames.mPort.toText());
    arJson.key("node_name");
    arJson.text(lrPort.mNames.mNode.toText());
    arJson.key("name");
    arJson.escapedTextOrNull(sNameOf(acrLabels, lrPort.mNames.mPort));
    arJson.key("here");
    arJson.boolean(acrStored.mIsHere);
    arJson.key("seen");
    putTime(arJson, toSensorTime(acrStored.mSeen));
    arJson.key("state");
    arJson.escapedTextOrNull(lrPort.mState);
    arJson.key("port_id");
    arJson.textOrNull(sIdText(lrPort.mPortId));
    arJson.key("fabric");
    arJson.escapedTextOrNull(lrPort.mFabric);
}

void sPutRemotePorts(ZTCJsonWriter& arJson, const Ports& acrPorts, const ZTSWwn& acrInitiator) {
    arJson.beginList();
    for (const ZTSStoredRemotePort& lrRemote : acrPorts.mRemote) {
        if (lrRemote.mPort.mInitiator == acrInitiator) {
            arJson.beginObject();
            sPutPort(arJson, lrRemote, acrPorts.mLabels);
            arJson.key("roles");
            arJson.escapedTextOrNull(lrRemote.mPort.mRoles);
            arJson.endObject();
        }
    }
    arJson.endList();
}

std::string sJsonOf(const Ports& acrPorts) {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    lJson.key("schema");
    lJson.number(ZTScopeSchema);
    lJson.key("command");
    lJson.text("ports");
    lJson.key("host");
    lJson.escapedTextOrNull(acrPorts.mHost);
    lJson.key("ports");
    lJson.beginList();
    for (const ZTSStoredPort& lrStored : acrPorts.mLocal) {
        lJson.beginObject();
        sPutPort(lJson, lrStored, acrPorts.mLabels);
        lJson.key("since");
        lJson.textOrNull(lrStored.mSince != 0 ? isoText(toSensorTime(lrStored.mSince)) : "");
        lJson.key("host");
        lJson.escapedTextOrNull(lrStored.mPort.mHost);
        lJson.key("speed");
        lJson.escapedTextOrNull(lrStored.mPort.mSpeed);
        lJson.key("type");
        lJson.escapedTextOrNull(lrStored.mPort.mType);
        lJson.key("remote_ports");
        sPutRemotePorts(lJson, acrPorts, lrStored.mPort.mNames.mPort);
        lJson.endObject();
    }
    lJson.endList();
    lJson.endObject();
    return lText + "\n";
}

}  // namespace

int runPorts(const ZTSScopeOptions& acrOptions) {
    ZTCStoreReader lReader(acrOptions.mHistory.mStore);
    const Ports lPorts{lReader.getHost(), lReader.readLabels(), lReader.readPorts(),
                       lReader.readRemotePorts()};
    put(acrOptions.getForm() == ZTEScopeForm::Table ? sTextOf(lPorts, acrOptions.mInUtc) : sJsonOf(lPorts));
    return 0;
}
