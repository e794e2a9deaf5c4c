// The live view: of each initiator, kind and remote port how many events, how fast they come, when the first
// and the last one came.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Shows.h"
#include "Terminal.h"

/// On a terminal it is redrawn in place; at the end it is printed. It keeps sums, no records: its
/// size is that of what is seen.
class ZTCWatchView : public ZTCShow {
  public:
    explicit ZTCWatchView(bool aInUtc);

    void add(const ZTSFetched& acrFetched) override;
    void tell(const std::string& acrText, bool aIsThere) override;
    void draw() override;
    void finish() override;

    /// The lines of it. aIsLive: with how fast events come.
    std::string toText(bool aIsLive) const;

  private:
    using Duration = ZTSFetched::Time::duration;
    static constexpr std::size_t MaxRows = 10000;

    struct Key {
        ZTSPortNames mInitiator;
        std::string mKind;
        std::string mRemote;
        auto operator<=>(const Key&) const = default;
    };
    struct Sums {
        std::uint64_t mEvents = 0;
        std::uint64_t mNewEvents = 0;  ///< of what mRecent counts
        ZTSSensorTime mFirst;
        ZTSSensorTime mLast;
    };
    // What fetches brought that came close together.
    struct Brought {
        ZTSFetched::Time mBegin;  ///< when the first came
        ZTSFetched::Time mEnd;    ///< and the last
        std::vector<std::pair<Sums*, std::uint64_t>> mEvents;
    };

    Sums& sumsOf(Key aKey);
    void beginFetch(ZTSFetched::Time aTime);
    std::string rateText(const Sums& acrSums) const;

    const bool mInUtc;
    std::unique_ptr<ZTCScreen> mScreen;
    std::string mState = "waiting for an agent";
    std::map<Key, Sums> mSums;
    std::uint64_t mEvents = 0;
    std::uint64_t mRecords = 0;
    std::optional<ZTSFetched::Time> mTime;  ///< when something was fetched last
    /// The first tells no more than since when the others count: nobody knows how long it took to collect.
    std::deque<Brought> mRecent;
};
