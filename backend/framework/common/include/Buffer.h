// A block of bytes, and the manager that hands blocks out and takes them back.
//
// A ZTCBuffer is held in ZTCPointer<ZTCBuffer> and used by one thread at a time; the manager is safe from
// any.
#pragma once

#include <cstddef>

#include "Pointer.h"

/// Bytes with a length, in room that grows. The length is at most MaxLength.
class ZTCBuffer {
  public:
    static constexpr unsigned int MaxLength = 0xffffffff;

    /// An empty buffer with room for aRoom bytes. Throws ZTCNoMemoryEx.
    explicit ZTCBuffer(unsigned int aRoom);
    ~ZTCBuffer() { free(mpBytes); }
    ZTCBuffer(const ZTCBuffer&) = delete;
    ZTCBuffer& operator=(const ZTCBuffer&) = delete;

    unsigned char* getBytes() { return mpBytes; }
    const unsigned char* getBytes() const { return mpBytes; }
    unsigned int getLength() const { return mLength; }
    unsigned int getRoom() const { return mRoom; }

    /// Makes the length aLength; new bytes are not set. Throws ZTCNoMemoryEx, the buffer unchanged.
    void setLength(unsigned int aLength) {
        if (aLength > mRoom) {
            grow(aLength);
        }
        mLength = aLength;
    }

    /// Makes the buffer longer by aCount bytes and returns where they begin: the one check of what is
    /// written. They are not set; the address is valid until the next call. Throws ZTCNoMemoryEx, the buffer
    /// unchanged.
    unsigned char* extend(unsigned int aCount) {
        reserve(aCount);
        unsigned char* const lpNew = mpBytes + mLength;
        mLength += aCount;
        return lpNew;
    }

    /// Makes room for aCount bytes more. Throws ZTCNoMemoryEx, the buffer unchanged.
    void reserve(std::size_t aCount) {
        if (aCount > mRoom - mLength) {
            if (aCount > MaxLength - mLength) {
                throwNoMemory();
            }
            grow(static_cast<unsigned int>(mLength + aCount));
        }
    }

    void clear() { mLength = 0; }

  private:
    void grow(unsigned int aLength);

    unsigned char* mpBytes;
    unsigned int mLength = 0;
    unsigned int mRoom;
};
