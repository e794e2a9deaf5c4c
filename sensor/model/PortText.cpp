#include "PortText.h"

#include "ShownText.h"

namespace {

// Calls for each port's number in a text, with the port and where its number stands.
template <class Call>
void sForEachPortIn(std::string_view aText, const Call& acrCall) {
    for (std::size_t lAt = 0; lAt + ZTSWwn::TextSize <= aText.size();) {
        // A number with colons, so that no other digits are taken for one.
        const std::string_view lPart = aText.substr(lAt, ZTSWwn::TextSize);
        const auto lPort = lPart[2] == ':' ? ZTSWwn::fromText(lPart) : std::nullopt;
        if (lPort) {
            acrCall(*lPort, lAt);
        }
        lAt += lPort ? ZTSWwn::TextSize : 1;
    }
}

template <class IsMeant>
std::vector<ZTSWwn> sListPorts(const ZTPortLabels& acrLabels, const IsMeant& acrIsMeant) {
    std::vector<ZTSWwn> lPorts;
    for (const auto& [lrPort, lrLabel] : acrLabels) {
        if (acrIsMeant(lrLabel)) {
            lPorts.push_back(lrPort);
        }
    }
    return lPorts;
}

}  // namespace

const ZTSPortLabel& labelOf(const ZTPortLabels& acrLabels, const std::optional<ZTSWwn>& acrPort) {
    static const ZTSPortLabel sNone;
    const auto lAt = acrPort ? acrLabels.find(*acrPort) : acrLabels.end();
    return lAt != acrLabels.end() ? lAt->second : sNone;
}

std::string portText(const ZTPortLabels& acrLabels, const std::optional<ZTSWwn>& acrPort) {
    if (!acrPort) {
        return "-";
    }
    const std::string& lrName = labelOf(acrLabels, acrPort).mName;
    return lrName.empty() ? acrPort->toText() : toShownText(lrName);
}

std::vector<ZTSWwn> listPortsIn(std::string_view aText) {
    std::vector<ZTSWwn> lPorts;
    sForEachPortIn(aText, [&](const ZTSWwn& acrPort, std::size_t /*aAt*/) { lPorts.push_back(acrPort); });
    return lPorts;
}

std::string nameThePortsIn(const ZTPortLabels& acrLabels, std::string_view aText) {
    std::string lText;
    std::size_t lEnd = 0;
    sForEachPortIn(aText, [&](const ZTSWwn& acrPort, std::size_t aAt) {
        const std::string_view lName = labelOf(acrLabels, acrPort).mName;
        lText += aText.substr(lEnd, aAt - lEnd);
        lText += lName.empty() ? aText.substr(aAt, ZTSWwn::TextSize) : lName;
        lEnd = aAt + ZTSWwn::TextSize;
    });
    lText += aText.substr(lEnd);
    return lText;
}

std::vector<ZTSWwn> findPorts(const ZTPortLabels& acrLabels, std::string_view aText) {
    if (const auto lPort = ZTSWwn::fromText(aText)) {
        return {*lPort};
    }
    std::vector<ZTSWwn> lPorts =
        sListPorts(acrLabels, [&](const ZTSPortLabel& acrLabel) { return acrLabel.mName == aText; });
    if (!lPorts.empty() || aText.empty()) {
        return lPorts;
    }
    return sListPorts(acrLabels, [&](const ZTSPortLabel& acrLabel) {
        return !acrLabel.mArray.empty() &&
               (acrLabel.mArray == aText ||
                (!acrLabel.mController.empty() && acrLabel.mArray + "/" + acrLabel.mController == aText));
    });
}
