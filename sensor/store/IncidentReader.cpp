// Incidents, as they are read.
#include <algorithm>
#include <limits>
#include <optional>

#include "IncidentRows.h"

namespace {

constexpr std::int64_t sBehindAll = std::numeric_limits<std::int64_t>::max();

void sReadEvidence(SQLite::Statement& arFind, ZTSIncident& arIncident) {
    arFind.bind(1, static_cast<std::int64_t>(arIncident.mId));
    while (arFind.executeStep()) {
        arIncident.mEvidence.push_back(readStoredEvidence(arFind));
    }
    arFind.reset();
}

std::string sEvidenceSql() {
    return std::string(ZTEvidenceColumns) + " WHERE incident = ?";
}

// The smallest ids of what is read, a little more than so many at most; 0: all.
class ZTCSmallest {
  public:
    explicit ZTCSmallest(std::size_t aLimit) : mLimit(aLimit != 0 ? std::min(aLimit, Most) : Most) {}

    void add(std::uint64_t aId) {
        mIds.push_back(aId);
        if (mIds.size() >= 2 * mLimit) {
            cut();
        }
    }
    std::vector<std::uint64_t> take() {
        cut();
        return std::move(mIds);
    }

  private:
    // Intervals of one series may overlap.
    void cut() {
        std::ranges::sort(mIds);
        mIds.erase(std::unique(mIds.begin(), mIds.end()), mIds.end());
        mIds.resize(std::min(mIds.size(), mLimit));
    }

    static constexpr std::size_t Most = std::numeric_limits<std::size_t>::max() / 2;
    const std::size_t mLimit;
    std::vector<std::uint64_t> mIds;
};

// The records of one row of evidence after the other, in transactions that are soon over.
class ZTCEvidenceScan {
  public:
    explicit ZTCEvidenceScan(ZTCStoreReader& arReader)
        : mrReader(arReader),
          mSeries(
              arReader.getDatabase(),
              "SELECT id FROM series WHERE remote = ? AND initiator = ? AND category = ? AND subcategory = ? "
              "AND fabric = ?"),
          mRecords(
              arReader.getDatabase(),
              "SELECT first, id FROM records INDEXED BY records_by_series WHERE series = ?4 AND first >= ?1 "
              "AND first <= ?3 AND (first > ?1 OR id > ?2) ORDER BY first, id") {
        mSlice.emplace(mrReader);
    }

    void read(const ZTSIncidentEvidence& acrEvidence, ZTCSmallest& arIds) {
        for (const std::int64_t lSeries : findSeries(acrEvidence)) {
            mRecords.bind(1, acrEvidence.mFirst);
            mRecords.bind(2, 0);
            mRecords.bind(3, acrEvidence.mLast);
            mRecords.bind(4, lSeries);
            while (readSome(arIds)) {
            }
        }
        goOn();
    }

  private:
    // Several registered targets may have one port.
    std::vector<std::int64_t> findSeries(const ZTSIncidentEvidence& acrEvidence) {
        mSeries.bind(1, portText(acrEvidence.mRemote));
        mSeries.bind(2, portText(acrEvidence.mInitiator));
        mSeries.bind(3, acrEvidence.mCategory);
        mSeries.bind(4, acrEvidence.mSubcategory);
        mSeries.bind(5, acrEvidence.mFabric);
        std::vector<std::int64_t> lSeries;
        while (mSeries.executeStep()) {
            lSeries.push_back(mSeries.getColumn(0).getInt64());
        }
        mSeries.reset();
        return lSeries;
    }

    // True: there is more.
    bool readSome(ZTCSmallest& arIds) {
        bool lIsMore = false;
        ZTNanoseconds lFirst = 0;
        std::uint64_t lId = 0;
        for (bool lIsEnough = false; !lIsEnough && (lIsMore = mRecords.executeStep());) {
            lFirst = mRecords.getColumn(0).getInt64();
            lId = numberAt(mRecords, 1);
            arIds.add(lId);
            lIsEnough = mSlice->isEnough();
        }
        mRecords.reset();
        if (lIsMore) {
            mRecords.bind(1, lFirst);
            mRecords.bind(2, static_cast<std::int64_t>(lId));
            mSlice.reset();
            mSlice.emplace(mrReader);
        }
        return lIsMore;
    }

    void goOn() {
        if (mSlice->isEnough()) {
            mSlice.reset();
            mSlice.emplace(mrReader);
        }
    }

    ZTCStoreReader& mrReader;
    SQLite::Statement mSeries, mRecords;
    std::optional<ZTCStoreSlice> mSlice;
};

}  // namespace

std::vector<ZTSIncident> ZTCStoreReader::readIncidents(ZTNanoseconds aSince, std::size_t aLimit) {
    return storeCall(mPath, [&] {
        SQLite::Statement lRow(mDatabase,
                               std::string(ZTIncidentColumns) +
                                   " WHERE merged IS NULL AND (closed IS NULL OR closed >= ?1) AND "
                                   "opened <= ?2 AND (opened < ?2 OR id < ?3) ORDER BY opened DESC, id DESC");
        SQLite::Statement lEvidence(mDatabase, sEvidenceSql());
        std::vector<ZTSIncident> lIncidents;
        ZTNanoseconds lOpened = sBehindAll;
        std::int64_t lId = sBehindAll;
        for (bool lIsMore = true; lIsMore;) {
            ZTCStoreSlice lSlice(*this);
            lRow.bind(1, aSince);
            lRow.bind(2, lOpened);
            lRow.bind(3, lId);
            while ((lIsMore = (aLimit == 0 || lIncidents.size() < aLimit) && lRow.executeStep())) {
                ZTSIncident& lrIncident = lIncidents.emplace_back(readStoredIncident(lRow));
                lOpened = lrIncident.mOpened;
                lId = static_cast<std::int64_t>(lrIncident.mId);
                sReadEvidence(lEvidence, lrIncident);
                if (lSlice.isEnough(lrIncident.mEvidence.size() * sizeof(ZTSIncidentEvidence))) {
                    break;
                }
            }
            lRow.reset();
        }
        return lIncidents;
    });
}

std::optional<ZTSIncident> ZTCStoreReader::readIncident(std::uint64_t aId) {
    return storeCall(mPath, [&] {
        const ZTCStoreSlice lSlice(*this);
        SQLite::Statement lRow(mDatabase, std::string(ZTIncidentColumns) + " WHERE id = ?");
        SQLite::Statement lEvidence(mDatabase, sEvidenceSql());
        std::optional<ZTSIncident> lIncident;
        lRow.bind(1, static_cast<std::int64_t>(aId));
        if (lRow.executeStep()) {
            sReadEvidence(lEvidence, lIncident.emplace(readStoredIncident(lRow)));
        }
        return lIncident;
    });
}

std::vector<std::uint64_t> ZTCStoreReader::readEvidence(const ZTSIncident& acrIncident, std::size_t aLimit) {
    return storeCall(mPath, [&] {
        ZTCEvidenceScan lScan(*this);
        ZTCSmallest lIds(aLimit);
        for (const ZTSIncidentEvidence& lrEvidence : acrIncident.mEvidence) {
            lScan.read(lrEvidence, lIds);
        }
        return lIds.take();
    });
}
