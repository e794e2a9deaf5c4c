// What has a name in a directory of sysfs: one by one what is due, and all of it in a round.
#pragma once

#include <algorithm>
#include <map>
#include <optional>

#include "Slice.h"
#include "SysfsFolder.h"

enum class ZTESysfsRead : unsigned char {
    Whole,  ///< nothing is missing that is to be expected
    Partly,
    Gone,  ///< while it was read: what there is of it is not believed
};

/// Key is what a name means. A step each second: a round is done within a minute, also when steps come late.
/// One thread. Throws std::bad_alloc alone; the next step is as good.
template <class Key, class Value>
class ZTCSysfsRound {
  public:
    static constexpr unsigned int StepsARound = 45;
    /// Some attributes follow what they belong to by a moment.
    static constexpr unsigned int StepsBehind = 8;

    struct Item {
        std::uint64_t mInode = 0;
        std::uint64_t mListing = 0;  ///< the last one that found it
        unsigned int mDue = 0;       ///< it is read at each of so many steps
        bool mIsRead = false;
        bool mIsAwaited = false;  ///< it was not read yet, and may be
        Value mValue;
    };
    using Items = std::map<Key, Item>;

    explicit ZTCSysfsRound(std::size_t aMost) : mMost(aMost) {}

    const Items& getItems() const { return mItems; }
    std::size_t getLeftOut() const { return mLeftOut; }
    /// Each has been read, or could not be.
    bool isWhole() const { return mIsListed && mUnread == 0; }
    /// What is not among the items is not there.
    bool isListed() const { return mIsListed && !mIsListDue; }
    std::size_t countDue() const { return mDue; }
    const Value* find(const Key& acrKey) const {
        const auto lAt = mItems.find(acrKey);
        return lAt != mItems.end() && lAt->second.mIsRead ? &lAt->second.mValue : nullptr;
    }

    void makeListDue() { mIsListDue = true; }
    /// What there is of it is read at so many steps. False: it is not known.
    bool makeDue(const Key& acrKey, unsigned int aSteps) {
        const auto lAt = mItems.find(acrKey);
        if (lAt != mItems.end()) {
            setDue(lAt->second, std::max(lAt->second.mDue, aSteps));
        }
        return lAt != mItems.end();
    }
    void makeAllDue() {
        for (auto& [lrKey, lrItem] : mItems) {
            setDue(lrItem, std::max(lrItem.mDue, 1U));
        }
        mIsListDue = true;
    }
    /// What has the name at the next listing is another one.
    void haveGone(const Key& acrKey) {
        if (const auto lAt = mItems.find(acrKey); lAt != mItems.end()) {
            lAt->second.mInode = 0;
        }
        mIsListDue = true;
    }
    template <class Do>
    void each(const Do& acrDo) {
        for (auto& [lrKey, lrItem] : mItems) {
            if (lrItem.mIsRead) {
                acrDo(lrKey, lrItem.mValue);
            }
        }
    }

    /// acrParse: the key of a name, or nothing. True: something came or went.
    template <class Parse>
    bool listIfDue(const std::string& acrDirectory, const Parse& acrParse) {
        if (!mIsListDue && ++mSinceListing < StepsARound) {
            return false;
        }
        bool lHasChanged = false;
        std::size_t lLeftOut = 0;
        ++mListing;
        const bool lIsListed = eachSysfsName(acrDirectory, [&](const char* apName, std::uint64_t aInode) {
            if (const std::optional<Key> lKey = acrParse(apName)) {
                lHasChanged |= note(*lKey, aInode, lLeftOut);
            }
        });
        if (!lIsListed) {
            return lHasChanged;
        }
        for (auto lAt = mItems.begin(); lAt != mItems.end();) {
            if (lAt->second.mListing == mListing) {
                ++lAt;
                continue;
            }
            forget(lAt->second);
            lAt = mItems.erase(lAt);
            lHasChanged = true;
        }
        mIsListed = true;
        mLeftOut = lLeftOut;
        mIsListDue = false;
        mSinceListing = 0;
        return lHasChanged;
    }

    /// acrRead(key, value) reads all of it, and says a ZTESysfsRead.
    template <class Read>
    void readDue(const ZTCSlice& acrSlice, unsigned int aQuarters, const Read& acrRead) {
        for (std::size_t lCount = mDue == 0 ? 0 : mItems.size(); lCount != 0; --lCount) {
            auto& [lrKey, lrItem] = next(mLastDue);
            if (lrItem.mDue == 0) {
                continue;
            }
            const bool lIsWhole = haveRead(lrItem, acrRead(lrKey, lrItem.mValue));
            setDue(lrItem, lIsWhole ? 0 : lrItem.mDue - 1);
            if (mDue == 0 || acrSlice.isOver(aQuarters)) {
                return;
            }
        }
    }
    /// The next ones of the round.
    template <class Read>
    void readRound(const ZTCSlice& acrSlice, unsigned int aQuarters, const Read& acrRead) {
        for (std::size_t lCount = (mItems.size() + StepsARound - 1) / StepsARound; lCount != 0; --lCount) {
            auto& [lrKey, lrItem] = next(mLastOfRound);
            haveRead(lrItem, acrRead(lrKey, lrItem.mValue));
            if (acrSlice.isOver(aQuarters)) {
                return;
            }
        }
    }

  private:
    typename Items::value_type& next(Key& arLast) {
        auto lAt = mItems.upper_bound(arLast);
        lAt = lAt == mItems.end() ? mItems.begin() : lAt;
        arLast = lAt->first;
        return *lAt;
    }
    bool note(const Key& acrKey, std::uint64_t aInode, std::size_t& arLeftOut) {
        auto lAt = mItems.find(acrKey);
        if (lAt == mItems.end() && mItems.size() == mMost) {
            ++arLeftOut;
            return false;
        }
        const bool lIsNew = lAt == mItems.end();
        if (lIsNew) {
            lAt = mItems.try_emplace(acrKey).first;
        }
        Item& lrItem = lAt->second;
        lrItem.mListing = mListing;
        if (!lIsNew && lrItem.mInode == aInode) {
            return false;
        }
        lrItem.mIsRead = false;
        setAwaited(lrItem, true);
        lrItem.mInode = aInode;
        lrItem.mValue = {};
        setDue(lrItem, StepsBehind);
        return true;
    }
    bool haveRead(Item& arItem, ZTESysfsRead aRead) {
        if (aRead == ZTESysfsRead::Gone) {
            mIsListDue = true;
            setAwaited(arItem, arItem.mIsAwaited && arItem.mDue > 1);  // else nothing would ever be whole
        } else {
            arItem.mIsRead = true;
            setAwaited(arItem, false);
        }
        return aRead == ZTESysfsRead::Whole;
    }
    void setDue(Item& arItem, unsigned int aSteps) {
        mDue -= arItem.mDue != 0 ? 1 : 0;
        arItem.mDue = aSteps;
        mDue += arItem.mDue != 0 ? 1 : 0;
    }
    void setAwaited(Item& arItem, bool aIsAwaited) {
        mUnread -= arItem.mIsAwaited ? 1 : 0;
        arItem.mIsAwaited = aIsAwaited;
        mUnread += arItem.mIsAwaited ? 1 : 0;
    }
    void forget(Item& arItem) {
        setDue(arItem, 0);
        setAwaited(arItem, false);
    }

    const std::size_t mMost;
    Items mItems;
    Key mLastDue{};
    Key mLastOfRound{};
    std::size_t mDue = 0;
    std::size_t mUnread = 0;
    std::uint64_t mListing = 0;
    unsigned int mSinceListing = 0;
    std::size_t mLeftOut = 0;
    bool mIsListDue = true;
    bool mIsListed = false;
};
