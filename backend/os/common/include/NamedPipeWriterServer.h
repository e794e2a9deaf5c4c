// The serving side of a pipe that is written: a writer whose every operation is the pipe's.
#pragma once

#include "Log.h"
#include "NamedPipe.h"

inline constexpr char ZTNamedPipeWriterServerFile[] = "backend/os/common/include/NamedPipeWriterServer";

class ZTCNamedPipeWriterServer : public ZTCWriter, public ZTCServer {
  public:
    /// Throws ZTCNoMemoryEx, ZTCOsException.
    ZTCNamedPipeWriterServer(const ZTCString& acrPath, unsigned char aMode)
        : mPipe(makePointer<ZTCNamedPipe>(acrPath, ZTNPD_Write, aMode, static_cast<unsigned char>(1))) {
        const ZTCTraceScope lTrace(ZTNamedPipeWriterServerFile);
    }

    void write(const iovec* apPieces, unsigned int aCount) override { mPipe->write(apPieces, aCount); }
    void open(unsigned int aFlags) override { mPipe->open(aFlags); }
    void close(unsigned int aFlags) override { mPipe->close(aFlags); }
    void create(unsigned int aFlags) override { mPipe->create(aFlags); }
    void destroy(unsigned int aFlags) override { mPipe->destroy(aFlags); }
    void cancel() override { mPipe->cancel(); }
    int getChangeDescriptor() override { return mPipe->getChangeDescriptor(); }
    void settle() override { mPipe->settle(); }

  private:
    ZTCPointer<ZTCNamedPipe> mPipe;
};
