// What it costs vrx-sn to find out which signs belong together: what is harmless and waits, a storm that is
// one incident, and both. The floor counts the same signs by their kind and ports.
#include <fmt/format.h>

#include <cstring>
#include <memory>
#include <unordered_map>

#include "Bench.h"
#include "IncidentFinder.h"

namespace {

constexpr unsigned int sSecond = 20000;  // signs that come in one
constexpr unsigned int sSeconds = 50;    // in a turn
constexpr unsigned int sPorts = 64;
constexpr ZTNanoseconds sBegin = 1'800'000'000 * ZTSecond;

using Signs = std::vector<ZTSSign>;

ZTSWwn sWwn(unsigned int aNumber) {
    ZTSWwn lName;
    lName.mBytes = {0x50, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(aNumber)};
    return lName;
}

ZTSSign sSign(ZTESign aSign, unsigned int aPort, const char* apDetail) {
    ZTSSign lSign;
    lSign.mSign = aSign;
    lSign.mInitiator = sWwn(1 + aPort % 4);
    lSign.mRemote = sWwn(16 + aPort);
    lSign.mFabric = aPort % 2 == 0 ? "10:00:00:05:1e:00:00:0a" : "10:00:00:05:1e:00:00:0b";
    lSign.mDetail = apDetail;
    lSign.mCategory = 4;
    return lSign;
}

Signs sHarmless() {
    Signs lSigns;
    for (unsigned int lAt = 0; lAt < sSecond; ++lAt) {
        lSigns.push_back(lAt % 2 == 0 ? sSign(ZTESign::UnitAttention, lAt / 2 % sPorts, "6/29/00")
                                      : sSign(ZTESign::Login, lAt / 2 % sPorts, ""));
    }
    return lSigns;
}

Signs sStorm() {
    Signs lSigns;
    for (unsigned int lAt = 0; lAt < sSecond; ++lAt) {
        lSigns.push_back(lAt % 2 == 0 ? sSign(ZTESign::NotReady, lAt / 2 % 4, "2/04/0a")
                                      : sSign(ZTESign::QueueFull, lAt / 2 % 4, ""));
    }
    return lSigns;
}

Signs sBoth() {
    Signs lSigns = sHarmless();
    const Signs lStorm = sStorm();
    for (unsigned int lAt = 0; lAt < sSecond; lAt += 4) {
        lSigns[lAt] = lStorm[lAt / 2];
    }
    return lSigns;
}

// In the order of their time, within a second of its own.
void sMove(Signs& arSigns, unsigned int aSecond) {
    for (unsigned int lAt = 0; lAt < sSecond; ++lAt) {
        arSigns[lAt].mFirst = arSigns[lAt].mLast = sBegin + aSecond * ZTSecond + lAt * (ZTSecond / sSecond);
    }
}

struct HashOf {
    std::size_t operator()(const std::pair<ZTSWwn, ZTSWwn>& acrPorts) const {
        std::uint64_t lOne = 0;
        std::uint64_t lOther = 0;
        memcpy(&lOne, acrPorts.first.mBytes.data(), sizeof lOne);
        memcpy(&lOther, acrPorts.second.mBytes.data(), sizeof lOther);
        return (lOne * 31 + lOther) * 0x9e3779b97f4a7c15 >> 16;
    }
};

void sMeasure(const char* apWhat, Signs aSigns) {
    std::unordered_map<std::pair<ZTSWwn, ZTSWwn>, std::array<std::uint64_t, 64>, HashOf> lCounts;
    const ZTCBenchGroup lGroup("incident",
                               {.mName = fmt::format("count {} signs, {}", sSecond, apWhat),
                                .mMake =
                                    [&] {
                                        return [&](unsigned int aNumber) {
                                            sMove(aSigns, aNumber);
                                            for (const ZTSSign& lrSign : aSigns) {
                                                ++lCounts[{lrSign.mInitiator, lrSign.mRemote}]
                                                         [static_cast<std::size_t>(lrSign.mSign) % 64];
                                            }
                                        };
                                    },
                                .mCalls = sSeconds,
                                .mEach = sSecond});
    std::unique_ptr<ZTCIncidentFinder> lpFinder;
    std::size_t lMost = 0;
    const auto lPrepare = [&] { lpFinder = std::make_unique<ZTCIncidentFinder>(getDefaultRules()); };
    const auto lTake = [&](unsigned int aNumber) {
        sMove(aSigns, aNumber);
        for (const ZTSSign& lrSign : aSigns) {
            lpFinder->take(lrSign);
        }
        lpFinder->advance(sBegin + (aNumber + 1) * ZTSecond);
        ztbench::keep(lpFinder->takeNews());
        ztbench::keep(lpFinder->takeTellings());
        lMost = std::max(lMost, lpFinder->getBytes());
    };
    lGroup.measure({"found, with the news of each second", [&] { return lTake; }, lPrepare, sSeconds, sSecond,
                    [&] { return fmt::format("{} KiB at most", lMost / 1024); }});
}

}  // namespace

void ztbench::incidents() {
    sMeasure("harmless, of 64 ports", sHarmless());
    sMeasure("a storm at one", sStorm());
    sMeasure("both", sBoth());
}
