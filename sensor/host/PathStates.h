// What others have told of the paths of maps.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "MountTable.h"
#include "Multipathd.h"
#include "Storage.h"
#include "Uevent.h"

/// Device mapper tells of each path that fails or comes back, and how many are left then; multipathd how all
/// stand, some seconds behind. One thread. Throws std::bad_alloc.
class ZTCPathStates {
  public:
    void take(const ZTSUevent& acrEvent);
    /// Messages were lost: what was told before counts for some steps more, until it is answered anew.
    void doubt();
    /// multipathd is to be asked: at once, but not too often, and once more when it has had time to follow.
    void askSoon() { mIsUrgent = true; }
    /// Multipathd is to be asked now; its answer brings the number back. aIsUntold: device mapper has not
    /// told of all paths, so that it is to be asked from time to time.
    std::optional<std::uint64_t> takeQuestion(bool aIsUntold);
    /// What was doubtful when that was asked is forgotten.
    void takeAnswer(const std::vector<ZTSMultipathdPath>& acrPaths, std::uint64_t aQuestion);
    /// A second has gone.
    void step();

    /// Since haveTold.
    bool hasChanged() const { return mHasChanged; }
    void haveTold() { mHasChanged = false; }
    /// Of that disk. Nothing: nobody has told.
    std::optional<ZTSPath> find(const std::string& acrDisk, ZTDeviceNumber aDevice) const;
    /// How many of a map's paths are usable, as device mapper told with the last of them: as long as the map
    /// has this table, they are no others.
    std::optional<std::uint32_t> countUsable(const std::string& acrMap) const;

  private:
    static constexpr std::size_t Most = 65536;
    static constexpr unsigned int DoubtedFor = 15;
    // Between two questions, by why it is asked.
    static constexpr unsigned int AtLeast = 5, Behind = 15, AMinute = 60;

    struct Path {
        bool mIsUsable = false;
        std::uint64_t mDoubt = 0;  // the question whose answer ends it; 0: it is certain
    };
    struct Table {
        std::optional<std::uint32_t> mLeft;
        std::uint64_t mDoubt = 0;
        std::set<ZTDeviceNumber> mPaths;  // that were told of
    };
    void takePath(const std::string& acrMap, ZTDeviceNumber aPath, bool aIsUsable, std::string_view aLeft);
    void takeTable(const std::string& acrMap);
    void forgetDoubtful(std::uint64_t aQuestion);

    std::unordered_map<ZTDeviceNumber, Path> mPaths;  // by device mapper
    std::unordered_map<std::string, Table> mTables;   // by map
    std::unordered_map<std::string, bool> mAnswer;    // by multipathd
    std::uint64_t mAnswerDoubt = 0;
    unsigned int mDoubtedFor = 0;  // so many steps more

    std::uint64_t mQuestion = 0;  // the last one
    unsigned int mSinceQuestion = 0;
    bool mIsUrgent = false;
    bool mIsAgain = true;  // the first question was asked at the start
    bool mHasChanged = false;
};
