#include "WebTroubles.h"

#include <fmt/format.h>

#include "WebConnections.h"
#include "WebWorkers.h"

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds sLookEvery = 1s;

ZTNanoseconds sNow() {
    const auto lNow = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(lNow).count();
}

}  // namespace

ZTCWebTroubles::ZTCWebTroubles(ZTCServiceLog& arLog, ZTCWebHealth& arHealth)
    : mrHealth(arHealth),
      mCrowd(arLog, "connections are refused"),
      mSlow(arLog, "connections that are too slow are shut"),
      mSilent(arLog, "nothing is collected"),
      mUnread(arLog, "the history cannot be read"),
      mUnwritten(arLog, "the history is not written"),
      mKept(arLog, "the history does not answer") {}

void ZTCWebTroubles::noteRefused(std::size_t aConnections) {
    mCrowd.met(fmt::format("{} are there, of at most {} in all and {} of one address", aConnections,
                           ZTCWebConnections::Most, ZTCWebConnections::MostOfPeer));
}

void ZTCWebTroubles::noteSlow(const char* apWhy) {
    mSlow.met(apWhy);
}

void ZTCWebTroubles::tick(Clock::time_point aNow, std::size_t aKept) {
    if (aNow - mLooked < sLookEvery) {
        return;
    }
    mLooked = aNow;
    mState = mrHealth.getState(sNow());
    const auto lTell = [&](ZTCServiceTrouble& arTrouble, const std::string& acrWhy) {
        acrWhy.empty() ? arTrouble.over(aNow) : arTrouble.lasts(acrWhy, aNow);
    };
    lTell(mSilent, mState.mCollector);
    lTell(mUnread, mState.mHistory);
    lTell(mUnwritten, mState.mWriting);
    lTell(mKept,
          aKept == 0 ? "" : fmt::format("{} of {} threads wait for its disk", aKept, ZTCWebWorkers::Threads));
    mCrowd.tick(aNow);
    mSlow.tick(aNow);
}

std::string ZTCWebTroubles::getStatus() const {
    std::string lText;
    for (const std::string* const lpWhy : {&mState.mCollector, &mState.mHistory, &mState.mWriting}) {
        lText += lpWhy->empty() ? "" : "; " + *lpWhy;
    }
    return lText;
}
