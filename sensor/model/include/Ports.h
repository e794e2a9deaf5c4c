// The Fibre Channel ports of a host, and those that they see beyond the fabric.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Wwn.h"

struct ZTSLocalPort {
    ZTSPortNames mNames;
    std::string mHost;                     ///< "host3"; empty: only the agent has told of it
    std::string mState;                    ///< as the kernel says it: "Online"; empty: not known
    std::string mSpeed;                    ///< "16 Gbit"
    std::string mType;                     ///< "NPort (fabric via point-to-point)"
    std::optional<std::uint32_t> mPortId;  ///< its address, 24 bits
    std::string mFabric;  ///< the fabric's name of the names file, else its world wide name; empty: not known
    std::string mSymbolicName{};  ///< what the driver says of itself to the fabric
    std::string mModel{};
    std::string mFirmware{};  ///< its version
    std::string mDriver{};    ///< its name and version: "fcoe 1.2"

    bool operator==(const ZTSLocalPort&) const = default;
};

struct ZTSRemotePort {
    ZTSWwn mInitiator;  ///< the port name of the local port that sees it
    ZTSPortNames mNames;
    std::string mState;
    std::string mRoles;  ///< "FCP Target"
    std::optional<std::uint32_t> mPortId;
    std::string mFabric;                         ///< the initiator's
    std::optional<std::uint32_t> mDevLossTmo{};  ///< seconds until a port that is gone takes its LUNs with it

    bool operator==(const ZTSRemotePort&) const = default;
};

/// All of them at one moment. An address means something in its own fabric alone. A plain value: any thread.
struct ZTSHostPorts {
    std::vector<ZTSLocalPort> mLocal;
    std::vector<ZTSRemotePort> mRemote;

    /// Empty if it is not known.
    std::string_view fabricOf(const ZTSWwn& acrInitiator) const;
    /// The remote port with this address in a fabric. Null: none, two claim it, or the fabric is not known.
    const ZTSRemotePort* findAt(std::string_view aFabric, std::uint32_t aAddress) const;
    /// The remote ports with a role of a target whose address no other port, of whatever fabric, has too;
    /// each once, though several ports of the host see it.
    std::vector<const ZTSRemotePort*> listUniqueTargets() const;

    bool operator==(const ZTSHostPorts&) const = default;
};

/// What people call a port: a line of the names file.
struct ZTSPortLabel {
    std::string mName;
    std::string mArray;
    std::string mController;
    std::string mFabric;
    std::string mSwitchPort;

    bool operator==(const ZTSPortLabel&) const = default;
};
using ZTPortLabels = std::map<ZTSWwn, ZTSPortLabel>;
