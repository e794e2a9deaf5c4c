// What goes into the store beside the records: losses, changes, runs of the agent, ports and names
// (HostTables.h has the rest).
#pragma once

#include "Statement.h"
#include "StoreBatch.h"

class ZTCBatchTables {
  public:
    explicit ZTCBatchTables(SQLite::Database& arDatabase);

    /// What it has of them. aNow: when ports are seen.
    void write(const ZTSStoreBatch& acrBatch, ZTNanoseconds aNow);
    void writeChange(const ZTSChange& acrChange);
    /// The run of an agent that came last.
    std::optional<ZTSAgentRun> loadAgent();
    /// The ports that are there. What of them is gone when ports are next written, was seen last at that
    /// time.
    ZTSHostPorts loadPorts(SQLite::Database& arDatabase, ZTNanoseconds aLastWrite);
    /// The transaction has failed.
    void forget() { mWritten = {}; }

  private:
    void writeLoss(const ZTSLoss& acrLoss);
    void beginAgent(std::int64_t aAgent);
    void writeAgent(const ZTSAgentRun& acrRun);
    void writeFigures(std::int64_t aAgent, const ZTSAgentRun& acrRun);
    void writePorts(const ZTSHostPorts& acrPorts, ZTNanoseconds aNow);
    void writeLabels(const ZTPortLabels& acrLabels);

    ZTNanoseconds mLastWrite = 0;  ///< of somebody before
    ZTSAgentRun mWritten;          ///< the figures that are in the store, of which run
    ZTCStatement mAddLoss, mAddLossTotal, mLongestLoss, mAddChange, mSetAgent, mSetFigure, mNoFigures,
        mOldAgents, mFindAgent, mFindFigures, mNoPorts, mNoRemotes, mSetPort, mPortChanged, mSetRemote,
        mNoNames, mAddName;
};
