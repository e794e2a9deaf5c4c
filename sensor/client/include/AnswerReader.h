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
    static constexpr std::size_t MaxAnswer = 64 * 1024 * 1024;

    explicit ZTCAnswerReader(Source aSource) : mSource(std::move(aSource)) {}

    /// The message with this tag, header and body. Those with other tags were meant for clients before this
    /// one and are thrown away; so is the rest of one that a client before this one has half read, which can
    /// only be what comes first. Memory grows with what has come, not with what a header claims. Throws
    /// ZTCMalformedAnswerError, and what the source throws.
    ZTSensorBytes read(std::uint32_t aTag);

  private:
    ZTSSensorHeader readHeader();
    void fill();
    void readInto(std::uint8_t* apBytes, std::size_t aCount);
    void skip(std::size_t aCount);

    Source mSource;
    ZTSensorBytes mBuffer;
    std::size_t mAt = 0;     ///< what of the buffer has been read
    bool mIsInStep = false;  ///< a header has been seen where one has to be
};
