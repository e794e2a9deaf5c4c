// Hands out buffers and takes them back for reuse. Any thread.
#pragma once

#include <list>

#include "Buffer.h"
#include "Mutex.h"

class ZTCBufferManager {
  public:
    static constexpr unsigned int MaxKept = 8;              ///< buffers that wait for reuse
    static constexpr unsigned int MaxKeptRoom = 64 * 1024;  ///< a larger one goes back to the system

    /// Makes arBuffer an empty buffer with room for at least aSize bytes. Throws ZTCNoMemoryEx, arBuffer
    /// unchanged.
    void get(unsigned int aSize, ZTCPointer<ZTCBuffer>& arBuffer);

    /// Takes a buffer back; arBuffer is empty afterwards. One that somebody else still holds is not reused.
    void reuse(ZTCPointer<ZTCBuffer>& arBuffer);

  private:
    ZTCMutex mMutex;
    std::list<ZTCPointer<ZTCBuffer>> mKept ZT_GUARDED_BY(mMutex);
};
