#include "FcStatistics.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace {

#define ZT_KINDS(name)                                                                                     \
    name "{kind=\"queue_full\"}", name "{kind=\"device_busy\"}", name "{kind=\"check_condition\"}",        \
        name "{kind=\"lun_reset\"}", name "{kind=\"target_reset\"}", name "{kind=\"queue_depth_change\"}", \
        name "{kind=\"fcp_read_check_error\"}"

constexpr const char* sFigures[] = {
    ZT_KINDS("told_total"),
    ZT_KINDS("beyond_total"),
    "timeouts_total",
    "unreached_total",
    "failures_total",
    "lost_total{reason=\"full\"}",
    "lost_total{reason=\"unknown_host\"}",
    "lost_total{reason=\"no_memory\"}",
    "lost_total{reason=\"busy\"}",
    "netlink_lost_total",
    "way{name=\"bpf\"}",
    "way{name=\"perf\"}",
    "fpins_total",
    "fpins_malformed_total",
    "no_row_total",
};
static_assert(std::size(sFigures) == ZTFF_Count);

// Short names: a port and a LUN such as 16640, as arrays number their 256th, are to fit behind them.
struct Family {
    const char* mpName;
    const char* mpLabel;  // of its number
    const char* mpPrefix;
    int mBase;
};
constexpr Family sFamilies[] = {
    {"late", "lun", "", 10},      {"gone", "lun", "", 10},      {"failed", "lun", "", 10},
    {"beyond", "lun", "", 10},    {"fpin_li", "event", "", 10}, {"fpin_dn", "reason", "", 10},
    {"fpin_pc", "event", "", 10}, {"fpin_cn", "event", "", 10}, {"fpin_other", "tag", "0x", 16},
};
static_assert(std::size(sFamilies) == std::size_t{ZTFL_Count} + ZTFK_Count);

// What a fabric sends names these rows: they are not to take those of the LUNs.
constexpr unsigned int sMaxFpinRows = ZTCFcStatisticsFile::MaxRows / 2;

constexpr std::uint64_t sAny = UINT64_MAX;  // the number of a row for those that are too long

// False: it does not fit.
bool sWriteName(char (&arName)[ZTSStatisticsRow::NameSize], unsigned int aFamily, std::uint32_t aHost,
                std::uint64_t aPort, std::uint64_t aNumber) {
    const Family& lrFamily = sFamilies[aFamily];
    char lPort[32] = "";
    if (aPort != 0) {
        snprintf(lPort, sizeof lPort, ",port=\"%016llx\"", static_cast<unsigned long long>(aPort));
    }
    char lNumber[32] = "*";
    if (aNumber != sAny) {
        *std::to_chars(lNumber, std::end(lNumber) - 1, aNumber, lrFamily.mBase).ptr = '\0';
    }
    return snprintf(arName, sizeof arName, "%s{host=\"%u\"%s,%s=\"%s%s\"}", lrFamily.mpName, aHost, lPort,
                    lrFamily.mpLabel, aNumber != sAny ? lrFamily.mpPrefix : "", lNumber) < int{sizeof arName};
}

}  // namespace

ZTCFcStatistics::ZTCFcStatistics(const std::string& acrDirectory, const std::string& acrLog)
    : mFile(acrDirectory, acrLog) {
    for (unsigned int lFigure = 0; lFigure < ZTFF_Count; ++lFigure) {
        snprintf(mFile.row(lFigure).mName, ZTSStatisticsRow::NameSize, "%s", sFigures[lFigure]);
    }
    mFile.setRowCount(ZTFF_Count);
    mFile.show();
}

void ZTCFcStatistics::count(ZTEFcFigure aFigure, std::uint64_t aBy) {
    mFile.row(aFigure).mValue.fetch_add(aBy, std::memory_order_relaxed);
}

void ZTCFcStatistics::set(ZTEFcFigure aFigure, std::uint64_t aValue) {
    mFile.row(aFigure).mValue.store(aValue, std::memory_order_relaxed);
}

std::uint64_t ZTCFcStatistics::get(ZTEFcFigure aFigure) {
    return mFile.row(aFigure).mValue.load(std::memory_order_relaxed);
}

std::uint64_t ZTCFcStatistics::countFor(ZTEFcLunFigure aFigure, std::uint32_t aHost, std::uint64_t aPort,
                                        std::uint64_t aLun, std::uint64_t aBy) {
    return countFor(Key{aPort, aLun, aHost, aFigure}, aBy);
}

std::uint64_t ZTCFcStatistics::countFor(ZTEFpinKind aKind, std::uint32_t aHost, std::uint64_t aPort,
                                        std::uint32_t aNumber) {
    return countFor(Key{aPort, aNumber, aHost, unsigned{ZTFL_Count} + aKind}, 1);
}

std::uint64_t ZTCFcStatistics::countFor(const Key& acrKey, std::uint64_t aBy) {
    const ZTCFcGuard lGuard(mLock);
    ZTSStatisticsRow* const lpRow = find(acrKey);
    if (lpRow == nullptr) {
        count(ZTFF_NoRow, aBy);
        return 0;
    }
    return lpRow->mValue.fetch_add(aBy, std::memory_order_relaxed) + aBy;
}

// Null: there is none, and there is no room for it.
ZTSStatisticsRow* ZTCFcStatistics::find(Key aKey) {
    const auto lKnown = mRows.find(aKey);
    if (lKnown != mRows.end()) {
        return lKnown->second;
    }
    char lName[ZTSStatisticsRow::NameSize];
    if (!sWriteName(lName, aKey.mFamily, aKey.mHost, aKey.mPort, aKey.mNumber)) {
        const bool lIsAny = std::exchange(aKey.mNumber, sAny) == sAny;
        return lIsAny ? nullptr : find(aKey);
    }
    const bool lIsFpin = aKey.mFamily >= ZTFL_Count;
    if (mRowCount == ZTCFcStatisticsFile::MaxRows || (lIsFpin && mFpinRowCount == sMaxFpinRows)) {
        return nullptr;
    }
    ZTSStatisticsRow& lrRow = mFile.row(mRowCount);
    try {
        mRows.emplace(aKey, &lrRow);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    snprintf(lrRow.mName, sizeof lrRow.mName, "%s", lName);
    mFpinRowCount += lIsFpin ? 1 : 0;
    mFile.setRowCount(++mRowCount);
    return &lrRow;
}

std::size_t ZTCFcStatistics::Hash::operator()(const Key& acrKey) const {
    constexpr std::uint64_t lSpread = 0x9e3779b97f4a7c15;  // 2^64 by the golden ratio
    std::uint64_t lHash = acrKey.mFamily;
    for (const std::uint64_t lPart : {acrKey.mPort, acrKey.mNumber, std::uint64_t{acrKey.mHost}}) {
        lHash = (lHash ^ lPart) * lSpread;
        lHash ^= lHash >> 32;
    }
    return static_cast<std::size_t>(lHash);
}
