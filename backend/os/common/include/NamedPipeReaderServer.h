// The serving side of a pipe that is read: a reader whose every operation is the pipe's.
#pragma once

#include "Log.h"
#include "NamedPipe.h"

inline constexpr char ZTNamedPipeReaderServerFile[] = "backend/os/common/include/NamedPipeReaderServer";

class ZTCNamedPipeReaderServer : public ZTCReader, public ZTCServer {
  public:
    /// Throws ZTCNoMemoryEx, ZTCOsException.
    ZTCNamedPipeReaderServer(const ZTCString& acrPath, unsigned char aMode)
        : mPipe(makePointer<ZTCNamedPipe>(acrPath, ZTNPD_Read, aMode, static_cast<unsigned char>(1))) {
        const ZTCTraceScope lTrace(ZTNamedPipeReaderServerFile);
    }

    void read(void* apBytes, unsigned int aLength) override { mPipe->read(apBytes, aLength); }
    bool waitForActivity(const ZTCActivityWait& acrWait) override { return mPipe->waitForActivity(acrWait); }
    void open(unsigned int aFlags) override { mPipe->open(aFlags); }
    void close(unsigned int aFlags) override { mPipe->close(aFlags); }
    void create(unsigned int aFlags) override { mPipe->create(aFlags); }
    void destroy(unsigned int aFlags) override { mPipe->destroy(aFlags); }
    void cancel() override { mPipe->cancel(); }

  private:
    ZTCPointer<ZTCNamedPipe> mPipe;
};
