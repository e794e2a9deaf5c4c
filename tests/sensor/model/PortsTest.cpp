// Whose an address is: in its fabric, and among all.
#include "Ports.h"

namespace {

ZTSWwn named(std::uint8_t aNumber) {
    return {{80, 6, 1, 96, 0, 0, 0, aNumber}};
}

ZTSRemotePort remote(std::uint8_t aName, const char* apFabric, std::uint32_t aAddress,
                     const char* apRoles = "FCP Target") {
    return {{}, {named(aName), named(aName)}, "Online", apRoles, aAddress, apFabric};
}

TEST(Ports, AnAddressThatIsNotOnePortsAloneNamesNobody) {
    ZTSHostPorts lPorts;
    lPorts.mLocal.push_back({{named(1), named(1)}, "host3", "Online", "", "", 0x010100, "a"});
    lPorts.mLocal.push_back({{named(2), named(2)}, "host4", "Online", "", "", 0x010200, "b"});
    lPorts.mRemote = {
        remote(11, "a", 0x010300),                   // one
        remote(11, "a", 0x010300),                   // whom two ports see
        remote(12, "a", 0x010400),                   // one in each fabric
        remote(13, "b", 0x010400),                   //
        remote(14, "a", 0x010500),                   // two that claim it
        remote(15, "a", 0x010500, "FCP Initiator"),  //
        remote(16, "b", 0x010100),                   // the address of a port of the host in the other one
        remote(17, "b", 0x010600, "FCP Initiator"),  // no target
        remote(18, "", 0x010700),                    // of no known fabric
    };
    lPorts.mRemote.push_back(remote(19, "a", 0));
    lPorts.mRemote.back().mPortId.reset();

    const auto lFind = [&](const char* apFabric, std::uint32_t aAddress) {
        const ZTSRemotePort* const lpPort = lPorts.findAt(apFabric, aAddress);
        return lpPort != nullptr ? lpPort->mNames.mPort.mBytes[7] : 0;
    };
    EXPECT_EQ(lFind("a", 0x010300), 11);
    EXPECT_EQ(lFind("b", 0x010300), 0);
    EXPECT_EQ(lFind("a", 0x010400), 12);
    EXPECT_EQ(lFind("b", 0x010400), 13);
    EXPECT_EQ(lFind("a", 0x010500), 0);
    EXPECT_EQ(lFind("b", 0x010600), 17);
    EXPECT_EQ(lFind("", 0x010700), 0);

    std::vector<int> lTargets;
    for (const ZTSRemotePort* const lpPort : lPorts.listUniqueTargets()) {
        lTargets.push_back(lpPort->mNames.mPort.mBytes[7]);
    }
    EXPECT_EQ(lTargets, (std::vector<int>{11, 18}));
    EXPECT_EQ(lPorts.fabricOf(named(2)), "b");
    EXPECT_EQ(lPorts.fabricOf(named(3)), "");
}

}  // namespace
