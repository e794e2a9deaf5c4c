// A named pipe as a file: made or taken, opened by either end, removed.
#pragma once

#include "Descriptor.h"
#include "ZTString.h"

/// What fails is ZTCOsException with the operation, the path and the errno's text, unless said otherwise.
class ZTCPipeFile {
  public:
    explicit ZTCPipeFile(const ZTCString& acrPath) : mPath(acrPath) {}

    /// As ZTCNamedPipe::create.
    void make();
    /// As ZTCNamedPipe::destroy.
    void remove();

    /// Opens an end (O_RDONLY, O_WRONLY) of the pipe that was made or taken, whatever has become of its path.
    /// A writing end can be opened only while there is a reading one.
    ZTCDescriptor openEnd(int aAccess) const;
    /// Readable as soon as somebody reads from the pipe; not open when the system has no more of these.
    ZTCDescriptor watchReading() const;

    const char* getPath() const { return mPath.get(); }
    [[noreturn]] void fail(const char* apOperation, int aErrno) const;

  private:
    const ZTCString mPath;
    ZTCDescriptor mIdentity;  ///< the pipe itself, without an end of it
};
