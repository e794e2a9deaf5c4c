// The log beside the file: how large it is, and how it is emptied while others read.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>

/// getBytes and checkpoint: any thread.
class ZTCWal {
  public:
    /// It stays below the first one always, unless a single batch is larger; a checkpoint is worth its while
    /// from the second one on, or when a little has been there for the time that is given; from the third one
    /// on writers are held up for it, for the time of a reader's slice.
    static constexpr std::uint64_t Limit = std::uint64_t{48} << 20;
    static constexpr std::uint64_t Worth = std::uint64_t{4} << 20;
    static constexpr std::uint64_t Need = std::uint64_t{16} << 20;

    /// arWriter is told how much it has written; it lives as long. Its own checkpoints end here.
    ZTCWal(SQLite::Database& arWriter, std::string aPath, std::chrono::nanoseconds aStays);
    ~ZTCWal();
    ZTCWal(const ZTCWal&) = delete;
    ZTCWal& operator=(const ZTCWal&) = delete;

    /// Of what is in it, not of the file, which keeps its length.
    std::uint64_t getBytes() const { return mFrames * mFrameSize; }
    /// Whether a transaction of so many bytes fits. When it does not, a checkpoint does all it can; and so
    /// does the next one, when that was not enough. The writer's thread alone. Throws as that.
    bool hasRoom(std::uint64_t aBytes);
    /// Throws SQLite::Exception, but not because somebody reads.
    void checkpoint();
    /// At the end: all of it, or as much as readers let through. Holds up writers.
    void finish();

  private:
    using Clock = std::chrono::steady_clock;

    static int written(void* apThis, sqlite3* apDatabase, const char* apName, int aFrames);
    /// False: readers are in its way. aMode: as SQLite's.
    bool run(int aMode);

    SQLite::Database& mrWriter;
    const std::string mPath;
    const std::uint64_t mFrameSize;
    const std::chrono::nanoseconds mStays;
    std::atomic<std::uint64_t> mFrames{0};  ///< written since it was empty
    std::atomic<std::uint64_t> mDone{0};    ///< of them, those that are in the file
    std::atomic<Clock::time_point> mUndoneSince{Clock::time_point()};  ///< that not all of them are
    std::atomic<bool> mIsFull{false};
    std::mutex mLock;
    std::optional<SQLite::Database> mDatabase;  ///< its own, for only so does it hold up no write
    Clock::time_point mNextNeed;
    std::chrono::milliseconds mPause;
};
