// What is counted for good, whatever goes of the rows that it was counted from.
#pragma once

#include <map>

#include "Fpin.h"
#include "Record.h"
#include "Statement.h"

class ZTCTotalsTables {
  public:
    explicit ZTCTotalsTables(SQLite::Database& arDatabase);

    /// Events that a record has got. They are added up until flush().
    void noteEvents(const ZTSRecord& acrRecord, std::uint64_t aEvents);
    /// As often as it says.
    void countFpin(const ZTSFpin& acrFpin);
    /// Before its row is written: counts one that is new, or is of a class that it was not.
    void countIncident(std::uint64_t aId, const std::string& acrClass);
    /// What was noted, into the tables.
    void flush();
    /// The transaction has failed.
    void forget() { mSenses.clear(); }

  private:
    std::map<std::pair<ZTSWwn, std::int64_t>, std::uint64_t> mSenses;  ///< by the initiator and the sense key
    ZTCStatement mAddSense, mGrowFpin, mAddFpin, mCountFpins, mAddIncident;
};
