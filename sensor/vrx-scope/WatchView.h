// The live view: of each initiator, kind and remote port how many events, how fast they come, when the last
// one came.
#pragma once

#include <map>
#include <memory>

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

  private:
    static constexpr std::size_t MaxRows = 10000;

    struct Key {
        ZTSPortNames mInitiator;
        std::string mKind;
        std::string mRemote;
        auto operator<=>(const Key&) const = default;
    };
    struct Sums {
        std::uint64_t mEvents = 0;
        std::uint64_t mNewEvents = 0;  ///< in what was fetched last
        ZTSSensorTime mLast;
    };

    Sums& sumsOf(Key aKey);
    // aIsWhole: rates are those of the whole time, not of what was fetched last.
    std::string toText(bool aIsWhole) const;

    const bool mInUtc;
    std::unique_ptr<ZTCScreen> mScreen;
    std::string mState = "waiting for an agent";
    std::map<Key, Sums> mSums;
    std::uint64_t mEvents = 0;
    std::uint64_t mRecords = 0;
    std::optional<ZTSFetched::Time> mBegin;   ///< when something was fetched first
    std::optional<ZTSFetched::Time> mBefore;  ///< the time before
    std::optional<ZTSFetched::Time> mTime;    ///< and last
};
