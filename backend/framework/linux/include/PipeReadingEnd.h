// The reading end of a named pipe: never held up by a writer that comes and goes between messages, and told
// at once of one that goes away in the middle of a message.
#pragma once

#include "Ipc.h"
#include "PipeEnd.h"

class ZTCPipeReadingEnd : public ZTCPipeEnd {
  public:
    /// Throws ZTCOsException.
    ZTCPipeReadingEnd(const ZTCPointer<ZTCPipeFile>& acrFile, int aCancel);

    /// As ZTCReader::waitForActivity.
    bool waitForActivity(const ZTCActivityWait& acrWait);
    /// As ZTCReader::read.
    void read(void* apBytes, unsigned int aLength);
};
