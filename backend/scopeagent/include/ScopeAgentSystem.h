// The agent's system object: what it sets up, in which order, and what the agent's parts share.
#pragma once

#include <cstdint>

#include "Mutex.h"
#include "ScopeAgentProtocolHandler.h"
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
    /// Removes the command pipe, then the output pipe.
    void destroy() override;
    void setCmdLineArgDescs() override;
    /// Not provided: throws ZTCNotImplementedEx.
    void processConfigFile() override;
    void displayHelp() override;

    /// The vendor library is found and its adapters become known, or the agent does not run.
    void initLibdfc();
    /// The shutdown command's: destroy() does not close the library.
    void closeLibdfc();

    /// Adds a target, unless there is one by its address, or by its port name. Any thread.
    void addFcTarget(const ZTCPointer<ZTCScopeAgentTarget>& acrTarget);
    void addWwpnTarget(const ZTCPointer<ZTCScopeAgentTarget>& acrTarget);

    ZTCPointer<ZTCScopeAgentProtocolHandler>& getScopeAgentProtocolHandler() { return mProtocolHandler; }
    const ZTCString& getCommandPipePath() const { return mCommandPipePath; }
    const ZTCString& getOutputPipePath() const { return mOutputPipePath; }

    /// The per-record data ceiling, in bytes. Any thread.
    unsigned int getDataCeiling() const { return mDataCeiling.load(std::memory_order_relaxed); }
    void setDataCeiling(unsigned int aCeiling) { mDataCeiling.store(aCeiling, std::memory_order_relaxed); }

  private:
    template <class Key>
    using TargetMap = ZTMap<Key, ZTCPointer<ZTCScopeAgentTarget>>;

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
    ZTCPointer<ZTCScopeAgentProtocolHandler> mProtocolHandler;
    ZTCPointer<ZTCMutex> mScopeDataLock;
    TargetMap<unsigned int> mFcTargets ZT_GUARDED_BY(*mScopeDataLock);     ///< by Fibre Channel address
    TargetMap<std::uint64_t> mWwpnTargets ZT_GUARDED_BY(*mScopeDataLock);  ///< by the port name's 8 bytes
    ZTCString mCommandPipePath{""};
    ZTCString mOutputPipePath{""};
};
