// Brings what the buffer has into the store, whatever the disk does.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "StoreWriter.h"

class ZTCSnBuffer;
class ZTCSnFigures;
class ZTCServiceLog;

/// Its thread opens the store, writes, and removes what is too old; another brings the log into the file.
/// Only these two ever wait for the disk.
class ZTCStoreThread {
  public:
    /// Both are called in the store's thread, and one of them once: with what the store had when it was
    /// opened, or because it can never be used.
    using Opened = std::function<void(const ZTSStoreStart&)>;
    using Failed = std::function<void()>;
    /// In the store's thread: does what somebody asks for, if it is no note; and whether the store
    /// has marked an incident with it. False: that is not known.
    using Asked = std::function<bool(const ZTSStoreRequest&, bool)>;

    ZTCStoreThread(ZTSStoreOptions aOptions, ZTCSnBuffer& arBuffer, ZTCSnFigures& arFigures,
                   ZTCServiceLog& arLog, Opened aOpened, Failed aFailed = nullptr, Asked aAsked = nullptr);
    /// Waits for both threads: they end in order, or the process is left by another way.
    ~ZTCStoreThread();
    ZTCStoreThread(const ZTCStoreThread&) = delete;
    ZTCStoreThread& operator=(const ZTCStoreThread&) = delete;

    /// Waits until the store is open, so long at most: a disk that stands still is no reason not to collect.
    /// Throws ZTCStoreError when the store can never be used.
    void waitUntilOpen(std::chrono::milliseconds aTime);
    void setKeep(unsigned int aDays, std::uint64_t aBytes);
    /// Writes what is left, and ends. False: not in that time; the process is to be left at once then.
    bool finish(std::chrono::milliseconds aTime);
    /// Why nothing is written just now, in words; empty: nothing stands.
    std::string getTrouble() const;
    /// Tells of it, when it lasts. To be called again and again by a thread that never waits for the disk.
    void tellTrouble();

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
