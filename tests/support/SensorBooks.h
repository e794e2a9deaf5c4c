// What the library has sent to agents that come and go, beside what is in the store.
#pragma once

#include "SensorProgram.h"

/// Its agents' directory is on tmpfs, so that their figures are as of now.
class ZTCSnBooks : public ZTCSnStand {
  public:
    explicit ZTCSnBooks(const Words& acrArguments = {"--every", "0.05", "--fold", "0.5"},
                        const Words& acrEnvironment = {}, const Words& acrAgentEnvironment = {})
        : ZTCSnStand(acrArguments, acrEnvironment, "/dev/shm", acrAgentEnvironment) {}

    /// To be called before an agent ends. aMore: what it may get between this and its end.
    void note(std::uint64_t aMore = 0) {
        const std::uint64_t lDelivered = getDelivered();
        mAtLeast += static_cast<std::int64_t>(lDelivered);
        mAtMost += static_cast<std::int64_t>(std::max(lDelivered, aMore));
    }
    /// A storm of so many, up to its end or into its middle; an agent that ends then is noted.
    void stormAndNote(std::uint64_t aEvents, bool aIsToEnd) {
        storm(aEvents, 400000);
        if (aIsToEnd) {
            getSim().play("wait storms\n");
        } else {
            EXPECT_TRUE(hasGot(aEvents / 4));
        }
        note(aIsToEnd ? 0 : aEvents);
    }
    /// Whether the agent has got so many events more.
    bool hasGot(std::uint64_t aEvents) const {
        const std::uint64_t lBefore = getDelivered();
        return waitUntil([&] { return getDelivered() >= lBefore + aEvents; });
    }
    /// Ends the sensor, and compares.
    void expectBalance() {
        endSensor();
        const std::int64_t lTold = getStored() + getLost();
        EXPECT_LE(lTold, mAtMost);
        EXPECT_GE(lTold + getAtMost(), mAtLeast);
        expectSumsAreWhole();
        printf("           %lld sent: %lld stored, %lld told as lost, %lld times up to %lld more\n",
               static_cast<long long>(mAtLeast), static_cast<long long>(getStored()),
               static_cast<long long>(getLost()), static_cast<long long>(getUnknown()),
               static_cast<long long>(getAtMost()));
    }
    /// Of one agent, which runs yet: nothing is unknown, and every event is there.
    void expectAll(std::uint64_t aEvents) {
        getSim().play("wait storms\n");
        note();
        EXPECT_TRUE(waitForEvents(aEvents)) << getSensor().getErr();
        expectBalance();
        EXPECT_EQ(getStored() + getLost(), static_cast<std::int64_t>(aEvents));
        EXPECT_EQ(getUnknown(), 0);
        EXPECT_EQ(ask("SELECT count(*) FROM agents"), 1);
    }
    /// Losses that are not for one of the reasons: "'limit', 'ended'".
    std::int64_t getOtherLosses(const std::string& acrReasons) const {
        return ask("SELECT count(*) FROM losses WHERE reason NOT IN (" + acrReasons + ")");
    }

  private:
    std::int64_t mAtLeast = 0;
    std::int64_t mAtMost = 0;
};
