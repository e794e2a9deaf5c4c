// Reads signs from what the history has: records, changes, FPINs, stalls, counters, losses.
#pragma once

#include <map>
#include <unordered_map>

#include "HostNews.h"
#include "Ports.h"
#include "Record.h"
#include "Sign.h"
#include "Storage.h"

/// Knows of rows alone, and of the names of ports: the same rows in whatever order and in whatever portions
/// give the same signs, but for how they are portioned. One thread. Throws std::bad_alloc alone.
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
    // Suggestions; whoever writes it decides.
    std::unordered_map<std::string, std::vector<std::string>> mMapsBeneath;  // by a volume's or map's name
    std::map<ZTSWwn, std::string> mFabricOf;
};
