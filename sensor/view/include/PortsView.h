// The host's ports and those that they see, as people ask for them.
#pragma once

#include <map>

#include "StoreReader.h"

struct ZTSPortsView {
    /// How many errors each counter has counted in the last hour.
    using Errors = std::map<std::string, std::uint64_t>;

    std::string mHost;
    ZTPortLabels mLabels;
    std::vector<ZTSStoredPort> mLocal;
    std::vector<ZTSStoredRemotePort> mRemote;
    std::vector<ZTSBlindSpot> mBlindSpots;
    std::map<ZTSMeasured, Errors> mErrors;

    /// Of a local port, or of one that it sees.
    const Errors& errorsOf(const ZTSWwn& acrInitiator, const ZTSWwn& acrRemote = {}) const;
};

/// Throws ZTCStoreError.
ZTSPortsView readPortsView(ZTCStoreReader& arReader);

std::string portsJson(const ZTSPortsView& acrPorts);

/// Six hex digits; empty for none.
std::string portIdText(const std::optional<std::uint32_t>& acrId);
