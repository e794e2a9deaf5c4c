// What has become of incidents and is not in the store yet.
#pragma once

#include <functional>
#include <map>
#include <tuple>

#include "Incident.h"

/// Of each the newest, within a limit. Whoever has it has its lock, too.
class ZTCIncidentBacklog {
  public:
    explicit ZTCIncidentBacklog(std::size_t aLimit) : mLimit(aLimit) {}

    /// Whether there is something to store now: how far incidents were looked for waits for something else.
    /// What finds no room is lost, and counted; from then on it is not told how far they were looked for, so
    /// that the next start looks again.
    bool take(ZTSIncidentNews aNews) noexcept;
    std::size_t getBytes() const { return mBytes; }
    std::uint64_t getLost() const { return mLost; }
    /// All of it. Throws std::bad_alloc: nothing has changed.
    ZTSIncidentNews detach();

  private:
    using BaselineKey = std::tuple<std::int64_t, std::string, ZTSWwn>;

    template <class Rows, class Key, class Row>
    void put(Rows& arRows, const Key& acrKey, Row&& arRow) noexcept;

    const std::size_t mLimit;
    std::map<std::uint64_t, ZTSIncident> mIncidents;  // by id
    std::map<BaselineKey, ZTSBaseline, std::less<>> mBaselines;
    ZTNanoseconds mTo = 0;
    std::size_t mBytes = 0;
    std::uint64_t mLost = 0;
    bool mMissesSome = false;
};
