// One vrx-sn a store: a lock on FILE-lock.
#pragma once

#include <string>
#include <utility>

#include "StoreError.h"

class ZTCStoreLock {
  public:
    /// Throws ZTCStoreError, Unusable, which names the process that has it.
    explicit ZTCStoreLock(const std::string& acrStore);
    ~ZTCStoreLock();
    ZTCStoreLock(ZTCStoreLock&& arOther) noexcept : mDescriptor(std::exchange(arOther.mDescriptor, -1)) {}
    ZTCStoreLock& operator=(ZTCStoreLock&& arOther) noexcept {
        std::swap(mDescriptor, arOther.mDescriptor);
        return *this;
    }

  private:
    explicit ZTCStoreLock(int aDescriptor) : mDescriptor(aDescriptor) {}

    int mDescriptor;
};

/// What a call of the system's that failed means for a store.
ZTCStoreError toStoreError(int aErrno, const std::string& acrPath);
