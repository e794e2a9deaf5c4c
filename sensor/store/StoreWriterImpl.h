// What ZTCStoreWriter is made of: opening, transactions and writing in StoreWriter.cpp, what goes in
// StoreRetiring.cpp.
#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

#include "Holders.h"
#include "StoreFile.h"
#include "StoreParts.h"
#include "StoreWriter.h"

class ZTCStoreWriter::Impl {
  public:
    explicit Impl(ZTSStoreOptions aOptions)
        : mOptions(std::move(aOptions)),
          mKeep{mOptions.mKeepDays, mOptions.mKeepBytes},
          mClock(mOptions.mClockTrust) {
        try {
            open(openStoreToWrite(mOptions.mPath));
        } catch (const ZTCStoreError& lrError) {
            if (lrError.getFault() != ZTEStoreFault::Damaged) {
                throw;
            }
            // It opened, but what is known of it from before cannot be read.
            open(beginStoreAnew(openStoreToWrite(mOptions.mPath)));
        }
    }

    const ZTSStoreStart& getStart() const { return mStart; }
    void setKeep(unsigned int aDays, std::uint64_t aBytes);
    void beginAnew();
    void write(const ZTSStoreBatch& acrBatch);
    std::vector<ZTSStoreRequest> takeRequests();
    bool markIncident(const ZTSStoreRequest& acrRequest);
    bool retire(ZTNanoseconds aNow);
    void checkpoint();
    std::string describeHolder() const { return describeHolders(mOptions.mPath); }
    ZTSStoreSize getSize() const;
    void finish();

  private:
    using Clock = std::chrono::steady_clock;

    static constexpr unsigned int RowsBetweenLooks = 256;

    void open(ZTSOpenedStore aFile);
    std::optional<ZTSOpenedStore> close();
    void loadStart();
    bool isThere(const ZTSStoreBatch& acrBatch) const;
    std::uint64_t countRecords() const;
    void writeRows(const ZTSStoreBatch& acrBatch);
    void writeRow(const ZTSStoreRow& acrRow);
    void writeMeta(const ZTSStoreBatch& acrBatch);
    ZTSRetentionFacts look(ZTNanoseconds aNow, bool aIsClockTrusted) const;
    void makeRoom();
    void retireToSize(Clock::time_point aEnd);
    bool retireByAge(ZTNanoseconds aTime, Clock::time_point aEnd);
    bool joinSeries(Clock::time_point aNow);
    bool tidy(Clock::time_point aNow);
    ZTSStoreParts& getStore() const;
    std::int64_t getMeta(const char* apName) const;
    void setMeta(const char* apName, std::int64_t aValue);
    template <class Work>
    std::invoke_result_t<Work> tell(const Work& acrWork) const;
    template <class Work>
    void inTransaction(const Work& acrWork);
    void rollBack() noexcept;

    const ZTSStoreOptions mOptions;
    ZTSKeep mKeep;
    ZTSStoreStart mStart;
    ZTCClockTrust mClock;
    Clock::time_point mNextSweep;
    Clock::time_point mNextJoin;  ///< of series
    Clock::time_point mNextTidy;
    std::uint64_t mRecords = 0;
    std::uint64_t mNewRecords = 0;  ///< of the running transaction
    std::uint64_t mGoneRecords = 0;
    bool mCouldRetire = true;    ///< something was there that could go
    ZTNanoseconds mLongest = 0;  ///< as the store has it; 0: not known
    std::mutex mLock;            ///< of mpStore, which comes and goes while another thread makes a checkpoint
    std::optional<ZTSOpenedStore> mFile;
    std::unique_ptr<ZTSStoreParts> mpStore;
};

template <class Work>
std::invoke_result_t<Work> ZTCStoreWriter::Impl::tell(const Work& acrWork) const {
    try {
        return acrWork();
    } catch (const SQLite::Exception& lrError) {
        throw toStoreError(lrError, mOptions.mPath);
    }
}

template <class Work>
void ZTCStoreWriter::Impl::inTransaction(const Work& acrWork) {
    tell([&] {
        getStore().mBegin.run();
        try {
            acrWork();
            getStore().mCommit.run();
        } catch (...) {
            rollBack();
            throw;
        }
    });
}
