// What the host tells, as rows of the store and as values.
#pragma once

#include "HostFacts.h"
#include "StoreRows.h"

/// Nothing for zeros: no port.
inline std::string portText(const ZTSWwn& acrPort) {
    return acrPort == ZTSWwn{} ? "" : acrPort.toText();
}
inline std::string portText(const std::optional<ZTSWwn>& acrPort) {
    return acrPort ? acrPort->toText() : "";
}
/// With blanks between.
std::string portsText(const std::vector<ZTSWwn>& acrPorts);

const std::string& sourceText(ZTEPathSource aSource);

inline constexpr char ZTFpinColumns[] =
    "SELECT first, last, id, times, initiator, fabric, descriptor, event, severity, detecting, attached,"
    " modifier, threshold, period, count, ports FROM fpins";
ZTSStoredFpin readStoredFpin(SQLite::Statement& arRow);

inline constexpr char ZTStallColumns[] =
    "SELECT first, iif(over, last, 9223372036854775807), id, over, disk, name, hits, in_flight, kind, last FROM"
    " stalls";
ZTSStoredStall readStoredStall(SQLite::Statement& arRow);

template <>
struct ZTSTimeRows<ZTSStoredFpin> {
    static constexpr auto& Columns = ZTFpinColumns;
    static constexpr char Time[] = "first";
    static constexpr const char* Longest = "longest_fpin";
    static constexpr const char* Open = nullptr;
    static std::uint64_t lastOf(const ZTSStorePlace& acrPlace) { return acrPlace.mLastFpin; }
    static ZTSStoredFpin read(SQLite::Statement& arRow) { return readStoredFpin(arRow); }
    static bool isMeant(const ZTSHistoryFilter&, const ZTSStoredFpin&) { return true; }
};

/// One that is not over has no end.
template <>
struct ZTSTimeRows<ZTSStoredStall> {
    static constexpr auto& Columns = ZTStallColumns;
    static constexpr char Time[] = "first";
    static constexpr const char* Longest = "longest_stall";
    static constexpr const char* Open = "SELECT min(first) FROM stalls WHERE over = 0";
    static std::uint64_t lastOf(const ZTSStorePlace& acrPlace) { return acrPlace.mLastStall; }
    static ZTSStoredStall read(SQLite::Statement& arRow) { return readStoredStall(arRow); }
    static bool isMeant(const ZTSHistoryFilter&, const ZTSStoredStall&) { return true; }
};

/// All of it, in the caller's transaction.
ZTSStoredStorage readStoredStorage(SQLite::Database& arDatabase);

/// What of a host's facts is a text, and what is a time.
inline constexpr std::pair<const char*, std::string ZTSHostFacts::*> ZTFactTexts[] = {
    {"kernel", &ZTSHostFacts::mKernel},
    {"boot", &ZTSHostFacts::mBoot},
    {"multipath_config", &ZTSHostFacts::mMultipathConfig}};
inline constexpr char ZTFactBooted[] = "booted";
ZTSHostFacts readStoredFacts(SQLite::Database& arDatabase);

/// Bytes of a request's text, and of each of its other parts: of what another program put there no more is
/// read.
inline constexpr std::size_t ZTRequestText = 4096;
inline constexpr std::size_t ZTRequestPart = 256;
inline constexpr char ZTRequestColumns[] =
    "SELECT id, time, substr(who, 1, 256), substr(what, 1, 256), substr(subject, 1, 256), substr(text, 1, 4096)"
    " FROM requests WHERE done = 0 ORDER BY id";
ZTSStoreRequest readStoredRequest(SQLite::Statement& arRow);
