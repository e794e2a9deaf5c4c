// Memory in pieces of one size, one behind the other: what the records of a list lie in, and what lies ready
// for those to come.
#pragma once

#include <cstddef>
#include <utility>

class ZTCEncodableOutStream;

/// No lock of its own. Can be moved, not copied; its end frees its pieces.
class ZTCScopeAgentChunks {
  public:
    ZTCScopeAgentChunks() = default;
    ZTCScopeAgentChunks(ZTCScopeAgentChunks&& arOther) noexcept { swap(arOther); }
    ZTCScopeAgentChunks& operator=(ZTCScopeAgentChunks&& arOther) noexcept {
        swap(arOther);
        return *this;
    }
    ~ZTCScopeAgentChunks();

    /// The bytes of a chunk that can be used.
    static constexpr unsigned int Room = 65536 - 64;

    /// Room for so many bytes at the end, in one piece (at most Room): of the last chunk, or else of a new
    /// one, which is taken from the spare ones as long as there are any. Throws ZTCNoMemoryEx, nothing
    /// changed.
    unsigned char* extend(unsigned int aCount, ZTCScopeAgentChunks& arSpare) {
        if (mpLast == nullptr || aCount > Room - mpLast->mUsed) [[unlikely]] {
            append(arSpare);
        }
        unsigned char* const lpRoom = mpLast->mBytes + mpLast->mUsed;
        mpLast->mUsed += aCount;
        return lpRoom;
    }

    /// Gives its chunks to the spare ones, as long as those are fewer than so many; keeps the others. What
    /// was given last is taken first: it may still be in the processor's cache. Who is
    /// given chunks is not extended.
    void giveTo(ZTCScopeAgentChunks& arSpare, unsigned int aMost);

    /// The bytes of all.
    std::size_t getSize() const;
    /// Writes them.
    void encode(ZTCEncodableOutStream& arStream) const;

  private:
    struct Chunk {
        Chunk* mpNext;
        unsigned int mUsed;
        unsigned char mBytes[Room];
    };

    void swap(ZTCScopeAgentChunks& arOther) noexcept {
        std::swap(mpFirst, arOther.mpFirst);
        std::swap(mpLast, arOther.mpLast);
        std::swap(mCount, arOther.mCount);
    }
    void append(ZTCScopeAgentChunks& arSpare);
    Chunk* takeFirst();

    Chunk* mpFirst = nullptr;
    Chunk* mpLast = nullptr;
    unsigned int mCount = 0;
};
