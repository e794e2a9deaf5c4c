// The collection against a second, naive one: the same random steps into both, and every response the same.
#include <map>
#include <random>

#include "TestCollection.h"

namespace {

constexpr unsigned int sBoards = 3;

std::string littleOf(unsigned int aValue) {
    const std::string lBytes = wordOf(aValue);
    return {lBytes.rbegin(), lBytes.rend()};
}

// The rules, written down one after the other and with no thought for speed.
class Model {
  public:
    unsigned int mCeiling = 0;

    void addTarget(const std::string& acrNode, const std::string& acrPort, unsigned int aAddress) {
        for (std::string* const lpNames : {&mByAddress[aAddress], &mByName[acrPort]}) {
            *lpNames = lpNames->empty() ? acrNode + acrPort : *lpNames;  // the first one stays
        }
    }

    void take(const ZTSTestEvent& acrEvent) {
        if (isFull() || acrEvent.mBoard >= sBoards) {
            return;
        }
        mKind = (acrEvent.mCategory & 0xff) << 8 | (acrEvent.mSubcategory & 0xff);
        mBoard = acrEvent.mBoard;
        mPayload.assign(acrEvent.mPayload.begin(), acrEvent.mPayload.end());
        mPayload.resize(acrEvent.mHasDescriptor ? mPayload.size() : 0);
        for (const ZTSScopeEventFacts& lrKind : ZTScopeEventFacts) {
            if (mKind == lrKind.getEvent().getKeyform() && mPayload.size() >= lrKind.mMinimum) {
                consolidate();
            }
        }
    }

    std::string fetch() {
        file();
        std::string lBytes = "\x02" + wordOf(sBoards);
        for (unsigned int lBoard = 0; lBoard < sBoards; ++lBoard) {
            const std::string lName = ":00:00:25:b5:00:00:0" + std::to_string(lBoard);
            const std::string lLabel = std::string("20").append(lName).append(".10").append(lName);
            lBytes += wordOf(lLabel.size()) + lLabel + wordOf(mLists[lBoard].size());
            for (const ZTSTestRecord& lrRecord : mLists[lBoard]) {
                lBytes += wordOf(lrRecord.mOccurrences) + std::string(24, '\0') +
                          static_cast<char>(lrRecord.mCategory) + static_cast<char>(lrRecord.mSubcategory) +
                          (lrRecord.mNames.empty() ? '\0' : '\1') + lrRecord.mNames +
                          wordOf(lrRecord.mData.size()) + lrRecord.mData;
            }
            mLists[lBoard].clear();
        }
        mTotal = 0;
        return lBytes;
    }

    bool isFull() const { return mTotal >= 262144; }

  private:
    // The names and the compared words of the last event of a kind that became a record.
    using Last = std::pair<std::string, std::vector<unsigned int>>;

    bool isRepeat(const Last& acrLast) {
        return mHasPrev && (mPrev.mCategory << 8 | mPrev.mSubcategory) == mKind && mPrevBoard == mBoard &&
               mLast[mKind] == acrLast;
    }

    void file() {
        if (mHasPrev) {
            mLists[mPrevBoard].push_back(mPrev);
        }
        mHasPrev = false;
    }

    void make(const Last& acrLast, const std::string& acrRest, const std::string& acrTarget) {
        mLast[mKind] = acrLast;
        file();
        mPrev = {1, 0, 0, mKind >> 8, mKind & 0xff, acrTarget, littleOf(1) + acrRest};
        mPrevBoard = mBoard;
        mHasPrev = true;
        mTotal += mPrev.getSize();
    }

    std::string names(std::size_t aCount) const { return mPayload.substr(4, 8 * aCount); }
    unsigned int word(std::size_t aAt) const {
        unsigned int lWord = 0;
        memcpy(&lWord, mPayload.substr(aAt, sizeof lWord).data(), sizeof lWord);
        return lWord;
    }
    std::string words(std::initializer_list<std::size_t> aOffsets) const {
        std::string lBytes;
        for (const std::size_t lAt : aOffsets) {
            lBytes += littleOf(word(lAt));
        }
        return lBytes;
    }

    void consolidate() {
        switch (mKind) {
            case 0x0101:
            case 0x0104:
            case 0x0110:
                return count({names(2), {}});
            case 0x0102:
            case 0x0202:
                return count({names(1), {}});
            case 0x0108:
                return append({names(1), {word(12)}}, words({16, 20}), words({12, 16, 20}));
            case 0x0120:
                return countPages();
            case 0x0204:
                return append({names(1), {word(12), word(16)}}, words({20}), words({16, 12, 20}));
            case 0x0408:
            case 0x0410:
                return append({names(1), {}}, words({12}), words({12}));
            case 0x0440:
                return append({names(1), {}}, words({12, 20}), words({12, 20}));
            case 0x0401:
            case 0x0402:
                return collect({names(1), {}}, "", {word(12)});
            case 0x0404:
                return collect({names(1), {word(20), word(24)}}, words({20, 24}),
                               {word(12), word(16), word(28)});
            default:
                return count({"", {}});
        }
    }

    void count(const Last& acrLast) {
        if (isRepeat(acrLast)) {
            ++mPrev.mOccurrences;
        } else {
            make(acrLast, acrLast.first, mByName[acrLast.first.substr(0, 8)]);
        }
    }

    void countPages() {
        const auto lByte = [this](std::size_t aAt) { return static_cast<unsigned char>(mPayload.at(aAt)); };
        const int lPages = (lByte(2) << 8 | lByte(3)) / 4 - 1;
        for (int lPage = 0; lPage < lPages; ++lPage) {
            unsigned int lWord = 0;
            for (const std::size_t lAt : {4U, 5U, 6U, 7U}) {
                lWord = lWord << 8 | lByte(4 * static_cast<std::size_t>(lPage) + lAt);
            }
            if (isRepeat({"", {lWord}})) {
                ++mPrev.mOccurrences;
            } else {
                make({"", {lWord}}, littleOf(lWord),
                     (lWord & 0x3000000) == 0 ? mByAddress[lWord & 0xffffff] : "");
            }
        }
    }

    void append(const Last& acrLast, const std::string& acrAdded, const std::string& acrWords) {
        if (isRepeat(acrLast) && mPrev.mData.size() + acrAdded.size() < mCeiling) {
            mPrev.mData += acrAdded;
            ++mPrev.mOccurrences;
            mTotal += static_cast<unsigned int>(acrAdded.size());
        } else {
            make(acrLast, acrLast.first + acrWords, mByName[acrLast.first]);
        }
    }

    void collect(const Last& acrLast, const std::string& acrWords,
                 const std::vector<unsigned int>& acrValues) {
        if (isRepeat(acrLast)) {
            ++mPrev.mOccurrences;
        } else {
            std::string lRest = acrLast.first + acrWords;
            for (std::size_t lSet = 0; lSet < acrValues.size(); ++lSet) {
                lRest += littleOf(256) + std::string(32, '\0');
            }
            make(acrLast, lRest, mByName[acrLast.first]);
        }
        std::size_t lSetAt = 4 + 8 + acrWords.size() + 4;
        for (const unsigned int& lrValue : acrValues) {
            if (lrValue < 256) {
                char& lrByte = mPrev.mData.at(lSetAt + lrValue / 8);
                lrByte = static_cast<char>(lrByte | 1 << lrValue % 8);
            } else if (lrValue == 0xffffffff && &lrValue == acrValues.data()) {
                mPrev.mData.replace(lSetAt, 32, 32, '\xff');
            }
            lSetAt += 32 + 4;
        }
    }

    std::vector<ZTSTestRecord> mLists[sBoards];
    bool mHasPrev = false;
    ZTSTestRecord mPrev;
    unsigned int mPrevBoard = 0;
    unsigned int mTotal = 0;
    std::map<unsigned int, Last> mLast;
    std::map<std::string, std::string> mByName;  // the targets' names, none for who is not registered
    std::map<unsigned int, std::string> mByAddress;
    // The event that is being taken.
    unsigned int mKind = 0;
    unsigned int mBoard = 0;
    std::string mPayload;
};

// What steps are made of.
struct Arrival {
    unsigned int mCategory;
    unsigned int mSubcategory;
    unsigned int mMinimum;  // bytes of payload
};
constexpr Arrival sUnknown[] = {{0, 2, 8},   {1, 0, 0}, {1, 3, 20}, {2, 8, 24},  {3, 1, 20},
                                {4, 128, 9}, {8, 8, 0}, {16, 2, 0}, {32, 1, 32}, {255, 255, 40}};
constexpr unsigned int sWords[] = {0, 1, 7, 8, 255, 256, 300, 0xffffffff};
constexpr unsigned int sPages[] = {0x010203, 0x010204, 0xffffff, 0x1010203, 0x2010203, 0x3ffffff, 0x10010203};
constexpr unsigned int sAddresses[] = {0x010203, 0xffffff, 0x1010203, 7};
constexpr unsigned int sCeilings[] = {0, 1, 16, 17, 20, 21, 24, 25, 28, 29, 32, 33, 100, 4096, 0xffffffff};
constexpr unsigned int sManySteps = 30000;  // in which the limit is reached

/// Takes the same steps with the agent and the model.
class Steps {
  public:
    Steps(ZTCTestCollection& arCollection, unsigned int aSeed) : mrCollection(arCollection), mRandom(aSeed) {}

    void take(unsigned int aCount) {
        unsigned int lStep = 0;
        while (lStep < aCount && isStepSame()) {
            ++lStep;
        }
        EXPECT_EQ(lStep, aCount) << "the last event was " << mEvent.mCategory << ", " << mEvent.mSubcategory;
        EXPECT_TRUE(mHasBeenFull) << "the limit was not reached";
    }

  private:
    bool isStepSame() {
        const unsigned int lWhat = below(3000);
        if (lWhat == 0) {
            registerTarget();
        } else if (lWhat <= 6) {
            setCeiling(lWhat % 2 == 0);
        } else if (mUntilFetch-- == 0) {
            return isFetchSame();
        } else {
            nextEvent();
            mEvent.deliver();
            mModel.take(mEvent);
        }
        return true;
    }

    unsigned int below(unsigned int aCount) { return static_cast<unsigned int>(mRandom() % aCount); }
    bool oneIn(unsigned int aCount) { return below(aCount) == 0; }
    template <class Value, std::size_t Count>
    const Value& oneOf(const Value (&arValues)[Count]) {
        return arValues[below(Count)];
    }

    bool isFetchSame() {
        mUntilFetch = oneIn(100) ? sManySteps : below(400);
        mHasBeenFull |= mModel.isFull();
        const std::string lModel = mModel.fetch();
        const std::string lAgent = mrCollection.fetch().getMasked();
        EXPECT_TRUE(lModel == lAgent)
            << "a fetch of " << lAgent.size() << " bytes for " << lModel.size() << ", the same up to "
            << std::mismatch(lModel.begin(), lModel.end(), lAgent.begin(), lAgent.end()).first -
                   lModel.begin();
        return lModel == lAgent;
    }

    void setCeiling(bool aByCommand) {
        mModel.mCeiling = oneOf(sCeilings);
        if (aByCommand) {
            mrCollection.ask(std::string(1, '\0') + wordOf(mModel.mCeiling));
        } else {
            mrCollection.getSystem().getCollection().setDataCeiling(mModel.mCeiling);
        }
    }

    void registerTarget() {
        const std::string lNode = ZTTestName(below(9));
        const std::string lPort = ZTTestName(below(7) + 2);  // not all that come in events
        const unsigned int lAddress = oneOf(sAddresses);
        mModel.addTarget(lNode, lPort, lAddress);
        mrCollection.ask("\x03" + wordOf(1) + lNode + lPort + wordOf(lAddress));
    }

    /// Often the one before once more, or that with a word or the board changed.
    void nextEvent() {
        const unsigned int lHow = below(10);
        const auto lWords = static_cast<unsigned int>(mEvent.mPayload.size() / 4);
        if (lHow > 3) {
            makeEvent();
        } else if (lHow == 1 && lWords > 3 && (mEvent.mSubcategory & 0xff) != 32) {
            memcpy(&mEvent.mPayload[4 * (3 + below(lWords - 3))], &oneOf(sWords), 4);
        } else if (lHow == 2) {
            mEvent.mBoard = below(sBoards);
        }
    }

    void makeEvent() {
        const ZTSScopeEventFacts& lrFacts = oneOf(ZTScopeEventFacts);
        const Arrival lArrival =
            oneIn(25) ? oneOf(sUnknown) : Arrival{lrFacts.mCategory, lrFacts.mSubcategory, lrFacts.mMinimum};
        mEvent = {oneIn(40) ? 3 + below(1000) : below(sBoards), lArrival.mCategory, lArrival.mSubcategory};
        const bool lHasMask = mEvent.isRscn() || (mEvent.mCategory == 8 && (mEvent.mSubcategory & 6) != 0);
        if (mEvent.isRscn()) {
            makeRscn();
        } else {
            // The words may lie where a second name does.
            mEvent.mPayload = ZTTestPayload(ZTTestName(below(5)) + (oneIn(2) ? ZTTestName(below(5)) : ""));
            while (mEvent.mPayload.size() < 40) {
                mEvent.mPayload.resize(mEvent.mPayload.size() + 4);
                memcpy(&*mEvent.mPayload.end() - 4, &oneOf(sWords), 4);
            }
            const bool lIsShort = lArrival.mMinimum > 0 && oneIn(20);
            mEvent.mPayload.resize(lIsShort ? lArrival.mMinimum - 1 : lArrival.mMinimum + below(3) * 4);
        }
        mEvent.mIsByMask = lHasMask && oneIn(2);
        if (!mEvent.mIsByMask && oneIn(50)) {
            mEvent.mCategory += 0x100 * below(3);  // only the low bytes count
            mEvent.mSubcategory += 0x10000;
            mEvent.mHasDescriptor = oneIn(2);
        }
    }

    void makeRscn() {
        std::vector<unsigned int> lPages;
        for (unsigned int lLeft = below(5); lLeft > 0; --lLeft) {
            lPages.push_back(oneIn(3) && !lPages.empty() ? lPages.back() : oneOf(sPages));
        }
        mEvent.mPayload = ZTTestRscn(lPages);
        if (oneIn(10)) {
            mEvent.mPayload[3] = static_cast<unsigned char>(mEvent.mPayload[3] - 1 - below(4));  // says less
        } else if (oneIn(20)) {
            mEvent.mPayload.resize(below(8) % (mEvent.mPayload.size() + 1));
        }
    }

    ZTCTestCollection& mrCollection;
    std::mt19937 mRandom;
    Model mModel;
    ZTSTestEvent mEvent{0, 8, 2};
    unsigned int mUntilFetch = sManySteps;
    bool mHasBeenFull = false;
};

}  // namespace

TEST(Model, AgreesWithTheAgentOnEveryResponse) {
    constexpr unsigned int lFirstSeed = 20261121;
    constexpr unsigned int lRuns = ZTIsSanitized ? 2 : 10;
    for (unsigned int lSeed = lFirstSeed; lSeed < lFirstSeed + lRuns && !HasFailure(); ++lSeed) {
        inCollection(sBoards, [lSeed](ZTCTestCollection& arCollection) {
            SCOPED_TRACE(testing::Message() << "seed " << lSeed);
            Steps(arCollection, lSeed).take(100000);
        });
    }
}
