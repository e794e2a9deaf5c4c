#include "WebState.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "RecordJson.h"
#include "TimeText.h"
#include "WebAnswer.h"

namespace {

constexpr char sFile[] = "/vrx-sn.stats";
constexpr ZTNanoseconds sLeastSilence = 3 * ZTSecond;  // a fetch in a storm may take as long
constexpr std::uint64_t sPeriods = 3;
constexpr std::uint64_t sMillisecond = 1'000'000;

// One that was killed has left its figures. Its number may be another's by now: then they grow old.
bool sRuns(pid_t aProcess) {
    return aProcess > 0 && (kill(aProcess, 0) == 0 || errno == EPERM);
}

ZTNanoseconds sTimeIn(const ZTSStatistics& acrRows, const char* apName) {
    return static_cast<ZTNanoseconds>(acrRows.get(apName).value_or(0));
}

std::string sTextOf(ZTNanoseconds aTime) {
    return plainText(toSensorTime(aTime), true);
}

struct ZTSWebStatus {
    const char* mpName;
    std::string ZTSWebState::*mpWhy;
};
// The worst first: who can see nothing has no use for how new it is.
constexpr ZTSWebStatus sStatuses[] = {{"unreadable", &ZTSWebState::mHistory},
                                      {"silent", &ZTSWebState::mCollector},
                                      {"unwritten", &ZTSWebState::mWriting}};

void sPutMoment(ZTCJsonWriter& arJson, const char* apKey, ZTNanoseconds aTime) {
    arJson.key(apKey);
    aTime != 0 ? putTime(arJson, toSensorTime(aTime)) : arJson.null();
}

}  // namespace

ZTCWebHealth::ZTCWebHealth(std::string aFigures, Clock::duration aStands)
    : mFigures(std::move(aFigures)), mStands(aStands), mHeard(Clock::now()) {}

void ZTCWebHealth::noteHistory(const std::string& acrWhy) {
    const ZTNanoseconds lNow = toNanoseconds(toSensorTime(std::chrono::system_clock::now()));
    const std::scoped_lock lLock(mMutex);
    mHistory = acrWhy;
    mHistorySince = acrWhy.empty() ? 0 : mHistorySince != 0 ? mHistorySince : lNow;
    mHeard = Clock::now();
}

// What cannot be read now stays as it was.
void ZTCWebHealth::look(ZTSWebFigures& arFigures) const {
    arFigures.mIsRunning = false;
    try {
        const ZTCAgentStatistics lFile(mFigures, sFile, ZTEStatisticsOf::Any);
        arFigures.mRows = lFile.read();
        arFigures.mStart = toNanoseconds(toSensorTime(lFile.getStart()));
        arFigures.mIsRunning = sRuns(lFile.getProcess());
        arFigures.mWhy = arFigures.mIsRunning ? "" : "vrx-sn does not run: it was killed";
    } catch (const ZTCNoAgentError&) {
        arFigures.mWhy = "vrx-sn does not run";
    } catch (const ZTCNoPermissionError&) {
        arFigures.mWhy = fmt::format("{}{} may not be read: it is for the group vrx-sn", mFigures, sFile);
    } catch (const ZTCSensorError& lrError) {
        arFigures.mWhy = lrError.what();
    }
}

ZTSWebFigures ZTCWebHealth::getFigures() {
    const std::scoped_lock lLock(mMutex);
    look(mLast);
    return mLast;
}

// One that has just been started counts from its start, and who does not run may come back in a moment.
void ZTCWebHealth::seeCollector(const ZTSWebFigures& acrFigures, ZTNanoseconds aNow, ZTSWebState& arState) {
    const ZTSStatistics& lrRows = acrFigures.mRows;
    arState.mLastFetch = sTimeIn(lrRows, "last_fetch_time_ns");
    arState.mPeriodMs = lrRows.get("period_ms").value_or(0);
    arState.mHasSensor = acrFigures.mIsRunning;
    arState.mHasAgent = acrFigures.mIsRunning && lrRows.get("agent_up").value_or(0) != 0;
    const ZTNanoseconds lAlive = std::max(arState.mLastFetch, acrFigures.mStart);
    const auto lPeriods = static_cast<ZTNanoseconds>(sPeriods * arState.mPeriodMs * sMillisecond);
    const ZTNanoseconds lMay = acrFigures.mIsRunning ? std::max(lPeriods, sLeastSilence) : sLeastSilence;
    // A fetch of times to come tells nothing either: the clock was set back.
    if (lAlive != 0 && std::abs(aNow - lAlive) <= lMay) {
        mSilentSince = 0;
        return;
    }
    mSilentSince = mSilentSince != 0 ? mSilentSince : aNow;
    if (arState.mSince == 0) {
        arState.mSince = lAlive != 0 ? std::min(lAlive, aNow) : mSilentSince;
    }
    const std::string lLast = arState.mLastFetch != 0 ? "the last fetch was at " + sTextOf(arState.mLastFetch)
                                                      : std::string("nothing was fetched yet");
    const char* const lpRunning = arState.mHasAgent ? "vrx-sn fetches nothing" : "no agent answers vrx-sn";
    arState.mCollector = (acrFigures.mWhy.empty() ? lpRunning : acrFigures.mWhy) + "; " + lLast;
}

void ZTCWebHealth::seeHistory(ZTNanoseconds aNow, ZTSWebState& arState) const {
    const auto lSilence = Clock::now() - mHeard;
    arState.mHistory = mHistory;
    arState.mSince = mHistorySince;
    if (lSilence > mStands) {
        const auto lSeconds = std::chrono::duration_cast<std::chrono::seconds>(lSilence).count();
        arState.mSince = aNow - std::chrono::nanoseconds(lSilence).count();
        arState.mHistory = fmt::format("the disk of the history stands still: no answer for {} s", lSeconds);
    }
}

void ZTCWebHealth::seeWriting(const ZTSWebFigures& acrFigures, ZTSWebState& arState) {
    const ZTNanoseconds lStands = sTimeIn(acrFigures.mRows, "store_stands_since_ns");
    if (arState.mHistory.empty() && acrFigures.mIsRunning && lStands != 0) {
        arState.mSince = arState.mSince != 0 ? arState.mSince : lStands;
        arState.mWriting = fmt::format(
            "vrx-sn has not been able to write the history since {}: its journal says why", sTextOf(lStands));
    }
}

ZTSWebState ZTCWebHealth::getState(ZTNanoseconds aNow) {
    const std::scoped_lock lLock(mMutex);
    look(mLast);
    ZTSWebState lState;
    seeHistory(aNow, lState);
    seeCollector(mLast, aNow, lState);
    seeWriting(mLast, lState);
    return lState;
}

ZTSWebAnswer answerHealth(const ZTSWebState& acrState) {
    const char* lpStatus = "ok";
    std::string lReason;
    for (const auto& [lpName, lpWhy] : sStatuses) {
        if (!(acrState.*lpWhy).empty()) {
            lpStatus = lReason.empty() ? lpName : lpStatus;
            lReason += (lReason.empty() ? "" : "; ") + acrState.*lpWhy;
        }
    }
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    lJson.key("status");
    lJson.text(lpStatus);
    putTexts(lJson, {{"reason", lReason}});
    sPutMoment(lJson, "since", acrState.mSince);
    sPutMoment(lJson, "last_fetch", acrState.mLastFetch);
    lJson.key("period_ms");
    lJson.number(acrState.mPeriodMs);
    lJson.key("agent_up");
    lJson.boolean(acrState.mHasAgent);
    lJson.endObject();
    return answerJson(lText + "\n", acrState.isWell() ? 200 : 503);
}
