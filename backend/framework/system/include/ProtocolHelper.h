// Messages on the pipes: a 12-byte header (magic, tag, body length) and a body, in both directions. See
// docs/protocol.md.
#pragma once

#include "Buffer.h"
#include "Ipc.h"

/// Used by one thread, which reads a command and writes its response before it reads the next.
class ZTCProtocolHelper {
  public:
    /// Reads one whole message and makes arBuffer its body. Throws ZTCInvalidEx for a wrong magic and for a
    /// length of 0 or above ZTWireMaxCommand, and what the reader throws. aFlags is 0.
    void read(ZTCPointer<ZTCReader>& arReader, ZTCPointer<ZTCBuffer>& arBuffer, unsigned int aFlags);

    /// Writes the buffer as one message, with the tag of the message that was read last. aFlags is 0.
    void write(ZTCPointer<ZTCWriter>& arWriter, const ZTCPointer<ZTCBuffer>& acrBuffer, unsigned int aFlags);

  private:
    unsigned int mTag = 0;
};
