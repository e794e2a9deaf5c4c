// What the library counts: rows that others read as a file, while it goes on (docs/statistics.md).
#pragma once

#include <cstdint>
#include <unordered_map>

#include "FcStatisticsFile.h"
#include "FpinDescriptor.h"
#include "Lock.h"

/// Rows that are always there, in this order.
enum ZTEFcFigure : unsigned char {
    ZTFF_ToldQueueFull,  ///< callbacks made, one row a kind in the order of ZTEScsiKind
    ZTFF_ToldDeviceBusy,
    ZTFF_ToldCheckCondition,
    ZTFF_ToldLunReset,
    ZTFF_ToldTargetReset,
    ZTFF_ToldQueueDepthChange,
    ZTFF_ToldFcpReadCheckError,
    ZTFF_BeyondQueueFull,  ///< over the rate, only counted: the same
    ZTFF_BeyondDeviceBusy,
    ZTFF_BeyondCheckCondition,
    ZTFF_BeyondLunReset,
    ZTFF_BeyondTargetReset,
    ZTFF_BeyondQueueDepthChange,
    ZTFF_BeyondFcpReadCheckError,
    ZTFF_TimeOuts,
    ZTFF_Unreached,  ///< host bytes DID_TRANSPORT_*, DID_NO_CONNECT
    ZTFF_Failures,   ///< ended otherwise, without a kind
    ZTFF_LostFull,
    ZTFF_LostUnknownHost,
    ZTFF_LostNoMemory,
    ZTFF_LostBusy,  ///< unseen, failed or not
    ZTFF_NetlinkLost,
    ZTFF_WayBpf,  ///< 1 for the one that is used
    ZTFF_WayPerf,
    ZTFF_Fpins,           ///< descriptors of fabric performance impact notifications
    ZTFF_FpinsMalformed,  ///< notifications that were not what their lengths say
    ZTFF_NoRow,           ///< counts that found no row of their own: the totals have them
    ZTFF_Count,
};

/// What is counted apart by host, port and LUN.
enum ZTEFcLunFigure : unsigned char { ZTFL_TimeOuts, ZTFL_Unreached, ZTFL_Failures, ZTFL_Beyond, ZTFL_Count };

/// Any thread. Counting waits for nothing but another thread that counts.
class ZTCFcStatistics {
  public:
    /// The file is made in the directory; if that is empty, or it cannot be, that is a line in the journal
    /// (acrLog as for ZTCFcJournal), and what is counted is shown to nobody. Throws std::bad_alloc.
    explicit ZTCFcStatistics(const std::string& acrDirectory, const std::string& acrLog = {});

    void count(ZTEFcFigure aFigure, std::uint64_t aBy = 1);
    void set(ZTEFcFigure aFigure, std::uint64_t aValue);
    std::uint64_t get(ZTEFcFigure aFigure);

    // A row as late{host="3",port="50060160bb20110c",lun="12"}, made when it is first counted. Port 0: it
    // is not known. A number that makes the name too long is counted with others as "*". Returns what the row
    // has now; 0: there is no room for it.

    std::uint64_t countFor(ZTEFcLunFigure aFigure, std::uint32_t aHost, std::uint64_t aPort,
                           std::uint64_t aLun, std::uint64_t aBy = 1);
    /// A descriptor, by what it tells: an event, a reason, a tag.
    std::uint64_t countFor(ZTEFpinKind aKind, std::uint32_t aHost, std::uint64_t aPort,
                           std::uint32_t aNumber);

  private:
    struct Key {
        std::uint64_t mPort;
        std::uint64_t mNumber;
        std::uint32_t mHost;
        unsigned int mFamily;

        bool operator==(const Key&) const = default;
    };
    struct Hash {
        std::size_t operator()(const Key& acrKey) const;
    };

    std::uint64_t countFor(const Key& acrKey, std::uint64_t aBy);
    ZTSStatisticsRow* find(Key aKey) ZT_FC_THREAD_ATTRIBUTE(requires_capability(mLock));

    ZTCFcStatisticsFile mFile;
    ZTCFcLock mLock;
    std::uint32_t mRowCount ZT_FC_GUARDED_BY(mLock) = ZTFF_Count;
    std::uint32_t mFpinRowCount ZT_FC_GUARDED_BY(mLock) = 0;
    std::unordered_map<Key, ZTSStatisticsRow*, Hash> mRows ZT_FC_GUARDED_BY(mLock);
};
