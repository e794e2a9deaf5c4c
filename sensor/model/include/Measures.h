// What is counted and summed over time, beside records: errors of ports, and commands of disks.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "SensorTime.h"
#include "Wwn.h"

/// Whose: a local port's; a port's beyond the fabric, as a local one sees it; a LUN's on that path; or a disk
/// that has no ports. What does not apply is empty.
struct ZTSMeasured {
    ZTSWwn mInitiator;
    ZTSWwn mRemote;
    std::string mLun;  ///< ZTSLun::mWwid, else its address; the name of a map

    auto operator<=>(const ZTSMeasured&) const = default;
};

/// How values of one minute become one of an hour.
enum class ZTEMeasureSum : unsigned char { Add, Most };

/// All that there are. The names are those of the kernel's attributes, where they have some.
struct ZTSMeasureFacts {
    const char* mpName;
    ZTEMeasureSum mSum;
    const char* mpText;  ///< what it counts
};
/// Null: there is none of that name.
const ZTSMeasureFacts* findMeasure(std::string_view aName);

/// Sums by minute (or hour) and by whose they are. A plain value: any thread.
class ZTCMeasures {
  public:
    struct Key {
        std::int64_t mTime = 0;  ///< the begin of the minute, or of the hour, in seconds since 1970
        bool mIsHour = false;    ///< it counts in sums by hour alone
        ZTSMeasured mWhose;
        std::string mName;

        auto operator<=>(const Key&) const = default;
    };

    /// Adds to the minute's (and so the hour's) sum. A value of 0 is nothing.
    void add(ZTNanoseconds aTime, const ZTSMeasured& acrWhose, const std::string& acrName,
             std::uint64_t aValue);
    /// For what is too much for each minute: counts in the sums by hour alone.
    void addToHour(ZTNanoseconds aTime, const ZTSMeasured& acrWhose, const std::string& acrName,
                   std::uint64_t aValue);
    /// What is moved here costs no memory.
    void join(ZTCMeasures aMore);
    /// Minutes become hours: fewer rows of the same sums.
    void coarsen();

    bool isEmpty() const { return mValues.empty(); }
    /// Of memory; counts each value.
    std::size_t getBytes() const;
    const std::map<Key, std::uint64_t>& getValues() const { return mValues; }

  private:
    void put(Key aKey, std::uint64_t aValue);

    std::map<Key, std::uint64_t> mValues;
};
