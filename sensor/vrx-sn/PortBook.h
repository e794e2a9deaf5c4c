// The ports as the host shows them and the agent tells of them, and what has become of them.
#pragma once

#include <memory>
#include <set>
#include <utility>

#include "PortChanges.h"
#include "Ports.h"

/// One thread. Throws std::bad_alloc alone: what is told of stays, and settle() tries again.
///
/// A port that only the agent tells of has no host and no state. One that the host has had is the host's:
/// when it goes there, it has gone, although the agent may tell of it until it ends.
class ZTCPortBook {
  public:
    using Names = std::vector<ZTSPortNames>;

    void seeHost(ZTSHostPorts aPorts, ZTNanoseconds aTime);
    /// All that an agent's answer lists.
    void seeAgent(Names aPorts, ZTNanoseconds aTime);
    void setLabels(ZTPortLabels aLabels, ZTNanoseconds aTime);
    /// What the store had: what the first look finds is compared with that, however late it comes. Nothing:
    /// a new store, and what the first look finds has not come just now.
    void setStart(std::optional<ZTSHostPorts> aPorts);
    void settle();

    bool hasLooked() const { return mFirstTime != 0; }
    const std::optional<ZTPortLabels>& getLabels() const { return mLabels; }
    /// Never null.
    const std::shared_ptr<const ZTSHostPorts>& getPorts() const { return mpPorts; }
    /// Whether they are to be stored: not before the first look, for what there is is not known then.
    bool haveNews() const { return hasLooked() && mHaveNews; }
    void haveBeenTaken() { mHaveNews = false; }
    std::vector<ZTSChange> takeChanges() { return std::exchange(mChanges, {}); }

  private:
    void note(bool aTells, ZTNanoseconds aTime);
    void noteHost(const ZTSHostPorts& acrPorts);
    void add(std::vector<ZTSChange> aChanges);
    void compareWithStart();
    ZTSHostPorts join(const ZTSHostPorts& acrHost, const Names& acrAgent) const;

    ZTSHostPorts mHost;
    Names mAgent;  ///< of its last answer; before the first one, of the store
    std::set<ZTSWwn> mOfHost;
    std::optional<ZTPortLabels> mLabels;
    std::shared_ptr<const ZTSHostPorts> mpPorts = std::make_shared<ZTSHostPorts>();
    bool mHaveNews = false;
    std::vector<ZTSChange> mChanges;

    // What is not settled yet.
    bool mIsDue = false;
    bool mTells = false;
    ZTNanoseconds mTime = 0;

    // What is compared with the store, as long as that is to be done.
    bool mIsStartKnown = false;
    bool mIsCompared = false;
    std::optional<ZTSHostPorts> mStart;
    ZTSHostPorts mFirstHost;
    ZTNanoseconds mFirstTime = 0;
    std::optional<Names> mFirstAgent;
};
