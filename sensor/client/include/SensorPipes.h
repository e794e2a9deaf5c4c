// The two pipes of a running agent, from a sensor's side.
#pragma once

#include <chrono>

#include "AnswerReader.h"
#include "SensorFiles.h"

/// One thread. A write never raises SIGPIPE.
class ZTCSensorPipes {
  public:
    using Clock = std::chrono::steady_clock;

    /// Opens both. Throws ZTCNoAgentError, ZTCNoPermissionError, ZTCUnsafeFileError, ZTCPipesTakenError (a
    /// process that asks nobody has the command pipe open), ZTCSensorError.
    explicit ZTCSensorPipes(const std::string& acrDirectory);

    /// Writes a command and reads the message that answers it. Throws ZTCNoAgentError when the agent ends,
    /// ZTCTimedOutError, ZTCMalformedAnswerError; the pipes are of no use after that.
    ZTSensorBytes ask(const ZTSensorBytes& acrCommand, std::uint32_t aTag, Clock::time_point aDeadline);

  private:
    void write(const ZTSensorBytes& acrBytes);
    std::size_t readSome(std::uint8_t* apBytes, std::size_t aRoom);
    void waitFor(const ZTCSensorDescriptor& acrPipe, short aEvents) const;

    ZTCSensorDescriptor mCommands;
    ZTCSensorDescriptor mAnswers;
    Clock::time_point mDeadline;
    ZTCAnswerReader mReader;
};
