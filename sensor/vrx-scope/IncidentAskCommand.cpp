#include <fmt/format.h>

#include "CommandParts.h"
#include "Failure.h"
#include "IncidentText.h"
#include "StoreAsk.h"
#include "Waiting.h"

namespace {

constexpr std::chrono::seconds sDoneWithin(10);
constexpr std::chrono::milliseconds sLookEvery(100);

// What can be asked of an incident.
struct Asking {
    const char* mpWhat;   // as vrx-sn knows it
    const char* mpThing;  // what is asked for
    const char* mpDone;
    bool mIsOfClosed;  // also of one that is over
    bool (*mpIsDone)(const ZTSIncident& acrIncident, ZTNanoseconds aTime);
};
constexpr Asking sAcknowledge{"acknowledge", "acknowledgement", "acknowledged", false,
                              [](const ZTSIncident& acrIncident, ZTNanoseconds aTime) {
                                  return acrIncident.mAcknowledged.has_value() &&
                                         acrIncident.mAcknowledged->mTime >= aTime;
                              }};
constexpr Asking sKeep{"keep", "request to keep it", "kept for good, with its records", true,
                       [](const ZTSIncident& acrIncident, ZTNanoseconds) { return acrIncident.mIsKept; }};
// Whether it closes thereby depends on what else it is about.
constexpr Asking sAccept{"accept", "acceptance", "accepted: these are all its paths from now on", false,
                         [](const ZTSIncident&, ZTNanoseconds) { return true; }};

void sCheck(const Asking& acrAsking, const ZTSIncident& acrIncident, ZTCStoreReader& arReader, bool aInUtc) {
    const std::uint64_t lId = acrIncident.mId;
    if (acrIncident.mMerged != 0) {
        throw ZTCScopeFailure(fmt::format("incident {} has become part of incident {}: ask for that one", lId,
                                          followMerges(arReader, acrIncident).mId));
    }
    if (acrIncident.mState == ZTEIncidentState::Closed && !acrAsking.mIsOfClosed) {
        throw ZTCScopeFailure(fmt::format("incident {} is over since {}: there is nothing to {} any more",
                                          lId, plainTimes(aInUtc)(acrIncident.mClosed), acrAsking.mpWhat));
    }
    if (acrAsking.mpWhat == sAccept.mpWhat && acrIncident.mPathsLeft >= acrIncident.mPathsTotal) {
        throw ZTCScopeFailure(fmt::format("incident {} misses no paths: there is nothing to accept", lId));
    }
}

// It is done a moment after it was taken.
bool sWaitUntilDone(const Asking& acrAsking, const std::string& acrStore, const std::string& acrId,
                    ZTNanoseconds aTime) {
    ZTCWaiting lWaiting;
    const auto lEnd = ZTCWaiting::Clock::now() + sDoneWithin;
    for (;;) {
        {
            ZTCStoreReader lReader(acrStore);
            if (acrAsking.mpIsDone(readIncidentOf(lReader, acrId), aTime)) {
                return true;
            }
        }
        const auto lNow = ZTCWaiting::Clock::now();
        if (lNow >= lEnd || lWaiting.until(lNow + sLookEvery) == ZTCWaiting::Reason::End) {
            return false;
        }
    }
}

int sAsk(const Asking& acrAsking, const ZTSScopeOptions& acrOptions) {
    const std::string& lrStore = acrOptions.mHistory.mStore;
    checkNothingOfList(acrOptions.mHistory, acrOptions.mIncident);
    checkAskText("the note", acrOptions.mIncident.mNote);
    ZTSStoreRequest lRequest;
    {
        ZTCStoreReader lReader(lrStore);
        const ZTSIncident lIncident = readIncidentOf(lReader, acrOptions.mIncident.mId);
        sCheck(acrAsking, lIncident, lReader, acrOptions.mInUtc);
        lRequest.mSubject = std::to_string(lIncident.mId);
    }
    checkAsking(lrStore, acrAsking.mpThing);
    lRequest.mWhat = acrAsking.mpWhat;
    lRequest.mText = acrOptions.mIncident.mNote;
    const std::string lId = lRequest.mSubject;
    const ZTNanoseconds lTime = askThroughStore(lrStore, lRequest, acrAsking.mpThing);
    if (!sWaitUntilDone(acrAsking, lrStore, lId, lTime)) {
        throw ZTCScopeFailure(
            fmt::format("vrx-sn has taken the {}, but incident {} does not show it yet: "
                        "look at its journal",
                        acrAsking.mpThing, lId));
    }
    putDone(acrOptions, std::string("incidents ") + acrAsking.mpWhat,
            fmt::format("incident {}: {}", lId, acrAsking.mpDone));
    return 0;
}

}  // namespace

int runAcknowledge(const ZTSScopeOptions& acrOptions) {
    return sAsk(sAcknowledge, acrOptions);
}

int runKeep(const ZTSScopeOptions& acrOptions) {
    return sAsk(sKeep, acrOptions);
}

int runAccept(const ZTSScopeOptions& acrOptions) {
    return sAsk(sAccept, acrOptions);
}
