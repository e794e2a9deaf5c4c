// What others have told of the paths of maps.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "MountTable.h"
#include "Multipathd.h"
#include "Storage.h"
#include "Uevent.h"

/// Device mapper tells of each path that fails or comes back, and how many are left then; multipathd how all
/// stand. One thread. Throws std::bad_alloc.
class ZTCPathStates {
  public:
    void take(const ZTSUevent& acrEvent);
    /// Messages were lost: what was told before counts for some steps more, until an answer comes.
    void doubt();
    /// An answer to a question that was asked behind the last doubt.
    void takeAnswer(const std::vector<ZTSMultipathdPath>& acrPaths);
    /// A second has gone.
    void step();

    /// Since haveTold.
    bool hasChanged() const { return mHasChanged; }
    void haveTold() { mHasChanged = false; }
    /// Of that disk. Nothing: nobody has told.
    std::optional<ZTSPath> find(const std::string& acrDisk, ZTDeviceNumber aDevice) const;
    /// How many of a map's paths were usable when device mapper told of one of them last.
    std::optional<std::uint32_t> countUsable(const std::string& acrMap) const;

  private:
    static constexpr std::size_t Most = 65536;
    static constexpr unsigned int DoubtedFor = 15;

    template <class Value>
    struct Told {
        Value mValue{};
        std::uint64_t mDoubts = 0;  // how many there had been by then
    };
    void takePath(const std::string& acrMap, ZTDeviceNumber aPath, bool aIsUsable, std::string_view aLeft);
    void forgetDoubtful();

    std::unordered_map<ZTDeviceNumber, Told<bool>> mPaths;  // by device mapper
    std::unordered_map<std::string, Told<std::uint32_t>> mLeft;
    std::unordered_map<std::string, bool> mAnswer;  // by multipathd
    std::uint64_t mDoubts = 0;
    unsigned int mDoubtedFor = 0;  // so many steps more
    bool mHasChanged = false;
};
