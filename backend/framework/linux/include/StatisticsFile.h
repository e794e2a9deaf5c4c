// The file in which others read what the agent counts (Statistics.h).
//
// On tmpfs the file is mapped in the place of the block: what is counted is in it with the store that counts.
// On anything else a store into a mapped page could wait for a disk, or find it full: there the block stays
// where it is, and a thread that nobody waits for writes it out each second, makes the file and removes it.
#pragma once

/// Main thread. Whatever goes wrong with the file is a warning in the log: the process goes on without.
class ZTCStatisticsFile {
  public:
    /// Called by the thread each second, for the figures that somebody has to look after.
    using Refresh = void (*)(void* apContext);

    ZTCStatisticsFile() = default;
    ~ZTCStatisticsFile() { withdraw(); }
    ZTCStatisticsFile(const ZTCStatisticsFile&) = delete;
    ZTCStatisticsFile& operator=(const ZTCStatisticsFile&) = delete;

    /// Shows the block, whose rows have been named, as a file of mode 0640. What is counted by other threads
    /// while it is mapped may be lost.
    void show(const char* apPath, Refresh apRefresh, void* apContext);
    /// Removes the file, if it is still the one in its place. Who has it open reads the last figures. Where a
    /// disk stands still, that is not waited for longer than a second.
    void withdraw();

    /// Changes `wake` and wakes who waits for that. Any thread.
    static void wake();

  private:
    struct Work;

    Work* mpWork = nullptr;
};
