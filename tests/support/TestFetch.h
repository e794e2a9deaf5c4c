// What a fetch answers, read wholly.
#pragma once

#include <cstdint>

#include "AgentClient.h"
#include "BigEndian.h"

inline std::string digitsOf(const std::string& acrBytes) {
    std::string lDigits;
    for (const char lByte : acrBytes) {
        lDigits += "0123456789abcdef"[lByte >> 4 & 15];
        lDigits += "0123456789abcdef"[lByte & 15];
    }
    return lDigits;
}

struct ZTSTestRecord {
    unsigned int mOccurrences = 0;
    std::uint64_t mFirst = 0;  ///< nanoseconds since 1970
    std::uint64_t mLast = 0;
    unsigned int mCategory = 0, mSubcategory = 0;
    std::string mNames;  ///< node and port name, or nothing
    std::string mData;
    std::string mDigits{};  ///< of all its bytes, the two times as "TT"

    unsigned int getSize() const { return static_cast<unsigned int>(7 + mNames.size() + mData.size()); }
};

struct ZTSTestList {
    std::string mLabel;
    std::vector<ZTSTestRecord> mRecords;
};

/// A response to a fetch, read wholly: one that is not well-formed is a failure and ZTCInvalidEx.
class ZTCTestFetch {
  public:
    explicit ZTCTestFetch(const std::string& acrBytes) : mMasked(acrBytes) {
        require(take(1) == "\x02", "no scope data");
        mCount = word();
        while (mAt < mMasked.size()) {
            ZTSTestList lList{take(word()), {}};
            for (unsigned int lLeft = word(); lLeft > 0; --lLeft) {
                lList.mRecords.push_back(record());
                mSize += lList.mRecords.back().getSize();
                mOccurrences += lList.mRecords.back().mOccurrences;
            }
            mLists.push_back(lList);
        }
    }

    /// The number of lists as it is told.
    unsigned int getCount() const { return mCount; }
    const std::vector<ZTSTestList>& getLists() const { return mLists; }
    const std::vector<ZTSTestRecord>& of(unsigned int aList) const { return mLists.at(aList).mRecords; }
    /// What counts against the limit on all collected data.
    unsigned int getSize() const { return mSize; }
    unsigned int getOccurrences() const { return mOccurrences; }
    /// The response with zeros for the times.
    const std::string& getMasked() const { return mMasked; }

  private:
    static void require(bool aCondition, const char* apWhat) {
        if (!aCondition) {
            ADD_FAILURE() << apWhat;
            throw ZTCInvalidEx(apWhat, 0);
        }
    }
    std::string take(std::size_t aCount) {
        require(aCount <= mMasked.size() - mAt, "the response is not whole");
        mAt += aCount;
        return mMasked.substr(mAt - aCount, aCount);
    }
    unsigned int word() {
        const std::string lBytes = take(4);
        return ztwire::get<unsigned int>(reinterpret_cast<const unsigned char*>(lBytes.data()));
    }
    std::uint64_t time() {
        const std::uint64_t lSeconds = std::uint64_t{word()} << 32 | word();
        const unsigned int lNanoseconds = word();
        require(lNanoseconds < 1000000000, "no time");
        mMasked.replace(mAt - 12, 12, 12, '\0');
        return lSeconds * 1000000000 + lNanoseconds;
    }
    ZTSTestRecord record() {
        ZTSTestRecord lRecord;
        const std::size_t lFrom = mAt;
        lRecord.mOccurrences = word();
        lRecord.mFirst = time();
        lRecord.mLast = time();
        lRecord.mCategory = static_cast<unsigned char>(take(1)[0]);
        lRecord.mSubcategory = static_cast<unsigned char>(take(1)[0]);
        const std::string lHasNames = take(1);
        require(lHasNames[0] == 0 || lHasNames[0] == 1, "neither names nor none");
        lRecord.mNames = take(lHasNames[0] == 0 ? 0 : 16);
        lRecord.mData = take(word());
        lRecord.mDigits = digitsOf(mMasked.substr(lFrom, 4)) + "TT" +
                          digitsOf(mMasked.substr(lFrom + 28, mAt - lFrom - 28));
        require(lRecord.mOccurrences > 0 && lRecord.mFirst <= lRecord.mLast && lRecord.mData.size() >= 4,
                "a record half made");
        return lRecord;
    }

    std::string mMasked;
    std::size_t mAt = 0;
    unsigned int mCount = 0, mSize = 0, mOccurrences = 0;
    std::vector<ZTSTestList> mLists;
};
