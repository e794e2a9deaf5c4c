// A named pipe, made, opened and removed by the side that serves it: the pipe's file, and the end of it that
// is open. What the ends do for the other side is told with them.
#pragma once

#include <sys/uio.h>

#include "Descriptor.h"
#include "Ipc.h"
#include "Pointer.h"
#include "ZTString.h"

class ZTCPipeFile;
class ZTCPipeReadingEnd;
class ZTCPipeWritingEnd;

enum ZTENamedPipeDirection : unsigned char { ZTNPD_Read = 1, ZTNPD_Write = 2 };

/// Used by one thread; cancel: any. What fails is ZTCOsException with the operation, the path and the errno's
/// text, unless said otherwise.
class ZTCNamedPipe {
  public:
    static constexpr int Capacity = 1024 * 1024;  ///< of the pipe, in bytes, where the system allows it

    /// The mode and the last byte are the server's; nothing here depends on them.
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
    /// Removes the pipe, if it is still the one that was made or taken. An end that is open stays usable,
    /// also by another thread meanwhile.
    virtual void destroy(unsigned int aFlags);
    virtual void cancel();
    virtual bool isOpen() const;
    /// As ZTCReader::read.
    virtual void read(void* apBytes, unsigned int aLength);
    /// As ZTCWriter::write.
    virtual void write(const iovec* apPieces, unsigned int aCount);
    /// As ZTCReader::waitForActivity.
    virtual bool waitForActivity(const ZTCActivityWait& acrWait);
    /// As in ZTCWriter.
    virtual int getChangeDescriptor() const;
    virtual void settle();

  private:
    const ZTCPointer<ZTCPipeFile> mFile;
    const unsigned char mDirection;
    ZTCDescriptor mCancel;  ///< readable once cancelled
    // The one that the direction says, as long as it is open.
    ZTCPointer<ZTCPipeReadingEnd> mReadingEnd;
    ZTCPointer<ZTCPipeWritingEnd> mWritingEnd;
};
