// The agent's system object: what it sets up, in which order, and what the agent's parts share.
#pragma once

#include <cstdint>

#include "LibdfcAbs.h"
#include "Mutex.h"
#include "ScopeAgentInitiator.h"
#include "ScopeAgentProtocolHandler.h"
#include "ScopeAgentRecordList.h"
#include "ScopeAgentTarget.h"
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
    /// The vendor library, the conditionals (heartbeat 0, commands 1), the pipes (reader 0, writer 0), the
    /// handlers, the thread components (heartbeat 0, commands 1).
    void init() override;
    void postDestroy() override;
    /// Waits for the vendor library's threads, removes the command pipe, then the output pipe.
    void destroy() override;
    /// Shuts the vendor library's threads out, too.
    void makeThreadsToExit() override;
    void setCmdLineArgDescs() override;
    /// Not provided: throws ZTCNotImplementedEx.
    void processConfigFile() override;
    void displayHelp() override;

    /// Loads the vendor library and makes an initiator and a record list of each adapter. Throws
    /// ZTCExitConditionEx, the library closed, when the agent is not to run: no library, no adapters, or a
    /// driver without the events that are registered by category.
    void initLibdfc();
    /// The shutdown command's: destroy() does not close the library.
    void closeLibdfc();
    /// Makes a new record list for every adapter that the vendor library tells of now; there are none before
    /// it.
    void resetRecordLists() ZT_REQUIRES(*mScopeDataLock);

    /// Adds a target, unless there is one by its address, or by its port name. Any thread.
    void addFcTarget(const ZTCPointer<ZTCScopeAgentTarget>& acrTarget);
    void addWwpnTarget(const ZTCPointer<ZTCScopeAgentTarget>& acrTarget);

    /// By board number. Does not change after the start.
    const ZTMap<unsigned int, ZTCPointer<ZTCScopeAgentInitiator>>& getInitiators() const {
        return mInitiators;
    }
    ZTMap<unsigned int, ZTCPointer<ZTCScopeAgentRecordList>>& getRecordLists() ZT_REQUIRES(*mScopeDataLock) {
        return mRecordLists;
    }
    const ZTCPointer<ZTCLibdfcAbs>& getLibdfc() const { return mLibdfc; }
    ZTCPointer<ZTCScopeAgentProtocolHandler>& getScopeAgentProtocolHandler() { return mProtocolHandler; }
    const ZTCString& getCommandPipePath() const { return mCommandPipePath; }
    const ZTCString& getOutputPipePath() const { return mOutputPipePath; }

    /// The per-record data ceiling, in bytes. Any thread.
    unsigned int getDataCeiling() const { return mDataCeiling.load(std::memory_order_relaxed); }
    void setDataCeiling(unsigned int aCeiling) { mDataCeiling.store(aCeiling, std::memory_order_relaxed); }

  private:
    template <class Key>
    using TargetMap = ZTMap<Key, ZTCPointer<ZTCScopeAgentTarget>>;

    [[noreturn]] void refuseLibdfc(const char* apReason);
    void addRecordLists(unsigned int aCount) ZT_REQUIRES(*mScopeDataLock);
    void initConditionals();
    void initCommandIpc();
    void initOutputIpc();
    void initScopeAgentHandlers();
    void initThreadComponents();
    void initHeartbeatHandler();
    void initCommandHandler();
    void destroyCommandIpc();
    void destroyOutputIpc();

    std::atomic<unsigned int> mDataCeiling{0};
    ZTCPointer<ZTCLibdfcAbs> mLibdfc;
    ZTCPointer<ZTCScopeAgentProtocolHandler> mProtocolHandler;
    ZTMap<unsigned int, ZTCPointer<ZTCScopeAgentInitiator>> mInitiators;
    ZTCPointer<ZTCMutex> mScopeDataLock;
    ZTMap<unsigned int, ZTCPointer<ZTCScopeAgentRecordList>> mRecordLists ZT_GUARDED_BY(*mScopeDataLock);
    TargetMap<unsigned int> mFcTargets ZT_GUARDED_BY(*mScopeDataLock);     ///< by Fibre Channel address
    TargetMap<std::uint64_t> mWwpnTargets ZT_GUARDED_BY(*mScopeDataLock);  ///< by the port name's 8 bytes
    ZTCString mCommandPipePath{""};
    ZTCString mOutputPipePath{""};
};
