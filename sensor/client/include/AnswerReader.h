// Finds the answer to a command in what comes out of the output pipe.
#pragma once

#include <functional>

#include "SensorMessages.h"

/// One thread.
class ZTCAnswerReader {
  public:
    /// Waits for bytes and returns how many it has put at the address, at least one. It throws when there are
    /// none.
    using Source = std::function<std::size_t(std::uint8_t* apBytes, std::size_t aRoom)>;

    /// Longer answers are not believed. An agent's are about a megabyte at the most.
    static constexpr std::size_t MaxAnswer = 4 * 1024 * 1024;

    explicit ZTCAnswerReader(Source aSource) : mSource(std::move(aSource)) {}

    /// The message with this tag, header and body. Those with other tags were meant for clients before this
    /// one and are thrown away; so is the rest of one that a client before this one has half read, which can
    /// only be what comes first. Memory grows with what has come, not with what a header claims. Throws
    /// ZTCMalformedAnswerError, and what the source throws: after that the next read goes on where this
    /// stopped.
    ZTSensorBytes read(std::uint32_t aTag);

  private:
    ZTSSensorHeader readHeader();
    void fill();

    Source mSource;
    ZTSensorBytes mBuffer;
    std::size_t mAt = 0;                     ///< what of the buffer has been read
    std::size_t mSkipped = 0;                ///< bytes before the first header
    bool mIsInStep = false;                  ///< a header has been seen where one has to be
    std::optional<ZTSSensorHeader> mHeader;  ///< of the message that is being read
    ZTSensorBytes mMessage;                  ///< what of it is kept, header and body
    std::size_t mLeft = 0;                   ///< of its body
};
