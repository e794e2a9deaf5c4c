// Records as agents hand them over, at random: of every kind, and of few ports and values, so that they
// repeat. Some are such as no agent makes.
#pragma once

#include <random>

#include "ScopeAgentEventFacts.h"
#include "SensorMessages.h"

class ZTCRandomRecords {
  public:
    explicit ZTCRandomRecords(unsigned int aSeed) : mRandom(aSeed) {}

    /// From 0 up to this one, without it.
    unsigned int below(unsigned int aEnd) { return static_cast<unsigned int>(mRandom() % aEnd); }
    bool isOnceIn(unsigned int aCount) { return below(aCount) == 0; }

    /// Later than the one before, but now and then the clock is set.
    ZTSSensorRecord make() {
        mTime += isOnceIn(200) ? (static_cast<ZTNanoseconds>(below(3)) - 1) * 3600 * ZTSecond
                               : static_cast<ZTNanoseconds>(below(100'000'000));
        ZTSSensorRecord lRecord;
        lRecord.mOccurrences = 1 + below(5);
        lRecord.mFirst = toSensorTime(mTime);
        lRecord.mLast = toSensorTime(mTime + (isOnceIn(20) ? -ZTSecond : 1'000'000));
        const ZTSScopeEventFacts& lrFacts = ZTScopeEventFacts[below(std::size(ZTScopeEventFacts))];
        lRecord.mCategory = lrFacts.mCategory;
        lRecord.mSubcategory = isOnceIn(20) ? 128 : lrFacts.mSubcategory;
        lRecord.mData = makeBlock(lrFacts.mBlock);
        if (isOnceIn(10)) {
            lRecord.mData[below(static_cast<unsigned int>(lRecord.mData.size()))] = 9;
        }
        if (isOnceIn(10)) {
            lRecord.mData.resize(lRecord.mData.size() * below(5) / 3);
        }
        if (isOnceIn(2)) {
            lRecord.mTarget = ZTSPortNames{makeName(), makeName()};
        }
        return lRecord;
    }

    ZTSWwn makeName() { return {{80, 6, 1, 96, 0, 0, 0, static_cast<std::uint8_t>(below(2))}}; }
    /// Of two adapters.
    ZTSPortNames makeInitiator() { return {{{32}}, makeName()}; }

  private:
    ZTSensorBytes makeBlock(const ZTSScopeEventBlock& acrBlock) {
        ZTSensorBytes lData;
        addWord(lData, 1);
        for (unsigned int lName = 0; lName < acrBlock.mNames; ++lName) {
            const ZTSWwn lBytes = makeName();
            lData.insert(lData.end(), lBytes.mBytes.begin(), lBytes.mBytes.end());
        }
        for (unsigned int lWord = 0; lWord < acrBlock.mSame; ++lWord) {
            addWord(lData, below(2));
        }
        for (unsigned int lWord = 0; lWord < acrBlock.mAdded * (1 + below(3)); ++lWord) {
            addWord(lData, below(1000));
        }
        for (unsigned int lSet = 0; lSet < acrBlock.mSets; ++lSet) {
            addWord(lData, ZTSScopeEventBlock::SetBits);
            lData.resize(lData.size() + ZTSScopeEventBlock::SetBits / 8);
            lData[lData.size() - 1 - below(8)] = static_cast<std::uint8_t>(1U << below(8));
        }
        return lData;
    }
    static void addWord(ZTSensorBytes& arData, std::uint32_t aWord) {
        for (unsigned int lShift = 0; lShift < 32; lShift += 8) {
            arData.push_back(static_cast<std::uint8_t>(aWord >> lShift));
        }
    }

    std::mt19937 mRandom;
    ZTNanoseconds mTime = 1'800'000'000 * ZTSecond;
};
