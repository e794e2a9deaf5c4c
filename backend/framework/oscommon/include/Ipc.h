// What the system's readers and writers are to those who use them. A server makes its end and opens it; a
// reader or writer moves whole messages, or throws an exception of the hierarchy. Read, write and wait: one
// thread.
#pragma once

#include <sys/uio.h>

#include <ctime>

/// Anything with two ends.
class ZTCIpc {
  public:
    virtual ~ZTCIpc() = default;

    /// Ends the wait of whoever uses this, now and from now on: the process is to exit. Any thread.
    virtual void cancel() = 0;
};

/// A wait for something to read.
struct ZTCActivityWait {
    timespec mDeadline;  ///< by CLOCK_MONOTONIC
    int mWatched;        ///< a descriptor whose becoming readable ends the wait as well; -1 for none
};

class ZTCReader : public virtual ZTCIpc {
  public:
    /// Reads exactly aLength bytes. Throws ZTCOpsException when the other end goes away or stops for too long
    /// in the middle of them, ZTCHaltEx when cancelled, ZTCOsException.
    virtual void read(void* apBytes, unsigned int aLength) = 0;

    /// Waits until there is something to read, and returns true. Returns false when cancelled or when the
    /// watched descriptor is readable. Throws ZTCTimeOutEx, ZTCOsException.
    virtual bool waitForActivity(const ZTCActivityWait& acrWait) = 0;
};

class ZTCWriter : public virtual ZTCIpc {
  public:
    /// Writes all the pieces, at most four, as one message, as the other end takes them. What an other end
    /// that goes away in the middle has left of it is dropped, with a warning. Throws ZTCHaltEx when
    /// cancelled, ZTCOsException.
    virtual void write(const iovec* apPieces, unsigned int aCount) = 0;

    /// Readable when the other end has come or gone since the last settle(); -1 when that cannot happen.
    virtual int getChangeDescriptor() { return -1; }
    /// Drops what an other end that has gone left of a message half read.
    virtual void settle() {}
};

/// The end that makes the thing itself. The argument of each is 0.
class ZTCServer : public virtual ZTCIpc {
  public:
    virtual void open(unsigned int aFlags) = 0;
    virtual void close(unsigned int aFlags) = 0;
    virtual void create(unsigned int aFlags) = 0;
    virtual void destroy(unsigned int aFlags) = 0;
};
