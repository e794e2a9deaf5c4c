#include "Incidents.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "ShownText.h"
#include "TimeText.h"

namespace {

constexpr ZTNanoseconds sShown = 7 * 86400 * ZTSecond;  // so long what is closed is shown unasked
constexpr unsigned int sMostMerges = 64;                // a circle ends there

template <class Value>
std::string sNames(std::size_t aCount) {
    std::string lNames;
    for (std::size_t lAt = 0; lAt < aCount; ++lAt) {
        lNames += (lAt == 0 ? "" : ", ") + std::string(nameOf(static_cast<Value>(lAt)));
    }
    return lNames;
}

std::vector<ZTEIncidentState> sReadStates(const std::vector<std::string>& acrNames) {
    std::vector<ZTEIncidentState> lStates;
    for (const std::string& lrName : acrNames) {
        const auto lState = findIncidentState(lrName);
        if (!lState) {
            throw ZTCViewUsage(fmt::format("there is no state '{}', but {}", toShownText(lrName),
                                           sNames<ZTEIncidentState>(3)));
        }
        lStates.push_back(*lState);
    }
    return lStates;
}

std::vector<ZTEIncidentClass> sReadClasses(const std::vector<std::string>& acrNames) {
    std::vector<ZTEIncidentClass> lClasses;
    for (const std::string& lrName : acrNames) {
        const auto lClass = findIncidentClass(lrName);
        if (!lClass) {
            throw ZTCViewUsage(
                fmt::format("there is no class '{}', but {}", toShownText(lrName),
                            sNames<ZTEIncidentClass>(static_cast<std::size_t>(ZTEIncidentClass::Count))));
        }
        lClasses.push_back(*lClass);
    }
    return lClasses;
}

template <class Value>
bool sTakes(const std::vector<Value>& acrValues, Value aValue) {
    return acrValues.empty() || std::find(acrValues.begin(), acrValues.end(), aValue) != acrValues.end();
}

std::uint64_t sReadId(const std::string& acrId) {
    std::uint64_t lId = 0;
    const char* const lpEnd = acrId.data() + acrId.size();
    const auto lRead = std::from_chars(acrId.data(), lpEnd, lId);
    if (lRead.ec != std::errc() || lRead.ptr != lpEnd || lId == 0) {
        throw ZTCViewUsage(
            fmt::format("'{}' is no incident's id: that is a number", toShownText(acrId.substr(0, 64))));
    }
    return lId;
}

std::optional<ZTSIncident> sReadIncident(ZTCStoreReader& arReader, std::uint64_t aId) {
    constexpr auto lLast = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return aId <= lLast ? arReader.readIncident(aId) : std::nullopt;
}

}  // namespace

ZTSIncidentFrame readIncidentFrame(ZTCStoreReader& arReader) {
    return {arReader.getHost(), arReader.readLabels(),
            toNanoseconds(toSensorTime(std::chrono::system_clock::now())),
            findStoreHolder(arReader.getPath()).mIsHere, arReader.readMeta("last_write")};
}

std::vector<ZTSIncident> readIncidentList(ZTCStoreReader& arReader, const ZTSHistoryAsk& acrHistory,
                                          const ZTSIncidentChoice& acrOptions, ZTNanoseconds aNow,
                                          bool aInUtc) {
    const std::vector<ZTEIncidentState> lStates = sReadStates(acrOptions.mStates);
    const std::vector<ZTEIncidentClass> lClasses = sReadClasses(acrOptions.mClasses);
    ZTSHistoryFilter lTimes = makeQuery(acrHistory, arReader, aNow, aInUtc).mFilter;
    if (!acrOptions.mIsAll && acrHistory.mSince.empty() && acrHistory.mUntil.empty()) {
        lTimes.mSince = aNow - sShown;
    }
    std::vector<ZTSIncident> lIncidents = arReader.readIncidents(lTimes.mSince);
    std::erase_if(lIncidents, [&](const ZTSIncident& acrIncident) {
        return acrIncident.mOpened > lTimes.mUntil || !sTakes(lStates, acrIncident.mState) ||
               !sTakes(lClasses, acrIncident.mClass);
    });
    std::ranges::stable_sort(lIncidents, {}, [](const ZTSIncident& acrIncident) {
        return std::pair(acrIncident.mState == ZTEIncidentState::Closed, -acrIncident.mOpened);
    });
    if (acrHistory.mLimit != 0 && lIncidents.size() > acrHistory.mLimit) {
        lIncidents.resize(acrHistory.mLimit);
    }
    return lIncidents;
}

ZTSIncident readIncidentOf(ZTCStoreReader& arReader, const std::string& acrId) {
    const std::uint64_t lId = sReadId(acrId);
    if (auto lIncident = sReadIncident(arReader, lId)) {
        return std::move(*lIncident);
    }
    throw ZTCViewMissing(
        fmt::format("there is no incident {}: vrx-scope incidents --all shows those that there are", lId));
}

ZTSIncident followMerges(ZTCStoreReader& arReader, ZTSIncident aIncident) {
    for (unsigned int lMerges = 0; aIncident.mMerged != 0 && lMerges < sMostMerges; ++lMerges) {
        auto lInto = sReadIncident(arReader, aIncident.mMerged);
        if (!lInto) {
            break;
        }
        aIncident = std::move(*lInto);
    }
    return aIncident;
}

ZTSIncidentTold tellIncident(ZTCStoreReader& arReader, ZTSIncident aIncident) {
    ZTSIncidentTold lTold{std::move(aIncident)};
    if (lTold.mIncident.mSeries != 0) {
        lTold.mSeries = arReader.readIncidents(std::numeric_limits<ZTNanoseconds>::min());
        std::erase_if(lTold.mSeries, [&](const ZTSIncident& acrOther) {
            return acrOther.mSeries != lTold.mIncident.mSeries || acrOther.mId == lTold.mIncident.mId;
        });
    }
    return lTold;
}

ZTNanoseconds endOf(const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame) {
    if (acrIncident.mClosed != 0) {
        return acrIncident.mClosed;
    }
    return std::max(acrIncident.mLast, acrFrame.mIsNow ? acrFrame.mNow : acrFrame.mWritten);
}

void askForIncident(const ZTSIncident& acrIncident, ZTSHistoryQuery& arQuery) {
    ZTNanoseconds lFirst = acrIncident.mOpened;
    ZTNanoseconds lLast = acrIncident.mClosed;
    for (const ZTSIncidentEvidence& lrRow : acrIncident.mEvidence) {
        lFirst = std::min(lFirst, lrRow.mFirst);
        lLast = std::max(lLast, lrRow.mLast);
    }
    arQuery.mFilter.mSince = std::max(arQuery.mFilter.mSince, lFirst);
    if (acrIncident.mClosed != 0) {
        arQuery.mFilter.mUntil = std::min(arQuery.mFilter.mUntil, lLast);
    }
    arQuery.mpEvidence = std::make_shared<const ZTCIncidentEvidence>(acrIncident);
}
