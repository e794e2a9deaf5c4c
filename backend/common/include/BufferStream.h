// Reads a buffer from its start to its end. Here, and nowhere else, is a length that came from outside held
// against what is there.
#pragma once

#include "Buffer.h"

inline constexpr char ZTBufferStreamFile[] = "backend/common/include/BufferStream";

/// Shares the buffer; used by one thread.
class ZTCBufferStream {
  public:
    explicit ZTCBufferStream(const ZTCPointer<ZTCBuffer>& acrBuffer) : mBuffer(acrBuffer) {}
    virtual ~ZTCBufferStream() = default;
    ZTCBufferStream(const ZTCBufferStream&) = delete;
    ZTCBufferStream& operator=(const ZTCBufferStream&) = delete;

    ZTCPointer<ZTCBuffer>& getBuffer() { return mBuffer; }
    const ZTCPointer<ZTCBuffer>& getBuffer() const { return mBuffer; }

    /// The position of the next byte to read.
    unsigned int getOffset() const { return mOffset; }
    unsigned int where() const { return mOffset; }

    /// The buffer's length in bytes.
    unsigned int getLength() const {
        ZT_ASSERT(this->mBuffer != __null, 95, ZTBufferStreamFile);
        return mBuffer->getLength();
    }

    /// The next aCount bytes, which have then been read. Throws ZTCInvalidEx, the position unchanged, when
    /// fewer are left. Valid until the buffer changes.
    const unsigned char* take(unsigned int aCount) {
        if (aCount > getLength() - mOffset) {
            throwOverrun(aCount);
        }
        const unsigned char* const lpBytes = mBuffer->getBytes() + mOffset;
        mOffset += aCount;
        return lpBytes;
    }

  private:
    [[noreturn]] void throwOverrun(unsigned int aCount) const;

    ZTCPointer<ZTCBuffer> mBuffer;
    unsigned int mOffset = 0;
    [[maybe_unused]] ZTCPointer<ZTCBuffer> mReserved;
};
