// Writes the history.
#pragma once

#include <chrono>
#include <memory>

#include "StoreBatch.h"
#include "StoreError.h"
#include "StoreRequest.h"

struct ZTSStoreOptions {
    std::string mPath;
    std::string mHostName;  ///< of the host whose history it is
    unsigned int mKeepDays = 90;
    std::uint64_t mKeepBytes = std::uint64_t{8} << 30;
    /// So long the host's clock has kept step with the steady one when it is believed how old a record is.
    std::chrono::nanoseconds mClockTrust{std::chrono::hours(1)};
    /// So long a little of the log stands beside the file, which a power failure may lose.
    std::chrono::milliseconds mLogStays{std::chrono::minutes(1)};
    std::size_t mSeriesLimit = 100000;  ///< those beyond share a row for each kind, initiator and fabric
};

struct ZTSStoreSize {
    std::uint64_t mBytes = 0;     ///< of the file
    std::uint64_t mWalBytes = 0;  ///< of the log beside it
    std::uint64_t mRecords = 0;
};

/// One thread; but checkpoint() may be called from another one.
class ZTCStoreWriter {
  public:
    /// Opens the file, and holds its lock. Throws ZTCStoreError.
    explicit ZTCStoreWriter(ZTSStoreOptions aOptions);
    ~ZTCStoreWriter();
    ZTCStoreWriter(const ZTCStoreWriter&) = delete;
    ZTCStoreWriter& operator=(const ZTCStoreWriter&) = delete;

    const ZTSStoreStart& getStart() const;
    /// The file has turned out to be damaged: it is set aside, and a new one begun, whose start says so.
    /// Throws ZTCStoreError; all but the destructor and this throw then, until this has succeeded.
    void beginAnew();
    /// How long and how much is kept, from now on.
    void setKeep(unsigned int aDays, std::uint64_t aBytes);

    /// All of it or, when it throws, nothing, as far as is known: it is to be written again then. It never
    /// waits for the disk to have it: a kill loses nothing, a power failure the last seconds. Throws
    /// ZTCStoreError; Busy also while the log beside the file is as large as it may be, because a reader
    /// keeps it from being emptied.
    void write(const ZTSStoreBatch& acrBatch);
    /// What somebody has asked for since the last call, the oldest first; a note has become a change by then.
    /// Costs next to nothing where there is nothing. Throws ZTCStoreError: nothing was taken.
    std::vector<ZTSStoreRequest> takeRequests();
    /// A request "acknowledge" or "keep" of an incident by its id, also of one that nobody but the store
    /// knows any more; whoever finds incidents changes nothing of it later. False: it has none of that id, or
    /// that was no such request. Throws ZTCStoreError.
    bool markIncident(const ZTSStoreRequest& acrRequest);
    /// Removes a little of what is too old or too much. aNow: by the clock. True: there is more to do.
    /// Throws ZTCStoreError.
    bool retire(ZTNanoseconds aNow);
    /// Brings what is in the log into the file, if it is much or has been there for long; may wait for the
    /// disk. It holds up no write but in need, when readers have kept the log growing. Throws ZTCStoreError.
    void checkpoint();
    /// Who holds a lock on the file, or a snapshot of it: "process 1234 (sqlite3)". Empty: nobody is seen.
    std::string describeHolder() const;
    ZTSStoreSize getSize() const;
    /// An end in order: everything into the file. Nothing is called behind it.
    void finish();

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
