// Check sums that another program's writing has left out.
#pragma once

#include <string>

enum class ZTEStoreMending : unsigned char { NotNeeded, Mended, Damaged };

/// vrx-sn always leaves FILE-wal. Where it is missing, another program has closed the file, which may have
/// brought in what was in the log of a vrx-sn that was killed, without sums. So all sums are looked at; where
/// some do not fit, SQLite is asked whether the file is whole, and the totals are compared with the records.
/// Then the sums are put on again. To be called by who has the lock, before the file is opened. Throws
/// ZTCStoreError, SQLite::Exception.
ZTEStoreMending mendPageSums(const std::string& acrPath);
