#include <algorithm>
#include <cctype>

#include "HostJson.h"
#include "PortsView.h"
#include "RecordJson.h"
#include "TimeText.h"
#include "ViewJson.h"

namespace {

void sPutErrors(ZTCJsonWriter& arJson, const ZTSPortsView::Errors& acrErrors) {
    arJson.key("errors_last_hour");
    arJson.beginObject();
    for (const auto& [lrName, lErrors] : acrErrors) {
        // The names are those of files of the kernel's; whatever else stands there would need escapes.
        if (std::all_of(lrName.begin(), lrName.end(),
                        [](char aSign) { return isalnum(aSign) != 0 || aSign == '_'; })) {
            arJson.key(lrName);
            arJson.number(lErrors);
        }
    }
    arJson.endObject();
}

// What both sorts of ports have.
template <class Stored>
void sPutPort(ZTCJsonWriter& arJson, const Stored& acrStored, const ZTPortLabels& acrLabels) {
    const auto& lrPort = acrStored.mPort;
    arJson.key("port_name");
    arJson.text(lrPort.mNames.mPort.toText());
    arJson.key("node_name");
    arJson.text(lrPort.mNames.mNode.toText());
    putLabel(arJson, lrPort.mNames.mPort, acrLabels);
    arJson.key("here");
    arJson.boolean(acrStored.mIsHere);
    arJson.key("seen");
    putTime(arJson, toSensorTime(acrStored.mSeen));
    arJson.key("state");
    arJson.escapedTextOrNull(lrPort.mState);
    arJson.key("port_id");
    arJson.textOrNull(portIdText(lrPort.mPortId));
    arJson.key("fabric");
    arJson.escapedTextOrNull(lrPort.mFabric);
}

void sPutRemotePorts(ZTCJsonWriter& arJson, const ZTSPortsView& acrPorts, const ZTSWwn& acrInitiator) {
    arJson.beginList();
    for (const ZTSStoredRemotePort& lrRemote : acrPorts.mRemote) {
        if (lrRemote.mPort.mInitiator == acrInitiator) {
            arJson.beginObject();
            sPutPort(arJson, lrRemote, acrPorts.mLabels);
            putTexts(arJson, {{"roles", lrRemote.mPort.mRoles}});
            arJson.key("dev_loss_tmo");
            lrRemote.mPort.mDevLossTmo ? arJson.number(*lrRemote.mPort.mDevLossTmo) : arJson.null();
            sPutErrors(arJson, acrPorts.errorsOf(acrInitiator, lrRemote.mPort.mNames.mPort));
            arJson.endObject();
        }
    }
    arJson.endList();
}

}  // namespace

std::string portsJson(const ZTSPortsView& acrPorts) {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putHead(lJson, "ports");
    lJson.key("host");
    lJson.escapedTextOrNull(acrPorts.mHost);
    lJson.key("ports");
    lJson.beginList();
    for (const ZTSStoredPort& lrStored : acrPorts.mLocal) {
        lJson.beginObject();
        sPutPort(lJson, lrStored, acrPorts.mLabels);
        lJson.key("since");
        lJson.textOrNull(lrStored.mSince != 0 ? isoText(toSensorTime(lrStored.mSince)) : "");
        const ZTSLocalPort& lrPort = lrStored.mPort;
        putTexts(lJson, {{"host", lrPort.mHost},
                         {"speed", lrPort.mSpeed},
                         {"type", lrPort.mType},
                         {"symbolic_name", lrPort.mSymbolicName},
                         {"model", lrPort.mModel},
                         {"firmware", lrPort.mFirmware},
                         {"driver", lrPort.mDriver}});
        sPutErrors(lJson, acrPorts.errorsOf(lrPort.mNames.mPort));
        lJson.key("remote_ports");
        sPutRemotePorts(lJson, acrPorts, lrStored.mPort.mNames.mPort);
        lJson.endObject();
    }
    lJson.endList();
    putBlindSpots(lJson, acrPorts.mBlindSpots);
    lJson.endObject();
    return lText + "\n";
}
