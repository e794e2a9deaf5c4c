#include "WebCounting.h"

#include <algorithm>

#include "EventBlock.h"
#include "EventCounts.h"

namespace {

using Axis = ZTEStoreAxis;

constexpr std::uint64_t sMostRecords = 60'000;
constexpr std::uint64_t sMostSums = 100'000;
constexpr std::uint64_t sNoLimit = std::uint64_t{1} << 40;

std::string sKindOf(const ZTSSeries& acrSeries) {
    const char* const lpName = findEventKind(acrSeries.mCategory, acrSeries.mSubcategory);
    return lpName != nullptr
               ? lpName
               : std::to_string(acrSeries.mCategory) + '/' + std::to_string(acrSeries.mSubcategory);
}

std::string sNameOf(const ZTSSeries& acrSeries, Axis aAxis) {
    switch (aAxis) {
        case Axis::Kind:
            return sKindOf(acrSeries);
        case Axis::Initiator:
            return acrSeries.mInitiator.mPort.toText();
        case Axis::Target:
            return acrSeries.mRemote ? acrSeries.mRemote->toText() : "";
        case Axis::Fabric:
            return acrSeries.mFabric;
    }
    return "";
}

// The names that a filter takes on an axis; empty: all.
std::vector<std::string> sNamesOf(const ZTSHistoryFilter& acrFilter, Axis aAxis) {
    std::vector<std::string> lNames;
    ZTSSeries lSeries;
    const auto lAdd = [&] { lNames.push_back(sNameOf(lSeries, aAxis)); };
    if (aAxis == Axis::Kind) {
        for (const auto& [lCategory, lSubcategory] : acrFilter.mKinds) {
            lSeries.mCategory = lCategory;
            lSeries.mSubcategory = lSubcategory;
            lAdd();
        }
    } else if (aAxis == Axis::Fabric) {
        lNames.insert(lNames.end(), acrFilter.mFabric.empty() ? 0 : 1, acrFilter.mFabric);
    } else {
        for (const ZTSWwn& lrPort : aAxis == Axis::Initiator ? acrFilter.mInitiators : acrFilter.mTargets) {
            lNames.push_back(lrPort.toText());
        }
    }
    return lNames;
}

// Adds events up in lanes, from whatever can be read soon.
class Counting {
  public:
    Counting(ZTCStoreReader& arReader, const ZTSHistoryFilter& acrFilter, const ZTSWebBy& acrBy)
        : mrReader(arReader), mrFilter(acrFilter), mBy(acrBy), mNames(arReader) {
        for (const Axis lAxis : {Axis::Kind, Axis::Initiator, Axis::Target, Axis::Fabric}) {
            if (std::vector<std::string> lNames = sNamesOf(acrFilter, lAxis); !lNames.empty()) {
                mChosen = std::move(lNames);
                mChosenAxis = lAxis;
                ++mFilters;
            }
        }
        mSumAxis = mBy.mAxis.value_or(mChosenAxis.value_or(Axis::Kind));
    }

    /// Says which bins there are: as narrow as can be had.
    std::vector<ZTSWebLane> count(const ZTSWebSpan& acrSpan, ZTSWebBins& arBins) {
        arBins = chooseWebBins(acrSpan, 0);
        if (arBins.mWidth < (hasSums() ? ZTWebMinute : ZTWebHour) &&
            (countRecords(arBins) || countFew(arBins))) {
            return mpLanes->take();
        }
        arBins = chooseWebBins(acrSpan, hasSums() ? ZTWebMinute : ZTWebHour);
        if (arBins.mWidth < ZTWebHour && countSums(arBins, ZTEStoreBin::Minute, sMostSums)) {
            return mpLanes->take();
        }
        arBins = chooseWebBins(acrSpan, ZTWebHour);
        hasSums() ? countSums(arBins, ZTEStoreBin::Hour, sNoLimit) : countSeries(arBins);
        return mpLanes->take();
    }

  private:
    // Sums of an axis say nothing of another one.
    bool hasSums() const { return mFilters == 0 || (mFilters == 1 && mChosenAxis == mSumAxis); }

    static ZTSCountSpan spanOf(const ZTSWebBins& acrBins, std::uint64_t aMost) {
        return {acrBins.mFrom, acrBins.getEnd(), aMost};
    }

    // acrRead(take) reads, acrNameOf(id) says which lane that is; nothing: none.
    template <class Read, class NameOf>
    bool add(const ZTSWebBins& acrBins, const Read& acrRead, const NameOf& acrNameOf) {
        constexpr std::size_t lNone = SIZE_MAX;
        mpLanes.emplace(acrBins.mCount);
        std::unordered_map<std::int64_t, std::size_t> lLanes;
        const ZTTakeCount lTake = [&](std::int64_t aTime, std::int64_t aId, std::uint64_t aEvents) {
            auto lAt = lLanes.find(aId);
            if (lAt == lLanes.end()) {
                const std::optional<std::string> lName = acrNameOf(aId);
                lAt = lLanes.emplace(aId, lName ? mpLanes->find(*lName) : lNone).first;
            }
            if (lAt->second != lNone) {
                mpLanes->add(lAt->second, acrBins.at(aTime), aEvents);
            }
        };
        bool lIsRead = acrRead(lTake);
        while (lIsRead && !mpLanes->choose()) {
            lIsRead = acrRead(lTake);
        }
        return lIsRead;
    }

    std::optional<std::string> nameOfSeries(std::int64_t aSeries) {
        const ZTSSeries& lrSeries = mrReader.seriesOf(aSeries);
        if (!mrFilter.takes(lrSeries)) {
            return {};
        }
        return mBy.mAxis ? sNameOf(lrSeries, *mBy.mAxis) : mrReader.getHost();
    }

    // What has no port of its own is of many.
    std::optional<std::string> nameOfMember(std::int64_t aMember) {
        std::string lName = mNames.find(aMember);
        if (mFilters != 0 && std::ranges::find(mChosen, lName) == mChosen.end()) {
            return {};
        }
        return !mBy.mAxis ? mrReader.getHost() : lName == "*" ? "" : lName;
    }

    bool countSums(const ZTSWebBins& acrBins, ZTEStoreBin aBin, std::uint64_t aMost) {
        return add(
            acrBins,
            [&](const ZTTakeCount& acrTake) {
                return readSums(mrReader, mSumAxis, aBin, spanOf(acrBins, aMost), acrTake);
            },
            [this](std::int64_t aMember) { return nameOfMember(aMember); });
    }

    template <class Read>
    bool addSeries(const ZTSWebBins& acrBins, const Read& acrRead) {
        return add(acrBins, acrRead, [this](std::int64_t aSeries) { return nameOfSeries(aSeries); });
    }

    bool countSeries(const ZTSWebBins& acrBins) {
        return addSeries(acrBins, [&](const ZTTakeCount& acrTake) {
            return readSeriesSums(mrReader, spanOf(acrBins, sNoLimit), acrTake);
        });
    }

    bool countRecords(const ZTSWebBins& acrBins) {
        return addSeries(acrBins, [&](const ZTTakeCount& acrTake) {
            return readRecordCounts(mrReader, spanOf(acrBins, sMostRecords), acrTake);
        });
    }

    // Where what is meant is little of all.
    bool countFew(const ZTSWebBins& acrBins) {
        const auto lSeries = mFilters != 0 ? findFewSeries(mrReader, mrFilter) : std::nullopt;
        return lSeries && addSeries(acrBins, [&](const ZTTakeCount& acrTake) {
                   return readRecordCounts(mrReader, *lSeries, spanOf(acrBins, sMostRecords), acrTake);
               });
    }

    ZTCStoreReader& mrReader;
    const ZTSHistoryFilter& mrFilter;
    const ZTSWebBy mBy;
    ZTCMemberNames mNames;
    std::size_t mFilters = 0;  ///< axes that the filter is about
    std::optional<Axis> mChosenAxis;
    std::vector<std::string> mChosen;
    Axis mSumAxis = Axis::Kind;
    std::optional<ZTCWebLanes> mpLanes;
};

}  // namespace

std::vector<ZTSWebLane> countWebLanes(ZTCStoreReader& arReader, const ZTSHistoryFilter& acrFilter,
                                      const ZTSWebBy& acrBy, const ZTSWebSpan& acrSpan, ZTSWebBins& arBins) {
    return Counting(arReader, acrFilter, acrBy).count(acrSpan, arBins);
}
