#include "ScopeAgentChunks.h"

#include <cstdlib>

#include "EncodableStream.h"
#include "Exception.h"

ZTCScopeAgentChunks::~ZTCScopeAgentChunks() {
    while (mpFirst != nullptr) {
        free(takeFirst());
    }
}

void ZTCScopeAgentChunks::append(ZTCScopeAgentChunks& arSpare) {
    auto* const lpChunk =
        arSpare.mpFirst != nullptr ? arSpare.takeFirst() : static_cast<Chunk*>(malloc(sizeof(Chunk)));
    if (lpChunk == nullptr) {
        throwNoMemory();
    }
    lpChunk->mpNext = nullptr;
    lpChunk->mUsed = 0;
    (mpLast != nullptr ? mpLast->mpNext : mpFirst) = lpChunk;
    mpLast = lpChunk;
    ++mCount;
}

void ZTCScopeAgentChunks::giveTo(ZTCScopeAgentChunks& arSpare, unsigned int aMost) {
    while (mpFirst != nullptr && arSpare.mCount < aMost) {
        Chunk* const lpChunk = takeFirst();
        lpChunk->mpNext = std::exchange(arSpare.mpFirst, lpChunk);
        ++arSpare.mCount;
    }
}

std::size_t ZTCScopeAgentChunks::getSize() const {
    std::size_t lSize = 0;
    for (const Chunk* lpChunk = mpFirst; lpChunk != nullptr; lpChunk = lpChunk->mpNext) {
        lSize += lpChunk->mUsed;
    }
    return lSize;
}

void ZTCScopeAgentChunks::encode(ZTCEncodableOutStream& arStream) const {
    for (const Chunk* lpChunk = mpFirst; lpChunk != nullptr; lpChunk = lpChunk->mpNext) {
        ztwire::put(arStream.extend(lpChunk->mUsed), lpChunk->mBytes, lpChunk->mUsed);
    }
}

ZTCScopeAgentChunks::Chunk* ZTCScopeAgentChunks::takeFirst() {
    Chunk* const lpChunk = mpFirst;
    mpFirst = lpChunk->mpNext;
    mpLast = mpFirst != nullptr ? mpLast : nullptr;
    --mCount;
    return lpChunk;
}
