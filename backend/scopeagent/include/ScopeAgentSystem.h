// The agent's system object: what it sets up, in which order, and what the agent's parts share.
#pragma once

#include "LibdfcAbs.h"
#include "LibdfcCalls.h"
#include "ScopeAgentCollection.h"
#include "ScopeAgentEventCatalogue.h"
#include "ScopeAgentInitiator.h"
#include "ScopeAgentLosses.h"
#include "ScopeAgentProtocolHandler.h"
#include "StatisticsFile.h"
#include "System.h"

/// Made by the entry point, driven by SystemMain. Lifecycle operations: main thread, before the threads start
/// and after they have ended.
class ZTCScopeAgentSystem : public ZTCSystem {
  public:
    /// The limit on all collected event data, in bytes.
    static constexpr unsigned int TotalDataLimit = ZTCScopeAgentCollection::Limit;

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
    /// As the collection's, and logged.
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

    /// Counts events that were lost on their way, by the codes with which they arrived. Any thread.
    void countLost(ZTEScopeAgentLoss aLoss, unsigned int aCategory, unsigned int aSubcategory,
                   unsigned int aOccurrences = 1);
    /// Logs what was lost since the last call, if anything.
    void reportLosses() { mLosses.report(); }

    /// Whether all collected data has reached the limit; logs its size then. Any thread.
    bool isTotalLimitOnScopeDataReached() const;

    /// The records and the targets.
    ZTCScopeAgentCollection& getCollection() { return mCollection; }
    /// An empty list for every adapter that the vendor library tells of now. Throws ZTCNoMemoryEx.
    void resetRecordLists() { mCollection.resetRecordLists(mLibdfc->LIBDFC_GetNumberOfAdapters()); }
    void setPrevScopeData(unsigned int aBoard, const ZTCScopeData& acrData) {
        mCollection.setPrevScopeData(aBoard, acrData, ztlog::now());
    }
    void clearPrevScopeData() { mCollection.clearPrevScopeData(); }

  private:
    [[noreturn]] void refuseLibdfc(const ZTCLogFormat<>& acrReason);
    void showStatistics();
    /// Each second, by the statistics' thread.
    void refreshStatistics();
    void finishStatistics();
    void initConditionals();
    void initCommandIpc();
    void initOutputIpc();
    void initThreadComponents();
    void initHeartbeatHandler();
    void initCommandHandler();
    void destroyCommandIpc();
    void destroyOutputIpc();

    ZTCPointer<ZTCLibdfcAbs> mLibdfc;
    ZTCPointer<ZTCScopeAgentProtocolHandler> mProtocolHandler;
    ZTCPointer<ZTCScopeAgentEventCatalogue> mEventCatalogue;
    ZTMap<unsigned int, ZTCPointer<ZTCScopeAgentInitiator>> mInitiators;
    ZTCScopeAgentCollection mCollection;
    ZTCScopeAgentLosses mLosses;
    ZTCStatisticsFile mStatisticsFile;
    ZTCString mCommandPipePath{""};
    ZTCString mOutputPipePath{""};
};
