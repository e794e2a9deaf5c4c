#include "BatchTables.h"

#include <algorithm>
#include <utility>

#include "StoreRows.h"

namespace {

// A figure that is told of, but that the run's own figures do not have.
constexpr std::int64_t sNoValue = -1;
constexpr std::int64_t sMostAgents = 5000;
constexpr ZTNanoseconds sCameBefore = 60 * ZTSecond;

const std::uint64_t* sFind(const std::map<std::string, std::uint64_t>& acrFigures,
                           const std::string& acrName) {
    const auto lAt = acrFigures.find(acrName);
    return lAt != acrFigures.end() ? &lAt->second : nullptr;
}

bool sIsAsBefore(const std::uint64_t* apValue, const std::uint64_t* apBefore) {
    return apValue == nullptr ? apBefore == nullptr : apBefore != nullptr && *apValue == *apBefore;
}

std::optional<std::int64_t> sNumber(const std::uint64_t* apValue) {
    return apValue != nullptr ? std::optional(static_cast<std::int64_t>(*apValue)) : std::nullopt;
}

}  // namespace

ZTCBatchTables::ZTCBatchTables(SQLite::Database& arDatabase)
    : mAddLoss(arDatabase,
               "INSERT INTO losses (first, last, source, reason, events, at_most) VALUES (?, ?, ?, ?, ?, ?)"),
      mAddLossTotal(arDatabase,
                    "INSERT INTO loss_totals VALUES (?, ?, ?, ?) ON CONFLICT DO UPDATE SET events = events + "
                    "excluded.events, unknown = unknown + excluded.unknown"),
      mLongestLoss(arDatabase,
                   "INSERT INTO meta VALUES ('longest_loss', ?) ON CONFLICT DO UPDATE SET value = max(value, "
                   "excluded.value)"),
      mAddChange(
          arDatabase,
          "INSERT INTO changes (time, what, name, event, attribute, before, after) VALUES (?, ?, ?, ?, "
          "?, ?, ?)"),
      mSetAgent(
          arDatabase,
          "INSERT INTO agents (start, process, came, seen, went, end, taken) VALUES (?, ?, ?, ?, "
          "nullif(?, 0), ?, ?) ON CONFLICT DO UPDATE SET came = excluded.came, seen = excluded.seen, went "
          "= excluded.went, end = excluded.end, taken = excluded.taken RETURNING id"),
      mSetFigure(arDatabase, "INSERT OR REPLACE INTO figures VALUES (?, ?, ?, ?)"),
      mNoFigures(arDatabase, "DELETE FROM figures WHERE agent < ?"),
      mOldAgents(arDatabase, "DELETE FROM agents WHERE id <= ?"),
      mFindAgent(
          arDatabase,
          "SELECT id, start, process, came, seen, coalesce(went, 0), end, taken FROM agents ORDER BY id "
          "DESC LIMIT 1"),
      mFindFigures(arDatabase, "SELECT name, value, told FROM figures WHERE agent = ?"),
      mNoPorts(arDatabase, "UPDATE ports SET here = 0, seen = ? WHERE here = 1"),
      mNoRemotes(arDatabase, "UPDATE remote_ports SET here = 0, seen = ? WHERE here = 1"),
      mSetPort(
          arDatabase,
          "INSERT OR REPLACE INTO ports VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, 1, coalesce((SELECT "
          "since FROM ports WHERE port = ?1), (SELECT max(time) FROM changes WHERE time > ?10 AND what = "
          "'port' AND name = ?1 AND attribute IN ('', 'state')), 0), ?11, ?12, ?13, ?14)"),
      mPortChanged(arDatabase, "UPDATE ports SET since = max(since, ?2) WHERE port = ?1"),
      mSetRemote(arDatabase, "INSERT OR REPLACE INTO remote_ports VALUES (?, ?, ?, ?, ?, ?, ?, ?, 1, ?)"),
      mNoNames(arDatabase, "DELETE FROM names"),
      mAddName(arDatabase, "INSERT INTO names VALUES (?, ?, ?, ?, ?, ?)") {}

void ZTCBatchTables::write(const ZTSStoreBatch& acrBatch, ZTNanoseconds aNow) {
    for (const ZTSLoss& lrLoss : acrBatch.mLosses) {
        writeLoss(lrLoss);
    }
    for (const ZTSChange& lrChange : acrBatch.mChanges) {
        writeChange(lrChange);
        if (lrChange.mWhat == "port" && (lrChange.mAttribute.empty() || lrChange.mAttribute == "state")) {
            mPortChanged.run(lrChange.mName, lrChange.mTime);
        }
    }
    for (const ZTSAgentRun& lrRun : acrBatch.mAgents) {
        writeAgent(lrRun);
    }
    if (acrBatch.mPorts) {
        writePorts(*acrBatch.mPorts, aNow);
    }
    if (acrBatch.mLabels) {
        writeLabels(*acrBatch.mLabels);
    }
}

void ZTCBatchTables::writeChange(const ZTSChange& acrChange) {
    mAddChange.run(acrChange.mTime, acrChange.mWhat, acrChange.mName, acrChange.mEvent, acrChange.mAttribute,
                   acrChange.mBefore, acrChange.mAfter);
}

void ZTCBatchTables::writeLoss(const ZTSLoss& acrLoss) {
    mAddLoss.run(acrLoss.mFirst, acrLoss.mLast, acrLoss.mSource, acrLoss.mReason, acrLoss.mEvents,
                 acrLoss.mAtMost);
    mAddLossTotal.run(acrLoss.mSource, acrLoss.mReason, acrLoss.mEvents.value_or(0), acrLoss.mEvents ? 0 : 1);
    mLongestLoss.run(std::max<ZTNanoseconds>(acrLoss.mLast - acrLoss.mFirst, 1));
}

// Figures are read of the last run alone. An agent that is started again and again is not to fill the store.
void ZTCBatchTables::beginAgent(std::int64_t aAgent) {
    mWritten = {};
    mNoFigures.run(aAgent);
    mOldAgents.run(aAgent - sMostAgents);
}

void ZTCBatchTables::writeAgent(const ZTSAgentRun& acrRun) {
    const auto lAgent = *mSetAgent.findNumber(acrRun.mStart, acrRun.mProcess, acrRun.mCame, acrRun.mSeen,
                                              acrRun.mWent, acrRun.mEnd, acrRun.mTaken);
    if (acrRun.mStart != mWritten.mStart || acrRun.mProcess != mWritten.mProcess) {
        beginAgent(lAgent);
    }
    writeFigures(lAgent, acrRun);
    mWritten = acrRun;
}

// Those that are not what they were: a run has dozens, and is written at each fetch.
void ZTCBatchTables::writeFigures(std::int64_t aAgent, const ZTSAgentRun& acrRun) {
    const auto lWrite = [&](const std::string& acrName) {
        const std::uint64_t* const lpValue = sFind(acrRun.mFigures, acrName);
        const std::uint64_t* const lpTold = sFind(acrRun.mTold, acrName);
        if (!sIsAsBefore(lpValue, sFind(mWritten.mFigures, acrName)) ||
            !sIsAsBefore(lpTold, sFind(mWritten.mTold, acrName))) {
            mSetFigure.run(aAgent, acrName, sNumber(lpValue).value_or(sNoValue), sNumber(lpTold));
        }
    };
    for (const auto& [lrName, lValue] : acrRun.mFigures) {
        lWrite(lrName);
    }
    for (const auto& [lrName, lTold] : acrRun.mTold) {
        if (!acrRun.mFigures.contains(lrName)) {
            lWrite(lrName);
        }
    }
}

std::optional<ZTSAgentRun> ZTCBatchTables::loadAgent() {
    std::optional<ZTSAgentRun> lRun;
    std::int64_t lAgent = 0;
    mFindAgent.forEach([&](SQLite::Statement& arRow) {
        lAgent = arRow.getColumn(0).getInt64();
        lRun.emplace();
        lRun->mStart = arRow.getColumn(1).getInt64();
        lRun->mProcess = arRow.getColumn(2).getInt64();
        lRun->mCame = arRow.getColumn(3).getInt64();
        lRun->mSeen = arRow.getColumn(4).getInt64();
        lRun->mWent = arRow.getColumn(5).getInt64();
        lRun->mEnd = arRow.getColumn(6).getString();
        lRun->mTaken = static_cast<std::uint64_t>(arRow.getColumn(7).getInt64());
    });
    if (lRun) {
        mFindFigures.forEach(
            [&](SQLite::Statement& arRow) {
                const std::string lName = arRow.getColumn(0).getString();
                const std::int64_t lValue = arRow.getColumn(1).getInt64();
                if (lValue != sNoValue) {
                    lRun->mFigures[lName] = static_cast<std::uint64_t>(lValue);
                }
                if (!arRow.isColumnNull(2)) {
                    lRun->mTold[lName] = static_cast<std::uint64_t>(arRow.getColumn(2).getInt64());
                }
            },
            lAgent);
    }
    return lRun;
}

ZTSHostPorts ZTCBatchTables::loadPorts(SQLite::Database& arDatabase, ZTNanoseconds aLastWrite) {
    mLastWrite = aLastWrite;
    ZTSHostPorts lPorts;
    SQLite::Statement lLocal(arDatabase, std::string(ZTPortColumns) + " FROM ports WHERE here = 1");
    while (lLocal.executeStep()) {
        lPorts.mLocal.push_back(readLocalPort(lLocal));
    }
    SQLite::Statement lRemote(arDatabase,
                              std::string(ZTRemotePortColumns) + " FROM remote_ports WHERE here = 1");
    while (lRemote.executeStep()) {
        lPorts.mRemote.push_back(readRemotePort(lRemote));
    }
    return lPorts;
}

// That a port came may have been told a little before it stands in the table.
// What is not among them any more keeps its row, and was seen until now; what went before this is the
// first to write, until somebody last wrote.
void ZTCBatchTables::writePorts(const ZTSHostPorts& acrPorts, ZTNanoseconds aNow) {
    const ZTNanoseconds lLast = std::exchange(mLastWrite, 0);
    mNoPorts.run(lLast != 0 ? lLast : aNow);
    mNoRemotes.run(lLast != 0 ? lLast : aNow);
    for (const ZTSLocalPort& lrPort : acrPorts.mLocal) {
        mSetPort.run(lrPort.mNames.mPort.toText(), lrPort.mNames.mNode.toText(), lrPort.mHost, lrPort.mState,
                     lrPort.mSpeed, lrPort.mType, lrPort.mPortId, lrPort.mFabric, aNow, aNow - sCameBefore,
                     lrPort.mSymbolicName, lrPort.mModel, lrPort.mFirmware, lrPort.mDriver);
    }
    for (const ZTSRemotePort& lrPort : acrPorts.mRemote) {
        mSetRemote.run(lrPort.mInitiator.toText(), lrPort.mNames.mPort.toText(), lrPort.mNames.mNode.toText(),
                       lrPort.mState, lrPort.mRoles, lrPort.mPortId, lrPort.mFabric, aNow,
                       lrPort.mDevLossTmo);
    }
}

void ZTCBatchTables::writeLabels(const ZTPortLabels& acrLabels) {
    mNoNames.run();
    for (const auto& [lrPort, lrLabel] : acrLabels) {
        mAddName.run(lrPort.toText(), lrLabel.mName, lrLabel.mArray, lrLabel.mController, lrLabel.mFabric,
                     lrLabel.mSwitchPort);
    }
}
