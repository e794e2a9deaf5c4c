// The storage as the host shows it, what has become of it, and how many paths its maps have had.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Record.h"
#include "Storage.h"

/// One thread. Throws std::bad_alloc alone: what was told then is to be told again.
class ZTCStorageBook {
  public:
    /// The most paths of so many maps are remembered; of more, of those that are there.
    static constexpr std::size_t MostTotals = 16384;

    /// What the store had: what the first look finds is compared with that, however late it comes. Nothing:
    /// it had none, and what the first look finds has not come just now. And maps that had gone, whose totals
    /// still count.
    void setStart(std::optional<ZTSHostStorage> aStorage, const std::vector<ZTSMap>& acrGone = {});
    /// All of it, as it is now. A map whose paths were more once has still that total.
    void see(ZTSHostStorage aStorage, ZTNanoseconds aTime);

    /// The paths that these maps have now, by their names, are all that they are to have. A map with disks
    /// that cannot be used has a total that is less than its disks, by which that is known at the next start.
    void accept(const std::vector<std::string>& acrMaps, ZTNanoseconds aTime);

    bool hasLooked() const { return mpStorage != nullptr; }
    /// Null before the first look.
    const std::shared_ptr<const ZTSHostStorage>& getStorage() const { return mpStorage; }
    /// Whether it is to be stored.
    bool haveNews() const { return mHaveNews; }
    void haveBeenTaken() { mHaveNews = false; }
    std::vector<ZTSChange> takeChanges() { return std::exchange(mChanges, {}); }

  private:
    struct Total {
        std::uint32_t mPaths = 0;
        bool mIsAccepted = false;  // only more paths that can be used make it more
    };
    using Totals = std::map<std::string, Total>;  // by WWID

    static void raise(Totals& arTotals, const std::vector<ZTSMap>& acrMaps);
    static void raiseStored(Totals& arTotals, const std::vector<ZTSMap>& acrMaps);
    static void limit(Totals& arTotals, const ZTSHostStorage& acrStorage);
    static void apply(const Totals& acrTotals, ZTSHostStorage& arStorage);
    void take(ZTSHostStorage aStorage, Totals aTotals, std::vector<ZTSChange> aChanges);

    Totals mTotals;
    std::shared_ptr<const ZTSHostStorage> mpStorage;
    bool mHaveNews = false;
    std::vector<ZTSChange> mChanges;

    // What is compared with the store, as long as that is to be done.
    bool mIsStartKnown = false;
    std::optional<ZTSHostStorage> mStart;
    std::optional<ZTSHostStorage> mFirst;
    ZTNanoseconds mFirstTime = 0;
};
