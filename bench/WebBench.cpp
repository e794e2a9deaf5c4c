// What the timeline of a large history takes to be answered, beside a bare loop over the rows that an answer
// of that span is made from.
#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "Bench.h"
#include "BenchAgent.h"
#include "LargeStore.h"
#include "StoreFile.h"
#include "WebRoutes.h"

namespace {

constexpr std::uint64_t sRecords = 10'000'000;
constexpr ZTNanoseconds sEnd = 1'800'000'000 * ZTSecond;
constexpr const char* sAxes[] = {"initiator", "target", "kind", "fabric", "host"};

struct Span {
    const char* mpName;
    const char* mpSince;
    const char* mpRows;  // what an answer by targets is made from
};
constexpr Span sSpans[] = {
    {"a month", "2026-12-16T08:00:00Z",
     "SELECT time, member, events FROM hours WHERE axis = 3 AND time >= 1797408000"},
    {"a day", "2027-01-14T08:00:00Z",
     "SELECT time, member, events FROM minutes WHERE axis = 3 AND time >= 1799913600"},
    {"an hour", "2027-01-15T07:00:00Z",
     "SELECT first, series, occurrences FROM records WHERE first >= 1799996400000000000"}};

ZTSBenchLoad sFloor(const std::string& acrPath, const Span& acrSpan) {
    const auto lpStore = std::make_shared<SQLite::Database>(openStoreToRead(acrPath));
    const auto lpRows = std::make_shared<SQLite::Statement>(*lpStore, acrSpan.mpRows);
    return {.mName = "its rows by target",
            .mMake =
                [=] {
                    return [lpStore, lpRows](unsigned int) {
                        std::int64_t lSum = 0;
                        while (lpRows->executeStep()) {
                            lSum += lpRows->getColumn(2).getInt64();
                        }
                        lpRows->reset();
                        ztbench::keep(lSum);
                    };
                },
            .mCalls = 1};
}

ZTSBenchLoad sTimeline(const std::string& acrPath, const std::string& acrName, const Span& acrSpan,
                       std::vector<ZTSWebParameter> aMore) {
    const auto lpHistory = std::make_shared<ZTCWebHistory>(acrPath);
    const auto lpBytes = std::make_shared<std::size_t>(0);
    aMore.insert(aMore.end(), {{"since", acrSpan.mpSince}, {"until", "2027-01-15T08:00:00Z"}});
    return {
        .mName = acrName,
        .mMake =
            [=] {
                return [=](unsigned int) {
                    const ZTSWebAnswer lAnswer = answerTimeline(*lpHistory, {"/api/v1/timeline", aMore, {}});
                    *lpBytes = lAnswer.mpBody->size();
                };
            },
        .mCalls = 1,
        .mMore = [=] { return fmt::format("{} KiB, wanted at most 50 ms", *lpBytes / 1024); }};
}

}  // namespace

void ztbench::web() {
    const std::string lPath = logFile("web.db");
    makeLargeStore(lPath, sRecords, sEnd);
    for (const Span& lrSpan : sSpans) {
        const ZTCBenchGroup lGroup(fmt::format("timeline of {} over {} records", lrSpan.mpName, sRecords),
                                   sFloor(lPath, lrSpan));
        for (const char* const lpAxis : sAxes) {
            lGroup.measure(sTimeline(lPath, fmt::format("by {}", lpAxis), lrSpan, {{"by", lpAxis}}));
        }
        lGroup.measure(sTimeline(lPath, "a port's lane, by target", lrSpan,
                                 {{"by", "target"}, {"initiator", largeStoreInitiator()}}));
    }
    for (const char* const lpEnd : {"", "-wal", "-shm", "-lock"}) {
        std::filesystem::remove(lPath + lpEnd);
    }
}
