// The writing end of a named pipe: what is written stays in the pipe for a reader that comes later, but
// nothing of a message that a reader left half read, which the next one would take for the beginning of a
// message.
//
// The kernel takes bytes only while somebody has a reading end open, and keeps them as long as this end is
// open. So this class opens a reading end of its own when it has to write and nobody else has one. While it
// is open the kernel does not tell when the last other reader goes, so it is closed as soon as it can be.
//
//   this end        | others read | its own reader       | when a reader leaves a message half read
//   ----------------+-------------+----------------------+-------------------------------------------------
//   rests           | yes         | closed               | the kernel tells of it; settle() drops the rest
//   rests           | no          | closed               | -
//   writes or waits | yes         | closed               | the write fails (EPIPE); the rest is dropped
//   writes          | no          | open until all is in | it came and went in between: settle() drops it
//   waits for room  | no          | open until a reading | it was seen to read: as where others read
//   drops a rest    | no          | open, reads the rest | -
//
// Dropping takes out the rest of one message, whose end is known, and no byte behind it, unless somebody
// begins to read in that moment. If that message is still being written, what is missing of it is not written
// either; if another one is, its writing goes on. Bytes that somebody else has written into the pipe are
// dropped when nobody reads, with all that is in it.
#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <deque>

#include "PipeEnd.h"

class ZTCPipeWritingEnd : public ZTCPipeEnd {
  public:
    /// Throws ZTCOsException, ZTCNoMemoryEx.
    ZTCPipeWritingEnd(const ZTCPointer<ZTCPipeFile>& acrFile, int aCancel);

    /// As in ZTCWriter.
    void write(const iovec* apPieces, unsigned int aCount);
    int getChangeDescriptor() const { return mChange.get(); }
    void settle();

  private:
    void waitUntilWritable();
    void openOwnReader();
    bool hasReader() const;
    bool isHalfRead();
    void drop();

    ZTCDescriptor mChange;     ///< readable when a reader has come or gone
    ZTCDescriptor mOwnReader;  ///< open as in the table

    // Places in the stream of bytes: how many were written before.
    std::uint64_t mWritten = 0;  ///< all that was written
    std::uint64_t mFirst = 0;    ///< where the first message begins that has not been read whole
    std::deque<std::uint64_t>
        mEnds;  ///< where that one and those behind it end; the one being written has none
};
