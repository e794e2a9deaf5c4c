// Two fabrics that give out the same addresses: a port is named from its own.
#include <gtest/gtest.h>

#include "PortBook.h"
#include "SnBuffer.h"

namespace {

ZTSWwn named(const char* apText) {
    return *ZTSWwn::fromText(apText);
}

const ZTSWwn sHosts[] = {named("1000000000000001"), named("1000000000000002")};
const ZTSWwn sArrays[] = {named("5000000000000001"), named("5000000000000002")};

// Both hosts' switches say the same of themselves, or nothing: only the names file knows better.
ZTSHostPorts hostPorts(const char* apFabric) {
    ZTSHostPorts lPorts;
    for (unsigned int lPort = 0; lPort < 2; ++lPort) {
        lPorts.mLocal.push_back(
            {{{}, sHosts[lPort]}, "host" + std::to_string(lPort), "Online", "", "", 0x010200, apFabric});
        lPorts.mRemote.push_back(
            {sHosts[lPort], {{}, sArrays[lPort]}, "Online", "FCP Target", 0x010300, apFabric});
    }
    return lPorts;
}

// Whom an RSCN of that address concerns, by whom it was seen.
std::string remotesOf(const ZTSHostPorts& acrPorts) {
    ZTCSnBuffer lBuffer({});
    ZTSensorScopeData lData;
    for (const ZTSWwn& lrHost : sHosts) {
        lData.push_back({{{}, lrHost},
                         {{1, {1'800'000'000, 0}, {1'800'000'000, 0}, 1, 32, {}, {1, 0, 0, 0, 0, 3, 1, 0}}}});
    }
    lBuffer.takeRecords(lData, acrPorts, {}, {});
    std::string lText;
    for (const ZTSStoreRow& lrRow : lBuffer.detach(1).mRows) {
        const ZTSSeries& lrSeries = lrRow.mRecord.mSeries;
        lText += lrSeries.mInitiator.mPort.toText().substr(21) + lrSeries.mFabric + ">" +
                 (lrSeries.mRemote ? lrSeries.mRemote->toText().substr(21) : "nobody") + " ";
    }
    return lText;
}

TEST(TwoFabrics, AnRscnNamesThePortOfItsOwnOne) {
    for (const char* const lpFabric : {"10:00:00:00:00:00:0f:01", ""}) {
        ZTCPortBook lBook;
        lBook.seeHost(hostPorts(lpFabric), 1);
        // Of one fabric two ports cannot have the same address, and of none nothing is known: nobody is
        // named.
        EXPECT_EQ(remotesOf(*lBook.getPorts()),
                  std::string("01") + lpFabric + ">nobody 02" + lpFabric + ">nobody ");
        ZTPortLabels lLabels;
        lLabels[sHosts[0]] = {"hba0", "", "", "left", ""};
        lLabels[sHosts[1]] = {"hba1", "", "", "right", ""};
        lBook.setLabels(lLabels, 2);
        EXPECT_EQ(remotesOf(*lBook.getPorts()), "01left>01 02right>02 ");
        // What an array's line says of its fabric is the array's: it moves no address.
        lLabels[sArrays[0]] = {"array1-A0", "array1", "A", "right", ""};
        lBook.setLabels(lLabels, 3);
        EXPECT_EQ(remotesOf(*lBook.getPorts()), "01left>01 02right>02 ");
    }
    ZTSHostPorts lPorts = hostPorts("10:00:00:00:00:00:0f:01");  // where the switches know, no file is needed
    lPorts.mLocal[1].mFabric = lPorts.mRemote[1].mFabric = "10:00:00:00:00:00:0f:02";
    ZTCPortBook lBook;
    lBook.seeHost(lPorts, 1);
    EXPECT_EQ(remotesOf(*lBook.getPorts()), "0110:00:00:00:00:00:0f:01>01 0210:00:00:00:00:00:0f:02>02 ");
}

}  // namespace
