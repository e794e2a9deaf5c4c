// The lanes of a timeline: how many events each had in each bin.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

struct ZTSWebLane {
    std::string mName;  ///< empty: what has no name on this axis
    bool mIsRest = false;
    std::uint64_t mEvents = 0;
    std::vector<std::uint64_t> mCounts{};  ///< of each bin
};

/// Adds up what it is given; there may be any number of lanes. One thread.
class ZTCWebLanes {
  public:
    static constexpr std::size_t Most = 64;  ///< that are shown

    explicit ZTCWebLanes(std::size_t aBins) : mAll(aBins) {}

    std::size_t find(const std::string& acrName);
    void add(std::size_t aLane, std::size_t aBin, std::uint64_t aEvents);
    /// Chooses those that had most. False: there were so many that all is to be added once more, and then
    /// this is to be called again.
    bool choose();
    /// Those that were chosen, the one with most events first, and behind them the rest as one, if there is
    /// any.
    std::vector<ZTSWebLane> take();

  private:
    std::vector<ZTSWebLane> mLanes;  ///< where there are very many, the later ones have no counts
    std::unordered_map<std::string, std::size_t> mByName;
    std::vector<std::uint64_t> mAll;
    std::size_t mWithCounts = 0;
    std::vector<std::size_t> mChosen;
};
