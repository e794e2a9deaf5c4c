// What it costs to write the history, beside a bare loop of prepared inserts into the same tables, with the
// same settings and as many rows in a transaction; and what a large one takes of time and memory to be read.
#include <SQLiteCpp/SQLiteCpp.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <thread>

#include "Bench.h"
#include "BenchAgent.h"
#include "BenchProcess.h"
#include "RecordScan.h"
#include "StoreWriter.h"

namespace {

constexpr unsigned int sBatch = 1000;
constexpr unsigned int sBatches = 20;  // in a turn
constexpr unsigned int sSeries = 128;  // of four kinds, two ports and sixteen remote ones
constexpr ZTNanoseconds sBegin = 1'800'000'000 * ZTSecond;

constexpr std::uint64_t sMany = 10'000'000;
constexpr std::int64_t sHour = 3600;
constexpr std::int64_t sMonth = 30 * 24 * sHour;
constexpr unsigned int sLooks = 15;

// Rows that follow each other in an even pace: only ids and times are new in each batch.
class Rows {
  public:
    Rows(unsigned int aRows, ZTNanoseconds aStep, std::uint64_t aFirst = 1) : mStep(aStep), mNextId(aFirst) {
        for (unsigned int lRow = 0; lRow < aRows; ++lRow) {
            ZTSStoreRow lNew;
            lNew.mRecord.mOccurrences = lNew.mAdded = 1;
            lNew.mRecord.mData.assign(24, static_cast<std::uint8_t>(lRow));
            ZTSSeries& lrSeries = lNew.mRecord.mSeries;
            const unsigned int lSeries = lRow * 37 % sSeries;
            lrSeries.mCategory = 1;
            lrSeries.mSubcategory = static_cast<std::uint8_t>(1 + lSeries % 4);
            lrSeries.mInitiator.mPort.mBytes[7] = static_cast<std::uint8_t>(lSeries / 4 % 2);
            lrSeries.mFabric.push_back(lSeries / 4 % 2 == 0 ? 'A' : 'B');
            lrSeries.mTarget.emplace();
            lrSeries.mTarget->mPort.mBytes[6] = static_cast<std::uint8_t>(lSeries / 8);
            lrSeries.mRemote = lrSeries.mTarget->mPort;
            mBatch.mRows.push_back(std::move(lNew));
        }
    }

    const ZTSStoreBatch& next() {
        for (ZTSStoreRow& lrRow : mBatch.mRows) {
            lrRow.mId = mNextId++;
            lrRow.mRecord.mFirst = lrRow.mRecord.mLast =
                sBegin + static_cast<ZTNanoseconds>(lrRow.mId) * mStep;
        }
        mBatch.mClosedTo = mNextId - 1;
        return mBatch;
    }

  private:
    const ZTNanoseconds mStep;
    std::uint64_t mNextId;
    ZTSStoreBatch mBatch;
};

std::string sFile(const char* apName) {
    const std::string lPath = ztbench::logFile(apName);
    for (const char* const lpEnd : {"", "-wal", "-shm", "-lock"}) {
        std::filesystem::remove(fmt::format("{}{}", lPath, lpEnd));
    }
    return lPath;
}

// ---- Writing ----

// A file with the same tables, without a sum in each page, and what is the least that fills its records.
class Bare {
  public:
    explicit Bare(const std::string& acrPath)
        : mDatabase(acrPath, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE) {
        std::string lTables;
        {
            const std::string lModel = sFile("model.db");
            ZTCStoreWriter({.mPath = lModel, .mHostName = ""}).finish();
            SQLite::Database lStore = openStoreToRead(lModel);
            SQLite::Statement lTable(lStore,
                                     "SELECT sql FROM sqlite_schema WHERE tbl_name = 'records' AND sql "
                                     "IS NOT NULL ORDER BY type DESC");
            while (lTable.executeStep()) {
                lTables += fmt::format("{};", lTable.getColumn(0).getString());
            }
        }
        mDatabase.exec(
            "PRAGMA page_size = 4096; PRAGMA auto_vacuum = INCREMENTAL; PRAGMA journal_mode = WAL;"
            "PRAGMA synchronous = NORMAL; PRAGMA wal_autocheckpoint = 0; PRAGMA cache_spill = OFF;"
            "PRAGMA cache_size = -4096; PRAGMA journal_size_limit = 1048576");
        mDatabase.exec(lTables);
        mpInsert =
            std::make_unique<SQLite::Statement>(mDatabase, "INSERT INTO records VALUES (?, ?, ?, ?, ?, ?)");
    }

    void write(const ZTSStoreBatch& acrBatch) {
        mDatabase.exec("BEGIN IMMEDIATE");
        for (const ZTSStoreRow& lrRow : acrBatch.mRows) {
            const ZTSRecord& lrRecord = lrRow.mRecord;
            mpInsert->bind(1, static_cast<std::int64_t>(lrRow.mId));
            mpInsert->bind(2, static_cast<std::int64_t>(1 + lrRow.mId * 37 % sSeries));
            mpInsert->bind(3, lrRecord.mFirst);
            mpInsert->bind(4, lrRecord.mLast);
            mpInsert->bind(5, static_cast<std::int64_t>(lrRecord.mOccurrences));
            mpInsert->bindNoCopy(6, lrRecord.mData.data(), static_cast<int>(lrRecord.mData.size()));
            mpInsert->exec();
            mpInsert->reset();
        }
        mDatabase.exec("COMMIT");
    }
    void checkpoint() {
        sqlite3_wal_checkpoint_v2(mDatabase.getHandle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr,
                                  nullptr);
    }

  private:
    SQLite::Database mDatabase;
    std::unique_ptr<SQLite::Statement> mpInsert;
};

// Checkpoints are made between turns: vrx-sn has a thread for them.
template <class Store>
ZTSBenchLoad sWriting(const char* apName, const std::shared_ptr<Store>& arpStore, ZTNanoseconds aStep) {
    const auto lpRows = std::make_shared<Rows>(sBatch, aStep);
    return {.mName = apName,
            .mMake = [=] { return [=](unsigned int) { arpStore->write(lpRows->next()); }; },
            .mPrepare = [=] { arpStore->checkpoint(); },
            .mCalls = sBatches,
            .mEach = sBatch};
}

void sMeasureWriting() {
    struct Pace {
        const char* mpName;
        ZTNanoseconds mStep;
    };
    for (const Pace& lrPace : {Pace{"5,000 a second", ZTSecond / 5000}, Pace{"20 a second", ZTSecond / 20}}) {
        const auto lpBare = std::make_shared<Bare>(sFile("bare.db"));
        const ZTCBenchGroup lGroup(fmt::format("store, records of {}", lrPace.mpName),
                                   sWriting("inserts into records", lpBare, lrPace.mStep));
        const auto lpStore = std::make_shared<ZTCStoreWriter>(
            ZTSStoreOptions{.mPath = sFile("store.db"), .mHostName = "bench"});
        lGroup.measure(sWriting("written, wanted at most 1.5", lpStore, lrPace.mStep));
    }
}

// ---- A large store ----

void sFill(const std::string& acrPath) {
    ZTCStoreWriter lWriter({.mPath = acrPath, .mHostName = "bench"});
    Rows lRows(20000, sMonth * ZTSecond / static_cast<ZTNanoseconds>(sMany));
    for (std::uint64_t lRow = 0; lRow < sMany; lRow += 20000) {
        lWriter.write(lRows.next());
        lWriter.checkpoint();
    }
    lWriter.finish();
}

// Of this process, what is its own.
double sResidentMegabytes() {
    unsigned long lSize = 0, lResident = 0, lShared = 0;
    FILE* const lpFile = fopen("/proc/self/statm", "re");
    if (lpFile != nullptr) {
        static_cast<void>(fscanf(lpFile, "%lu %lu %lu", &lSize, &lResident, &lShared));
        fclose(lpFile);
    }
    return static_cast<double>(lResident - lShared) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

// What the file has in the system's cache is forgotten.
void sForgetCached(const std::string& acrPath) {
    const int lFile = open(acrPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (lFile >= 0) {
        fdatasync(lFile);
        posix_fadvise(lFile, 0, 0, POSIX_FADV_DONTNEED);
        close(lFile);
    }
}

void sLook(const char* apName, const std::string& acrPath, bool aIsCold,
           const std::function<std::size_t(ZTCStoreReader&, std::int64_t)>& acrLook) {
    ZTSBenchRow lRow{
        .mName = fmt::format("store of {} records: {}{}", sMany, apName, aIsCold ? ", cold cache" : "")};
    std::mt19937 lRandom(1);
    std::size_t lFound = 0;
    for (unsigned int lLook = 0; lLook < sLooks; ++lLook) {
        if (aIsCold) {
            sForgetCached(acrPath);
        }
        const std::int64_t lHour = sBegin / ZTSecond + lRandom() % (sMonth / sHour - 1) * sHour;
        const auto lBefore = std::chrono::steady_clock::now();
        ZTCStoreReader lReader(acrPath);
        lFound = acrLook(lReader, lHour);
        const std::chrono::duration<double, std::nano> lTime = std::chrono::steady_clock::now() - lBefore;
        lRow.mTimes.push_back(lTime.count());
    }
    lRow.mMore = fmt::format("{:.1f} ms, {} rows{}", ztbench::quantile(lRow.mTimes, 0.5) / 1e6, lFound,
                             aIsCold ? "" : ", wanted at most 50 ms");
    lRow.print();
}

std::size_t sReadHour(ZTCStoreReader& arReader, std::int64_t aHour) {
    ZTSHistoryFilter lFilter;
    lFilter.mSince = aHour * ZTSecond;
    lFilter.mUntil = (aHour + sHour) * ZTSecond - 1;
    ZTCRecordScan lScan(arReader, lFilter, arReader.readPlace());
    std::size_t lRows = 0;
    for (bool lIsMore = true; lIsMore;) {
        std::vector<ZTSStoredRecord> lRecords;
        lIsMore = lScan.read(lRecords);
        lRows += lRecords.size();
    }
    return lRows;
}

std::size_t sSumMonth(ZTCStoreReader& arReader, std::int64_t /*aHour*/) {
    constexpr std::int64_t lFrom = sBegin / ZTSecond / sHour * sHour;
    return arReader.readSums(ZTEStoreAxis::Kind, ZTEStoreBin::Hour, lFrom, lFrom + sMonth + sHour).size();
}

// In a process of its own: memory that this one has had would hide what it takes.
void sInChild(const std::function<void()>& acrWork) {
    fflush(nullptr);
    const pid_t lChild = fork();
    if (lChild == 0) {
        acrWork();
        fflush(nullptr);
        _exit(0);
    }
    waitpid(lChild, nullptr, 0);
}

void sShowMemory(const std::string& acrPath) {
    ZTCStoreWriter lWriter({.mPath = acrPath, .mHostName = "bench"});
    Rows lRows(sBatch, ZTSecond / 5000, lWriter.getStart().mNextId);
    for (unsigned int lBatch = 0; lBatch < sBatches; ++lBatch) {
        lWriter.write(lRows.next());
        lWriter.retire(sBegin);
        lWriter.checkpoint();
    }
    ZTSBenchRow{.mName = fmt::format("store of {} records: memory of who writes it", sMany),
                .mMore = fmt::format("{:.1f} MB, wanted at most 40; the file has {} MB", sResidentMegabytes(),
                                     lWriter.getSize().mBytes >> 20)}
        .print();
}

// The program with its threads, in front of no agent and no host.
void sShowProgram(const std::string& acrPath) {
    using namespace std::chrono_literals;
    const std::string lFolder = ztbench::makeFolder("/dev/shm");
    double lResident = 0;
    {
        const ZTCBenchProcess lSensor(
            {ZT_VRX_SN, "--dir", lFolder, "--store", acrPath, "--root", lFolder, "--keep-days", "36500"}, {});
        std::this_thread::sleep_for(ztbench::isFull() ? 60s : 10s);
        lResident = lSensor.getResident().first;
    }
    std::filesystem::remove_all(lFolder);
    ZTSBenchRow{.mName = fmt::format("store of {} records: memory of vrx-sn over it", sMany),
                .mMore = fmt::format("{:.1f} MiB resident, wanted at most 40", lResident)}
        .print();
}

void sMeasureLarge() {
    const std::string lPath = sFile("large.db");
    const auto lBefore = std::chrono::steady_clock::now();
    sInChild([&] { sFill(lPath); });
    const std::chrono::duration<double> lTime = std::chrono::steady_clock::now() - lBefore;
    fmt::print("\n");
    ZTSBenchRow{.mName = fmt::format("store of {} records: written, with its checkpoints", sMany),
                .mTimes = {lTime.count() * 1e9 / static_cast<double>(sMany)}}
        .print();
    sInChild([&] { sShowMemory(lPath); });
    sShowProgram(lPath);
    for (const bool lIsCold : {false, true}) {
        sLook("history of an hour", lPath, lIsCold, sReadHour);
        sLook("sums of a month by hour", lPath, lIsCold, sSumMonth);
    }
    sFile("large.db");
}

}  // namespace

void ztbench::store() {
    sMeasureLarge();
    sMeasureWriting();
}
