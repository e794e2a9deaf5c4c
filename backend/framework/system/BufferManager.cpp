#include "BufferManager.h"

void ZTCBufferManager::get(unsigned int aSize, ZTCPointer<ZTCBuffer>& arBuffer) {
    {
        const ZTCScopedLock lLock(mMutex);
        for (auto lAt = mKept.begin(); lAt != mKept.end(); ++lAt) {
            if ((*lAt)->getRoom() >= aSize) {
                arBuffer.swap(*lAt);
                mKept.erase(lAt);
                return;
            }
        }
    }
    arBuffer = makePointer<ZTCBuffer>(aSize);
}

void ZTCBufferManager::reuse(ZTCPointer<ZTCBuffer>& arBuffer) {
    ZTCPointer<ZTCBuffer> lBuffer;
    lBuffer.swap(arBuffer);
    if (!lBuffer.isUnique() || lBuffer->getRoom() > MaxKeptRoom) {
        return;
    }
    lBuffer->clear();
    std::list<ZTCPointer<ZTCBuffer>> lKept;
    orNoMemory([&] { lKept.emplace_back(); });
    lKept.back().swap(lBuffer);
    const ZTCScopedLock lLock(mMutex);
    if (mKept.size() < MaxKept) {
        mKept.splice(mKept.end(), lKept);
    }
}
