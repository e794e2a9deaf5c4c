// One vrx-sn a store: a lock on FILE-lock, which says who has it.
#pragma once

#include <cstdint>
#include <string>

#include "StoreDescriptor.h"
#include "StoreError.h"

/// Who writes the store, or wrote it last.
struct ZTSStoreHolder {
    bool mIsKnown = false;   ///< there was one: the file is, or was, a store
    bool mIsHere = false;    ///< it has the lock now
    bool mIsAdded = false;   ///< another process adds something just now
    bool mIsGone = false;    ///< we have the lock now: nobody else can come
    bool mIsOfBoot = false;  ///< it wrote since the machine was started
    std::string mProcess;    ///< its id
    std::string
        mSetAside;  ///< where it put a damaged store; empty: there was none, or a new one was made since
    std::int64_t mMade = 0;  ///< when the store was begun that it had open last; 0: not known
};

ZTSStoreHolder findStoreHolder(const std::string& acrStore);

class ZTCStoreLock {
  public:
    /// Throws ZTCStoreError: Unusable, which names the process that has it, or Busy, for a moment.
    explicit ZTCStoreLock(const std::string& acrStore);

    /// Who had it before.
    const ZTSStoreHolder& getBefore() const { return mBefore; }
    /// Says in the file what is being set aside, until a new store is there: whoever makes it knows why.
    void noteSetAside(const std::string& acrPath);
    /// Says when the store was begun, for whom it cannot tell that itself when it is damaged.
    void noteMade(std::int64_t aTime);

  private:
    void write() const;

    ZTCStoreDescriptor mFile;
    ZTSStoreHolder mBefore;
};

/// For who adds something while nobody writes the store: vrx-sn waits for its end. Tells who has it; nothing
/// is held where vrx-sn does or never had it, and by who may not write the lock's file.
ZTCStoreDescriptor lockStoreToAdd(const std::string& acrStore, ZTSStoreHolder& arHolder);

/// What a call of the system's that failed means for a store.
ZTCStoreError toStoreError(int aErrno, const std::string& acrPath);
