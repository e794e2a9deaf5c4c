// What the system's readers and writers are to those who use them. A server makes its end and opens it; a
// reader or writer moves bytes, all of them or with an exception of the hierarchy.
#pragma once

/// Anything with two ends.
class ZTCIpc {
  public:
    virtual ~ZTCIpc() = default;

    /// Ends the wait of whoever uses this, now and from now on: the process is to exit. Any thread.
    virtual void cancel() = 0;
};

class ZTCReader : public virtual ZTCIpc {
  public:
    /// Reads exactly aLength bytes. Throws when the other end goes away or stops in the middle of them, or
    /// when cancelled.
    virtual void read(void* apBytes, unsigned int aLength) = 0;

    /// Waits until something can be read; throws ZTCTimeOutEx when that takes longer. Returns when cancelled.
    virtual void waitForActivity(unsigned int aSeconds) = 0;
};

class ZTCWriter : public virtual ZTCIpc {
  public:
    /// Writes exactly aLength bytes as the other end takes them. Throws when cancelled.
    virtual void write(const void* apBytes, unsigned int aLength) = 0;
};

/// The end that makes the thing itself. The argument of each is 0.
class ZTCServer : public virtual ZTCIpc {
  public:
    virtual void open(unsigned int aFlags) = 0;
    virtual void close(unsigned int aFlags) = 0;
    virtual void create(unsigned int aFlags) = 0;
    virtual void destroy(unsigned int aFlags) = 0;
};
