// The agent's system object: what it sets up, in which order, and what the agent's parts share.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "LibdfcAbs.h"
#include "LibdfcCalls.h"
#include "Mutex.h"
#include "ScopeAgentEventCatalogue.h"
#include "ScopeAgentEventKinds.h"
#include "ScopeAgentInitiator.h"
#include "ScopeAgentLosses.h"
#include "ScopeAgentProtocolHandler.h"
#include "ScopeAgentRecordList.h"
#include "ScopeAgentTarget.h"
#include "StatisticsFile.h"
#include "System.h"

/// Made by the entry point, driven by SystemMain. Lifecycle operations: main thread, before the threads start
/// and after they have ended.
class ZTCScopeAgentSystem : public ZTCSystem {
  public:
    /// The limit on all collected event data, in bytes.
    static constexpr unsigned int TotalDataLimit = 262144;

    explicit ZTCScopeAgentSystem(const ZTCString& acrName);

    /// Global defaults, the runtime directory (ZT_VRX_SENSOR_DIR, without which the process ends with status
    /// 1), the paths in it, the instance manager, the version.
    void preInit() override;
    /// The statistics, the vendor library, the conditionals (heartbeat 0, commands 1), the pipes (reader 0,
    /// writer 0), the handlers, the thread components (heartbeat 0, commands 1).
    void init() override;
    void postDestroy() override;
    /// Waits for the vendor library's threads, removes the command pipe, then the output pipe.
    void destroy() override;
    /// Shuts the vendor library's threads out, too.
    void makeThreadsToExit() override;
    ZTSForeignCall getLongestCall() const override { return LibdfcLongestCall(); }
    void keepForeignCallers(bool aOn) override { LibdfcKeepThreads(aOn); }
    void abandonStart() override;
    void setCmdLineArgDescs() override;
    /// Not provided: throws ZTCNotImplementedEx.
    void processConfigFile() override;
    void displayHelp() override;

    /// Loads the vendor library and makes an initiator and a record list of each adapter. Throws
    /// ZTCExitConditionEx, the library closed, when the agent is not to run: no library, no adapters, or a
    /// driver without the events that are registered by category.
    void initLibdfc();
    /// Makes the protocol handler and the event catalogue.
    void initScopeAgentHandlers();
    /// The shutdown command's: destroy() does not close the library.
    void closeLibdfc();
    /// Adds a target, unless there is one by its address, or by its port name. Any thread.
    /// Throws ZTCNoMemoryEx, nothing changed.
    void addFcTarget(const ZTCScopeAgentTarget& acrTarget);
    void addWwpnTarget(const ZTCScopeAgentTarget& acrTarget);

    /// By board number. Does not change after the start.
    const ZTMap<unsigned int, ZTCPointer<ZTCScopeAgentInitiator>>& getInitiators() const {
        return mInitiators;
    }
    /// Boards are counted from 0.
    bool isKnownBoard(unsigned int aBoard) const { return aBoard < mInitiators.size(); }
    const ZTCPointer<ZTCLibdfcAbs>& getLibdfc() const { return mLibdfc; }
    const ZTCPointer<ZTCScopeAgentEventCatalogue>& getEventCatalogue() const { return mEventCatalogue; }
    ZTCPointer<ZTCScopeAgentProtocolHandler>& getScopeAgentProtocolHandler() { return mProtocolHandler; }
    const ZTCString& getCommandPipePath() const { return mCommandPipePath; }
    const ZTCString& getOutputPipePath() const { return mOutputPipePath; }

    /// The per-record data ceiling, in bytes. Any thread.
    unsigned int getDataCeiling() const { return mDataCeiling.load(std::memory_order_relaxed); }
    void setDataCeiling(unsigned int aCeiling) { mDataCeiling.store(aCeiling, std::memory_order_relaxed); }

    /// Counts events that were lost on their way, by the codes with which they arrived. Any thread.
    void countLost(ZTEScopeAgentLoss aLoss, unsigned int aCategory, unsigned int aSubcategory,
                   unsigned int aOccurrences = 1);
    /// Logs what was lost since the last call, if anything.
    void reportLosses() { mLosses.report(); }

    /// Whether all collected data has reached the limit; tells its size then. Any thread: a soft bound, which
    /// may be passed by one event a thread, of an RSCN by all its pages.
    bool isTotalLimitOnScopeDataReached() const;

    // The collection. At most one record is held back outside its list, so that a repeat can still be folded
    // into it. Times are in nanoseconds since 1970.

    ZTCMutex& getScopeDataLock() const ZT_RETURN_CAPABILITY(*mScopeDataLock) { return *mScopeDataLock; }

    /// The number of record lists, one an adapter.
    unsigned int getRecordListCount() ZT_EXCLUDES(*mScopeDataLock);
    /// An empty list for every adapter that the vendor library tells of now. Throws ZTCNoMemoryEx.
    ZTCScopeAgentRecordLists makeRecordLists();
    /// Begins anew with these lists, as of a time in nanoseconds since 1970: the caller gets the old ones,
    /// and the size of the collected data is 0.
    void resetRecordLists(ZTCScopeAgentRecordLists& arLists, std::uint64_t aTime)
        ZT_REQUIRES(*mScopeDataLock);

    /// Whether no record is held back, or one of another kind or board.
    bool isNewEvent(const ZTCScopeEvent& acrEvent, unsigned int aBoard) const ZT_REQUIRES(*mScopeDataLock) {
        return mPrevKey != prevKeyOf(acrEvent, aBoard);
    }
    /// The data of the record that is held back.
    ZTCScopeData& getPrevScopeData() ZT_REQUIRES(*mScopeDataLock) { return *mPrevRecord->getScopeData(); }
    /// Counts a repeat on the record that is held back.
    void incrementPrevRecord(std::uint64_t aTime) ZT_REQUIRES(*mScopeDataLock);
    /// The same with bytes of its own. Throws ZTCNoMemoryEx, nothing changed.
    void appendToPrevScopeData(const unsigned char* apBytes, unsigned int aCount, std::uint64_t aTime)
        ZT_REQUIRES(*mScopeDataLock);
    /// Files the record that was held back, and holds back a new one. Throws ZTCNoMemoryEx, the event lost.
    void setPrevScopeData(unsigned int aBoard, ZTCPointer<ZTCScopeData> aData, std::uint64_t aTime)
        ZT_REQUIRES(*mScopeDataLock);
    /// Files the record that is held back. Throws ZTCNoMemoryEx, nothing changed.
    void clearPrevScopeData() ZT_REQUIRES(*mScopeDataLock);
    /// Whether the collected data has passed an eighth of its limit since the last call: once between two
    /// fetches.
    bool takePassedEighth() ZT_REQUIRES(*mScopeDataLock) {
        return mHasPassedEighth && std::exchange(mHasPassedEighth, false);
    }

    /// The target of a port name's 8 bytes, or of a port id; null when none is registered.
    const ZTCScopeAgentTarget* findTargetByName(const unsigned char* apName) const
        ZT_REQUIRES(*mScopeDataLock);
    const ZTCScopeAgentTarget* findTargetByPortId(unsigned int aPortId) const ZT_REQUIRES(*mScopeDataLock);

  private:
    [[noreturn]] void refuseLibdfc(const char* apReason);
    void showStatistics();
    /// Each second, by the statistics' thread.
    void refreshStatistics() ZT_EXCLUDES(*mScopeDataLock);
    void countLostByKind() ZT_REQUIRES(*mScopeDataLock);
    void initConditionals();
    void initCommandIpc();
    void initOutputIpc();
    void initThreadComponents();
    void initHeartbeatHandler();
    void initCommandHandler();
    void destroyCommandIpc();
    void destroyOutputIpc();

    /// The board and the kind of the record that is held back, in one.
    static constexpr std::uint64_t NoPrevKey = ~std::uint64_t{0};
    static std::uint64_t prevKeyOf(const ZTCScopeEvent& acrEvent, unsigned int aBoard) {
        return std::uint64_t{aBoard} << 16 | acrEvent.getKeyform();
    }
    void filePrevRecord() ZT_REQUIRES(*mScopeDataLock);
    void addToTotal(unsigned int aSize) ZT_REQUIRES(*mScopeDataLock);

    std::atomic<unsigned int> mDataCeiling{0};
    std::atomic<unsigned int> mTotalScopeDataSize{0};  ///< changed under the scope-data lock
    ZTCPointer<ZTCLibdfcAbs> mLibdfc;
    ZTCPointer<ZTCScopeAgentProtocolHandler> mProtocolHandler;
    ZTCPointer<ZTCScopeAgentEventCatalogue> mEventCatalogue;
    ZTMap<unsigned int, ZTCPointer<ZTCScopeAgentInitiator>> mInitiators;
    ZTCPointer<ZTCMutex> mScopeDataLock;
    ZTCScopeAgentRecordLists mRecordLists ZT_GUARDED_BY(*mScopeDataLock);
    std::uint64_t mPrevKey ZT_GUARDED_BY(*mScopeDataLock) = NoPrevKey;
    ZTCPointer<ZTCScopeAgentRecord> mPrevRecord ZT_GUARDED_BY(*mScopeDataLock);
    /// By Fibre Channel address, and by the port name's 8 bytes.
    ZTMap<unsigned int, ZTCScopeAgentTarget> mFcTargets ZT_GUARDED_BY(*mScopeDataLock);
    ZTMap<std::uint64_t, ZTCScopeAgentTarget> mWwpnTargets ZT_GUARDED_BY(*mScopeDataLock);
    bool mHasPassedEighth ZT_GUARDED_BY(*mScopeDataLock) = false;
    std::array<std::atomic<unsigned int>, ZTSEK_Count> mLostOfKind{};  ///< not yet in the statistics
    ZTCScopeAgentLosses mLosses;
    ZTCStatisticsFile mStatisticsFile;
    ZTCString mCommandPipePath{""};
    ZTCString mOutputPipePath{""};
};
