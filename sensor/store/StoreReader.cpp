#include "StoreReader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sstream>

#include "StoreRows.h"

namespace {

constexpr std::chrono::milliseconds sSlice(200);  // what is under way then is over before 250 ms
constexpr unsigned int sMostRows = 4096;
constexpr std::size_t sMostBytes = std::size_t{1} << 20;
constexpr unsigned int sLookEvery = 16;  // rows, at the clock

template <class Value>
bool sIsIn(const std::vector<Value>& acrValues, const Value& acrValue) {
    return acrValues.empty() || std::find(acrValues.begin(), acrValues.end(), acrValue) != acrValues.end();
}

SQLite::Database sOpen(const std::string& acrPath) {
    if (access(acrPath.c_str(), F_OK) != 0 && errno == ENOENT) {
        throw ZTCStoreError(ZTEStoreFault::Unusable,
                            "there is no history at " + acrPath + ": vrx-sn makes it when it runs");
    }
    try {
        return openStoreToRead(acrPath);
    } catch (const ZTCStoreError& lrError) {
        if (lrError.getFault() == ZTEStoreFault::ReadOnly) {
            // Who may not write in the folder cannot make what belongs to the file.
            throw ZTCStoreError(ZTEStoreFault::Unusable,
                                acrPath +
                                    " cannot be read without the files -wal and -shm beside it: vrx-sn "
                                    "makes them when it runs");
        }
        throw;
    }
}

}  // namespace

bool ZTSHistoryFilter::takes(const ZTSSeries& acrSeries) const {
    return sIsIn(mKinds, {acrSeries.mCategory, acrSeries.mSubcategory}) &&
           sIsIn(mInitiators, acrSeries.mInitiator.mPort) &&
           (mTargets.empty() || (acrSeries.mRemote && sIsIn(mTargets, *acrSeries.mRemote))) &&
           (mFabric.empty() || mFabric == acrSeries.mFabric);
}

bool ZTSHistoryFilter::takes(const ZTSChange& acrChange) const {
    if (takesAllSeries() || !acrChange.mWhat.ends_with("port")) {
        return true;
    }
    const auto lIsNamed = [&](const ZTSWwn& acrPort) {
        return acrChange.mName.find(acrPort.toText()) != std::string::npos;
    };
    return std::any_of(mInitiators.begin(), mInitiators.end(), lIsNamed) ||
           std::any_of(mTargets.begin(), mTargets.end(), lIsNamed);
}

ZTCStoreSlice::ZTCStoreSlice(ZTCStoreReader& arReader)
    : mrDatabase(arReader.getDatabase()), mEnd(std::chrono::steady_clock::now() + sSlice) {
    storeCall(arReader.getPath(), [&] { mrDatabase.exec("BEGIN"); });
}

ZTCStoreSlice::~ZTCStoreSlice() {
    mrDatabase.tryExec("ROLLBACK");
}

bool ZTCStoreSlice::isEnough(std::size_t aBytes) {
    mBytes += aBytes;
    return ++mRows >= sMostRows || mBytes >= sMostBytes ||
           (mRows % sLookEvery == 0 && std::chrono::steady_clock::now() >= mEnd);
}

ZTCStoreReader::ZTCStoreReader(std::string aPath)
    : mPath(std::move(aPath)),
      mFile(findFile(mPath)),
      mDatabase(sOpen(mPath)),
      mVersion(storeCall(mPath, [&] { return SQLite::Statement(mDatabase, "PRAGMA data_version"); })),
      mOneSeries(storeCall(mPath, [&] {
          return SQLite::Statement(mDatabase, std::string(ZTSeriesColumns) + " WHERE id = ?");
      })) {
    storeCall(mPath, [&] {
        SQLite::Statement lHost(mDatabase, "SELECT value FROM meta WHERE name = 'host'");
        mHost = lHost.executeStep() ? lHost.getColumn(0).getString() : "";
    });
}

std::int64_t ZTCStoreReader::readMeta(const char* apName) {
    return storeCall(mPath, [&] {
        SQLite::Statement lValue(mDatabase, "SELECT value FROM meta WHERE name = ?");
        lValue.bind(1, apName);
        return lValue.executeStep() ? lValue.getColumn(0).getInt64() : 0;
    });
}

ZTSStorePlace ZTCStoreReader::readPlace() {
    return storeCall(mPath, [&] {
        SQLite::Statement lPlace(
            mDatabase,
            "SELECT (SELECT value FROM meta WHERE name = 'store'),"
            " (SELECT value FROM meta WHERE name = 'closed_to'), (SELECT max(id) FROM records),"
            " (SELECT max(id) FROM losses), (SELECT max(id) FROM changes), (SELECT max(id) FROM fpins),"
            " (SELECT max(id) FROM stalls), (SELECT group_concat(id, ' ') FROM stalls WHERE over = 0)");
        lPlace.executeStep();
        std::istringstream lOpenStalls(lPlace.getColumn(7).getString());
        const auto lNumber = [&](int aAt) {
            return static_cast<std::uint64_t>(lPlace.getColumn(aAt).getInt64());
        };
        return ZTSStorePlace{lPlace.getColumn(0).getString(),
                             lNumber(1),
                             lNumber(2),
                             lNumber(3),
                             lNumber(4),
                             lNumber(5),
                             lNumber(6),
                             {std::istream_iterator<std::uint64_t>(lOpenStalls), {}}};
    });
}

const ZTSSeries& ZTCStoreReader::seriesOf(std::int64_t aId) {
    const auto lAt = mSeries.find(aId);
    if (lAt != mSeries.end()) {
        return lAt->second;
    }
    return storeCall(mPath, [&]() -> const ZTSSeries& {
        mOneSeries.bind(1, aId);
        ZTSSeries lSeries = mOneSeries.executeStep() ? readStoredSeries(mOneSeries).mSeries : ZTSSeries{};
        mOneSeries.reset();
        return mSeries.emplace(aId, std::move(lSeries)).first->second;
    });
}

std::vector<ZTSStoredSeries> ZTCStoreReader::readSeries() {
    return storeCall(mPath, [&] {
        SQLite::Statement lRow(mDatabase, std::string(ZTSeriesColumns) + " WHERE id > ? ORDER BY id");
        std::vector<ZTSStoredSeries> lSeries;
        for (bool lIsMore = true; lIsMore;) {
            ZTCStoreSlice lSlice(*this);
            lRow.bind(1, lSeries.empty() ? 0 : lSeries.back().mId);
            while ((lIsMore = lRow.executeStep())) {
                lSeries.push_back(readStoredSeries(lRow));
                if (lSlice.isEnough()) {
                    break;
                }
            }
            lRow.reset();
        }
        return lSeries;
    });
}

std::vector<ZTSStoredPort> ZTCStoreReader::readPorts() {
    const std::string lSince = ", since FROM ports ORDER BY here DESC, length(host), host, port";
    return readAll<ZTSStoredPort>(*this, ZTPortColumns + lSince, [](SQLite::Statement& arRow) {
        return ZTSStoredPort{readLocalPort(arRow), arRow.getColumn(12).getInt() != 0,
                             arRow.getColumn(13).getInt64(), arRow.getColumn(14).getInt64()};
    });
}

std::vector<ZTSStoredRemotePort> ZTCStoreReader::readRemotePorts() {
    const std::string lOrder = " FROM remote_ports ORDER BY initiator, here DESC, port_id, port";
    return readAll<ZTSStoredRemotePort>(*this, ZTRemotePortColumns + lOrder, [](SQLite::Statement& arRow) {
        return ZTSStoredRemotePort{readRemotePort(arRow), arRow.getColumn(8).getInt() != 0,
                                   arRow.getColumn(9).getInt64()};
    });
}

ZTPortLabels ZTCStoreReader::readLabels() {
    ZTPortLabels lLabels;
    for (auto& [lPort, lLabel] : readAll<std::pair<ZTSWwn, ZTSPortLabel>>(
             *this, "SELECT port, name, array, controller, fabric, switch_port FROM names",
             [](SQLite::Statement& arRow) {
                 return std::pair(wwnAt(arRow, 0),
                                  ZTSPortLabel{textAt(arRow, 1), textAt(arRow, 2), textAt(arRow, 3),
                                               textAt(arRow, 4), textAt(arRow, 5)});
             })) {
        lLabels.emplace(lPort, std::move(lLabel));
    }
    return lLabels;
}

std::vector<ZTSStoreSum> ZTCStoreReader::readSums(ZTEStoreAxis aAxis, ZTEStoreBin aBin, std::int64_t aFrom,
                                                  std::int64_t aTo) {
    const std::string lTable = aBin == ZTEStoreBin::Minute ? "minutes" : "hours";
    const std::string lSql =
        "SELECT time, member, events, (SELECT name FROM member WHERE id = member) FROM " + lTable +
        " WHERE axis = ?1 AND (time, member) > (?2, ?3) AND time < ?4"
        " ORDER BY time, member";
    std::vector<ZTSStoreSum> lSums;
    storeCall(mPath, [&] {
        SQLite::Statement lRow(mDatabase, lSql);
        std::int64_t lTime = aFrom - 1;
        std::int64_t lMember = std::numeric_limits<std::int64_t>::max();
        for (bool lIsMore = true; lIsMore;) {
            ZTCStoreSlice lSlice(*this);
            lRow.bind(1, static_cast<int>(aAxis));
            lRow.bind(2, lTime);
            lRow.bind(3, lMember);
            lRow.bind(4, aTo);
            while ((lIsMore = lRow.executeStep())) {
                lTime = lRow.getColumn(0).getInt64();
                lMember = lRow.getColumn(1).getInt64();
                lSums.push_back({lTime, textAt(lRow, 3), numberAt(lRow, 2)});
                if (lSlice.isEnough()) {
                    break;
                }
            }
            lRow.reset();
        }
    });
    return lSums;
}

bool ZTCStoreReader::hasChanged() {
    return storeCall(mPath, [&] {
        mVersion.executeStep();
        const std::int64_t lVersion = mVersion.getColumn(0).getInt64();
        mVersion.reset();
        return std::exchange(mVersionBefore, lVersion) != lVersion;
    });
}

bool ZTCStoreReader::isReplaced() const {
    const FileId lFile = findFile(mPath);
    return !lFile || lFile != mFile;
}

ZTCStoreReader::FileId ZTCStoreReader::findFile(const std::string& acrPath) {
    struct stat lStatus {};
    return stat(acrPath.c_str(), &lStatus) == 0 ? FileId({lStatus.st_dev, lStatus.st_ino}) : std::nullopt;
}
