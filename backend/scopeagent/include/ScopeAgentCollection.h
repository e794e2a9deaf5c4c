// What the agent holds between two fetches: the records of each adapter, and the targets that label them.
//
// Events are told to it (take), and a fetch takes everything out (detach). At most one record is held back,
// the last one of its list, so that a repeat can still be folded into it. Times are in nanoseconds since
// 1970.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "Mutex.h"
#include "ScopeAgentEventFacts.h"
#include "ScopeAgentLosses.h"
#include "ScopeAgentRecord.h"
#include "ScopeAgentRecordList.h"
#include "ScopeAgentTarget.h"
#include "ZTMap.h"

/// Any thread. Its lock is the scope-data lock, which each call takes for itself.
class ZTCScopeAgentCollection {
  public:
    /// The limit on all collected event data, in bytes.
    static constexpr unsigned int Limit = 262144;

    /// An event of a kind and a board, with its payload: a repeat of the one that came before folds into its
    /// record, any other begins a record of its own. Throws ZTCNoMemoryEx: the event is lost, and nothing
    /// else.
    void take(const ZTSScopeEventFacts& acrFacts, unsigned int aBoard, const unsigned char* apPayload,
              std::uint64_t aTime, ZTCLogMask aMask) ZT_EXCLUDES(mLock);
    /// Begins a record, which is then the one that is held back; its bytes have to fit in a chunk. Throws
    /// ZTCNoMemoryEx, nothing changed.
    void setPrevScopeData(unsigned int aBoard, const ZTCScopeData& acrData, std::uint64_t aTime)
        ZT_EXCLUDES(mLock);
    /// Holds no record back any more.
    void clearPrevScopeData() ZT_EXCLUDES(mLock);

    /// An empty list for so many adapters; what was taken is dropped. Throws ZTCNoMemoryEx, nothing changed.
    void resetRecordLists(unsigned int aAdapters) ZT_EXCLUDES(mLock);
    /// The same; returns everything that was taken, which makes it a fetch. Throws ZTCNoMemoryEx, nothing
    /// changed.
    ZTCScopeAgentRecordLists detach(unsigned int aAdapters) ZT_EXCLUDES(mLock);
    /// Gives the memory of what was detached back: to the collection what it needs, the rest to the system.
    void release(ZTCScopeAgentRecordLists& arLists) ZT_EXCLUDES(mLock);
    /// The number of record lists, one an adapter.
    unsigned int getRecordListCount() ZT_EXCLUDES(mLock);

    /// The size of all collected data. Who asks before an event is taken may pass the limit with it: each
    /// thread by one event, which of an RSCN is all its pages, 16,382 at the most.
    unsigned int getSize() const { return mSize.load(std::memory_order_relaxed); }

    /// The per-record data ceiling, in bytes.
    void setDataCeiling(unsigned int aCeiling) { mDataCeiling.store(aCeiling, std::memory_order_relaxed); }

    /// Adds a target, unless there is one by its address, or by its port name: then false. Throws
    /// ZTCNoMemoryEx, nothing changed.
    bool addFcTarget(const ZTCScopeAgentTarget& acrTarget) ZT_EXCLUDES(mLock);
    bool addWwpnTarget(const ZTCScopeAgentTarget& acrTarget) ZT_EXCLUDES(mLock);

    /// Counts events of a kind that were lost on their way.
    void countLost(ZTEScopeEventKind aKind, unsigned int aOccurrences) {
        mLostOfKind[aKind].fetch_add(aOccurrences, std::memory_order_relaxed);
    }
    /// Puts them into the statistics.
    void refreshStatistics() ZT_EXCLUDES(mLock);

  private:
    /// Returns where the event data goes.
    unsigned char* holdBack(unsigned int aBoard, const ZTCScopeData& acrData, std::uint64_t aTime,
                            ZTCLogMask aMask) ZT_REQUIRES(mLock);
    bool fold(const ZTSScopeEventBlock& acrBlock, const unsigned char* apPayload, std::uint64_t aTime,
              ZTCLogMask aMask) ZT_REQUIRES(mLock);
    void filePrevRecord(ZTCLogMask aMask) ZT_REQUIRES(mLock);
    /// Swaps the lists, all records whole.
    void startWith(ZTCScopeAgentRecordLists& arLists) ZT_REQUIRES(mLock);
    const ZTCScopeAgentTarget* findTarget(const ZTSScopeEventFacts& acrFacts,
                                          const unsigned char* apPayload) const ZT_REQUIRES(mLock);
    void addToSize(unsigned int aSize) ZT_REQUIRES(mLock);
    void countLostByKind() ZT_REQUIRES(mLock);

    ZTCMutex mLock;
    ZTCScopeAgentRecord mPrevRecord ZT_GUARDED_BY(mLock);
    ZTCScopeAgentRecordList* mpPrevList ZT_GUARDED_BY(mLock) = nullptr;
    ZTCScopeAgentRecordLists mLists ZT_GUARDED_BY(mLock);
    /// The records of adapters that the library did not tell of at the last fetch: never handed out.
    ZTCScopeAgentRecordList mStrayList ZT_GUARDED_BY(mLock) = ZTCScopeAgentRecordList(0);
    ZTCScopeAgentChunks mSpare ZT_GUARDED_BY(mLock);
    bool mHasPassedEighth ZT_GUARDED_BY(mLock) = false;
    std::atomic<unsigned int> mSize{0};  ///< changed under the lock
    std::atomic<unsigned int> mDataCeiling{0};
    /// By Fibre Channel address, and by the port name's 8 bytes.
    ZTMap<unsigned int, ZTCScopeAgentTarget> mFcTargets ZT_GUARDED_BY(mLock);
    ZTMap<std::uint64_t, ZTCScopeAgentTarget> mWwpnTargets ZT_GUARDED_BY(mLock);
    std::array<std::atomic<unsigned int>, ZTSEK_Count> mLostOfKind{};  ///< not yet in the statistics
};
