// Reads signs from what the history has: records, changes, FPINs, stalls, counters, losses.
#pragma once

#include <map>
#include <set>
#include <unordered_map>

#include "HostNews.h"
#include "Ports.h"
#include "Record.h"
#include "Sign.h"
#include "SignTexts.h"
#include "Storage.h"

/// Knows of rows alone, and of the names of ports: the same rows in whatever order and in whatever portions
/// give the same signs, but for how they are portioned. One thread. Throws std::bad_alloc alone.
///
/// What a sign says where that is not plain:
/// - PathLost and PathBack of a map's row `paths` have the map in mDisk and mLeft of mTotal. Beside it each
///   path that is missing, or is not any more, is one of its own from the row `missing`: the map in mDisk,
///   its ports, and no mTotal. mLeft == mTotal: all are back, whichever they were.
/// - A Stall is told again and again as long as it lasts, and once more with its StallOver: those of one
///   mDisk and mFirst are one. The first of them ends when it became known, later ones when it began: that it
///   lasts is no new sign. Of one that waits for a path the ports are known.
/// - SensorGone lasts from when vrx-sn ended until it came; when nobody knows since when, it is a moment.
/// - TargetLost is of what is a target, or may be one. What was lost already is not lost again.
/// - What a counter has grown by happened within its minute.
class ZTCSignReader {
  public:
    using Signs = std::vector<ZTSSign>;

    /// What stands now, for names that rows use and for what a stalled volume stands on.
    void takeStorage(const ZTSHostStorage& acrStorage);
    void takePorts(const ZTSHostPorts& acrPorts);

    /// A record, or what has been added to it: its mFirst and mLast are those of the addition then. Each adds
    /// to the signs.
    void read(const ZTSRecord& acrRecord, Signs& arSigns);
    void read(const ZTSChange& acrChange, Signs& arSigns);
    void read(const ZTSFpin& acrFpin, Signs& arSigns);
    void read(const ZTSStall& acrStall, Signs& arSigns);
    void read(const ZTSLoss& acrLoss, Signs& arSigns);
    /// A sum of a minute.
    void read(ZTNanoseconds aMinute, const ZTSMeasured& acrWhose, std::string_view aName,
              std::uint64_t aValue, Signs& arSigns);

  private:
    void readPort(const ZTSChange& acrChange, Signs& arSigns);
    void readRemotePort(const ZTSChange& acrChange, Signs& arSigns);
    void readLun(const ZTSChange& acrChange, Signs& arSigns);
    void readMap(const ZTSChange& acrChange, Signs& arSigns);
    void readMissing(const ZTSChange& acrChange, Signs& arSigns) const;
    void readAgent(const ZTSChange& acrChange, Signs& arSigns);
    void readSensor(const ZTSChange& acrChange, Signs& arSigns);
    void addGap(ZTNanoseconds aFirst, ZTNanoseconds aLast, const ZTSChange& acrChange, Signs& arSigns) const;
    ZTSSign begin(ZTESign aSign, const ZTSChange& acrChange, const ZTPortPair& acrPorts = {},
                  std::string aDetail = {}) const;
    const std::string& fabricOf(const ZTSWwn& acrInitiator) const;

    std::unordered_map<std::string, std::vector<std::string>> mMapsBeneath;  // by a disk, and by its name
    // Of ports that there are or were.
    std::map<ZTSWwn, std::string> mFabricOf;  // of each of the host's
    std::set<ZTSWwn> mRemote;
    std::map<ZTPortPair, bool> mIsTarget;  // as far as their roles are known
    // When vrx-sn ended in order and when it came, of late.
    std::set<ZTNanoseconds> mEnded;
    std::set<ZTNanoseconds> mCame;
};
