// What has happened, told from what the kernel announces and from what is different at each look.
#pragma once

#include <chrono>
#include <set>
#include <vector>

#include "Sysfs.h"
#include "TransportMessage.h"

enum ZTEFcEventKind : unsigned char {
    ZTFEK_Link,
    ZTFEK_Rscn,
    ZTFEK_AdapterArrival,
    ZTFEK_PortInterruptError,
};

/// An event for the agent.
struct ZTSFcEvent {
    ZTEFcEventKind mKind;
    std::uint32_t mBoard;
    std::uint32_t mPage = 0;  ///< of an RSCN: the address format in bits 24 and 25, the port id below

    bool operator==(const ZTSFcEvent&) const = default;
};
using ZTFcEvents = std::vector<ZTSFcEvent>;

/// One thread; others ask ZTCFcBoards.
class ZTCFcWatcher {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// What cannot be handed on as an event, since it was asked for last.
    struct Counts {
        std::map<std::uint32_t, std::uint64_t> mWithoutKind;  ///< by code
        std::uint64_t mOfUnknownHosts = 0;
        std::uint64_t mLost = 0;  ///< messages that the kernel had numbered and nobody received
        std::uint64_t mLate = 0;  ///< received, but taken for lost when they were asked for before
    };

    /// The hosts that are there get boards in the order of their numbers, and later ones the boards behind;
    /// one whose port name a host before it had takes that one's board again. aSettling: so long after an
    /// announcement a port's state may take to follow.
    ZTCFcWatcher(const ZTFcHosts& acrHosts, std::chrono::milliseconds aSettling);

    // Events are added to those of the caller. For want of memory what follows throws std::bad_alloc: the
    // events that were added stand, and nothing else counts as seen.

    /// What a message says. Several that the kernel sends for one change are as many events.
    void announce(const ZTSFcMessage& acrMessage, Time aNow, ZTFcEvents& arEvents);
    /// Messages have been lost: at the next look, nothing counts as announced.
    void noteLoss() { mHasLost = true; }
    /// What is different now. A change of a port's state is told unless it was announced; one of a remote
    /// port unless the driver is one that announces RSCNs.
    void look(const ZTFcHosts& acrHosts, Time aNow, ZTFcEvents& arEvents);
    Counts takeCounts();
    /// Whether the host was there at the last look.
    bool isKnown(std::uint32_t aHost) const { return findBoard(aHost).has_value(); }

    std::uint32_t countBoards() const { return static_cast<std::uint32_t>(mBoards.size()); }
    /// The last known names of a board's port, each 0 if it has never been known.
    std::uint64_t getNode(std::uint32_t aBoard) const { return mBoards[aBoard].mNode; }
    std::uint64_t getPort(std::uint32_t aBoard) const { return mBoards[aBoard].mPort; }
    /// Its host, which was there at the last look or not; and which of that number it is.
    std::uint32_t getHost(std::uint32_t aBoard) const { return mBoards[aBoard].mHost; }
    bool isThere(std::uint32_t aBoard) const { return mBoards[aBoard].mIsThere; }
    std::uint64_t getIdentity(std::uint32_t aBoard) const { return mBoards[aBoard].mLast.mIdentity; }

  private:
    struct Board {
        std::uint32_t mHost = 0;
        bool mIsThere = true;
        std::optional<Time> mArrived;    // when a look found it, until its driver has announced it too
        std::optional<Time> mAnnounced;  // when something about its link was, until its state has followed
        bool mIsAnnouncedDown = false;   // and what was is that it is down
        bool mHasRscns = false;          // its driver announces them
        std::uint64_t mNode = 0;
        std::uint64_t mPort = 0;
        ZTSFcHost mLast;  // of each value, what was known last
    };

    void count(std::uint32_t aNumber);
    Board& add(std::uint32_t aHost, const ZTSFcHost& acrHost);
    void leave(std::uint32_t aBoard, Time aNow, ZTFcEvents& arEvents);
    void follow(std::uint32_t aBoard, const std::string& acrState, Time aNow, ZTFcEvents& arEvents);
    bool isRecent(const std::optional<Time>& acrThen, Time aNow) const;
    void compare(std::uint32_t aBoard, const ZTSFcHost& acrNow, Time aNow, ZTFcEvents& arEvents);
    void compareRemotePorts(std::uint32_t aBoard, const ZTSFcHost& acrNow, ZTFcEvents& arEvents);
    std::optional<std::uint32_t> findBoard(std::uint32_t aHost) const;

    const std::chrono::milliseconds mSettling;
    std::vector<Board> mBoards;
    std::set<std::uint32_t> mNameless;         // hosts that had come without a name at the last look
    bool mHasLost = false;                     // messages, since the last look
    std::optional<std::uint32_t> mNextNumber;  // that the next message is expected to have
    Counts mCounts;
};
