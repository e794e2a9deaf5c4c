// A named pipe, made, opened and removed by the side that serves it.
//
// The reading end is never held up by a sensor that comes and goes between messages, and sees at once when
// one goes away in the middle of a message. The writing end keeps whole messages for a reader that comes
// later, but nothing of a message that a reader left half read: the next one would take it for a message of
// its own.
#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <deque>

#include "Ipc.h"
#include "ZTString.h"

inline constexpr char ZTNamedPipeFile[] = "backend/os/common/include/NamedPipe";

enum ZTENamedPipeDirection : unsigned char { ZTNPD_Read = 1, ZTNPD_Write = 2 };

/// Used by one thread; cancel: any. What fails is ZTCOsException with the operation, the path and the errno's
/// text, unless said otherwise.
class ZTCNamedPipe {
  public:
    static constexpr int Capacity = 1024 * 1024;  ///< of the pipe, in bytes, where the system allows it

    /// The mode and the last byte are the server's; nothing is read into them here.
    ZTCNamedPipe(const ZTCString& acrPath, unsigned char aDirection, unsigned char aMode,
                 unsigned char aServer);
    /// Closes the pipe, and removes it if destroy() has not.
    virtual ~ZTCNamedPipe();
    ZTCNamedPipe(const ZTCNamedPipe&) = delete;
    ZTCNamedPipe& operator=(const ZTCNamedPipe&) = delete;

    /// Opens this end; waits for no other end.
    virtual void open(unsigned int aFlags);
    virtual void close(unsigned int aFlags);
    /// Makes the pipe, or takes one that is there if it is a pipe of ours (no symbolic link, our owner, one
    /// link), and gives it mode 0600. Anything else in its place is left alone and refused.
    virtual void create(unsigned int aFlags);
    /// Removes the pipe, if it is still the one that was made or taken.
    virtual void destroy(unsigned int aFlags);
    virtual void cancel();
    virtual bool isOpen() const { return mDescriptor != 0; }
    /// As ZTCReader::read.
    virtual void read(void* apBytes, unsigned int aLength);
    /// As ZTCWriter::write.
    virtual void write(const iovec* apPieces, unsigned int aCount);
    /// As ZTCReader::waitForActivity.
    virtual bool waitForActivity(const ZTCActivityWait& acrWait);
    unsigned char getMode() const { return mMode; }
    bool isServer() const { return mServer != 0; }
    /// As in ZTCWriter.
    virtual int getChangeDescriptor() const { return mChange; }
    virtual void settle();

  private:
    int descriptor() const { return static_cast<int>(mDescriptor); }
    int openAnew(int aFlags) const;
    void reopen();
    void waitUntilWritable();
    void setKeeper(bool aOn);
    unsigned int unread() const;
    std::uint64_t readSoFar() const;
    bool hasReader() const;
    bool isHalfRead();
    void drop();
    [[noreturn]] void fail(const char* apOperation, int aErrno) const;
    [[noreturn]] void throwCancelled() const;

    const ZTCString mPath;
    unsigned int mDescriptor = 0;  ///< of the open end; 0 until opened
    const unsigned char mMode;
    const unsigned char mDirection;
    const unsigned char mServer;

    int mIdentity = -1;  ///< the pipe itself, whatever happens to its path
    int mCancel = -1;    ///< readable once cancelled

    // The writing end.
    int mChange = -1;                 ///< readable when a reader has come or gone
    int mKeeper = -1;                 ///< a reading end of our own, while nobody else has one
    std::uint64_t mWritten = 0;       ///< bytes, since it was opened
    std::uint64_t mEndOfRead = 0;     ///< where the last message ended that was read whole, in bytes written
    std::deque<std::uint64_t> mEnds;  ///< where the messages that may be in the pipe end
};
