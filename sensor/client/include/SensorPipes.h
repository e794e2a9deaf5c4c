// The two pipes of a running agent, from a sensor's side.
#pragma once

#include <chrono>

#include "AnswerReader.h"
#include "SensorFiles.h"

/// One thread. A write never raises SIGPIPE.
class ZTCSensorPipes {
  public:
    using Clock = std::chrono::steady_clock;

    /// Opens both; the second may appear a moment after the first, when an agent starts. Throws
    /// ZTCNoAgentError, ZTCNoPermissionError, ZTCUnsafeFileError, ZTCPipesTakenError (a process that asks
    /// nobody has the command pipe open), ZTCSensorError.
    ZTCSensorPipes(const std::string& acrDirectory, Clock::time_point aDeadline);

    /// Throws ZTCNoAgentError when the agent ends, ZTCTimedOutError; the pipes are of no use after that.
    void send(const ZTSensorBytes& acrCommand, Clock::time_point aDeadline);
    /// The message with this tag, header and body. Throws as send does, and ZTCMalformedAnswerError; after
    /// ZTCTimedOutError it may be asked for again.
    ZTSensorBytes receive(std::uint32_t aTag, Clock::time_point aDeadline);

  private:
    std::size_t readSome(std::uint8_t* apBytes, std::size_t aRoom);
    void waitFor(const ZTCSensorDescriptor& acrPipe, short aEvents) const;

    ZTCSensorDescriptor mCommands;
    ZTCSensorDescriptor mAnswers;
    Clock::time_point mDeadline;
    ZTCAnswerReader mReader;
};
