// What has happened, told from what the kernel announces and from what is different at each look.
#pragma once

#include <chrono>
#include <set>
#include <vector>

#include "Sysfs.h"
#include "TransportMessage.h"

/// An event for the agent.
struct ZTSFcEvent {
    enum Kind : unsigned char { Link, Rscn, AdapterArrival, PortInterruptError };

    Kind mKind;
    std::uint32_t mBoard;
    std::uint32_t mPage = 0;  ///< of an RSCN: the address format in bits 24 and 25, the port id below

    bool operator==(const ZTSFcEvent&) const = default;
};
using ZTFcEvents = std::vector<ZTSFcEvent>;

/// One thread, but for countBoards.
class ZTCFcWatcher {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// What cannot be handed on as an event, since it was asked for last.
    struct Counts {
        std::map<std::uint32_t, std::uint64_t> mWithoutKind;  ///< by code
        std::uint64_t mOfUnknownHosts = 0;
        std::uint64_t mLost = 0;  ///< messages that the kernel had numbered and nobody received
    };

    /// The hosts that are there get boards in the order of their numbers, and later ones the boards behind;
    /// one whose port name a host before it had takes that one's board again. aSettling: so long after an
    /// announcement a port's state may take to follow.
    ZTCFcWatcher(const ZTFcHosts& acrHosts, std::chrono::milliseconds aSettling);

    /// What a message says. Several that the kernel sends for one change are as many events.
    ZTFcEvents announce(const ZTSFcMessage& acrMessage, Time aNow);
    /// Messages have been lost: until the next look, nothing counts as announced.
    void noteLoss();
    /// What is different now. A change of a port's state is told unless it was announced; one of a remote
    /// port unless the driver is one that announces RSCNs.
    ZTFcEvents look(const ZTFcHosts& acrHosts, Time aNow);
    Counts takeCounts();
    /// Whether the host was there at the last look.
    bool isKnown(std::uint32_t aHost) const { return findBoard(aHost).has_value(); }

    std::uint32_t countBoards() const { return static_cast<std::uint32_t>(mBoards.size()); }
    /// The last known names of a board's port, each 0 if it has never been known.
    std::uint64_t getNode(std::uint32_t aBoard) const { return mBoards[aBoard].mNode; }
    std::uint64_t getPort(std::uint32_t aBoard) const { return mBoards[aBoard].mPort; }

  private:
    struct Board {
        std::uint32_t mHost = 0;
        bool mIsThere = true;
        std::optional<Time> mAnnounced;  // when something about its link was, until its state has followed
        bool mHasRscns = false;          // its driver announces them
        std::uint64_t mNode = 0;
        std::uint64_t mPort = 0;
        ZTSFcHost mLast;  // of each value, what was known last
    };

    void count(std::uint32_t aNumber);
    std::uint32_t add(std::uint32_t aHost, const ZTSFcHost& acrHost);
    void leave(std::uint32_t aBoard, ZTFcEvents& arEvents);
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
