// The encoding of values on the pipes (docs/protocol.md): integers big-endian in their own width, text as a
// 32-bit length and its bytes. Commands have no text, so none is read. Used by one thread.
#pragma once

#include "BigEndian.h"
#include "BufferStream.h"
#include "ZTString.h"

/// Writes values at the end of a buffer. Every write throws ZTCNoMemoryEx when the buffer cannot grow; what
/// was written before it is then still whole.
class ZTCEncodableOutStream {
  public:
    explicit ZTCEncodableOutStream(const ZTCPointer<ZTCBuffer>& acrBuffer) : mBuffer(acrBuffer) {}
    virtual ~ZTCEncodableOutStream() = default;
    ZTCEncodableOutStream(const ZTCEncodableOutStream&) = delete;
    ZTCEncodableOutStream& operator=(const ZTCEncodableOutStream&) = delete;

    ZTCEncodableOutStream& operator<<(const unsigned char& acrValue) { return putInteger(acrValue); }
    ZTCEncodableOutStream& operator<<(const unsigned short& acrValue) { return putInteger(acrValue); }
    ZTCEncodableOutStream& operator<<(const unsigned int& acrValue) { return putInteger(acrValue); }
    ZTCEncodableOutStream& operator<<(const int& acrValue) { return putInteger(acrValue); }
    ZTCEncodableOutStream& operator<<(const ZTCString& acrValue);

    /// Room for aCount bytes at the end, to be filled with ztwire::put: one check for a value of many fields.
    unsigned char* extend(unsigned int aCount) { return mBuffer->extend(aCount); }

    /// Makes room for so many bytes to come: one piece of work instead of several, when they are many.
    void reserve(std::size_t aCount) { mBuffer->reserve(aCount); }

    /// The bytes written so far.
    const ZTCPointer<ZTCBuffer>& getBuffer() const { return mBuffer; }

  private:
    template <class Integer>
    ZTCEncodableOutStream& putInteger(Integer aValue) {
        ztwire::put(extend(sizeof aValue), aValue);
        return *this;
    }

    ZTCPointer<ZTCBuffer> mBuffer;
};

/// The same over a buffer of its own that expands as needed.
class ZTCBufferExpOutStream : public ZTCEncodableOutStream {
  public:
    /// Throws ZTCNoMemoryEx.
    explicit ZTCBufferExpOutStream(unsigned int aInitialSize)
        : ZTCEncodableOutStream(makePointer<ZTCBuffer>(aInitialSize)) {}
};

/// Reads values from a buffer stream. A value that is not whole is ZTCInvalidEx; nothing beyond the buffer's
/// length is read.
class ZTCEncodableInStream {
  public:
    explicit ZTCEncodableInStream(ZTCBufferStream& arStream) : mrStream(arStream) {}

    ZTCEncodableInStream& operator>>(unsigned char& arValue) { return getInteger(arValue); }
    ZTCEncodableInStream& operator>>(unsigned int& arValue) { return getInteger(arValue); }

    /// The next aCount bytes: one check for a value of many fields. Valid until the buffer changes.
    const unsigned char* take(unsigned int aCount) { return mrStream.take(aCount); }

  private:
    template <class Integer>
    ZTCEncodableInStream& getInteger(Integer& arValue) {
        arValue = ztwire::get<Integer>(take(sizeof arValue));
        return *this;
    }

    ZTCBufferStream& mrStream;
};
