// How a sensor's dealings with the agent fail: one type a cause. Each text is one line that says what to do.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <stdexcept>
#include <string>

/// Any failure of the client; by itself: the system's, with the operation and its errno in the text.
class ZTCSensorError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Nobody serves the pipes, or who did has ended before the answer was whole.
class ZTCNoAgentError : public ZTCSensorError {
  public:
    using ZTCSensorError::ZTCSensorError;
};

/// The caller may not use the directory or its pipes.
class ZTCNoPermissionError : public ZTCSensorError {
  public:
    using ZTCSensorError::ZTCSensorError;
};

/// What stands in a pipe's or a file's place is not to be trusted.
class ZTCUnsafeFileError : public ZTCSensorError {
  public:
    using ZTCSensorError::ZTCSensorError;
};

/// Another client has the pipes.
class ZTCPipesTakenError : public ZTCSensorError {
  public:
    ZTCPipesTakenError(const std::string& acrText, pid_t aHolder)
        : ZTCSensorError(acrText), mHolder(aHolder) {}

    /// Its process; 0 if it cannot be seen.
    pid_t getHolder() const { return mHolder; }

  private:
    pid_t mHolder;
};

/// The deadline passed.
class ZTCTimedOutError : public ZTCSensorError {
  public:
    using ZTCSensorError::ZTCSensorError;
};

/// What came is no message, or not the answer that its command has.
class ZTCMalformedAnswerError : public ZTCSensorError {
  public:
    using ZTCSensorError::ZTCSensorError;
};

/// The agent answered with a failure.
class ZTCRefusedError : public ZTCSensorError {
  public:
    ZTCRefusedError(const std::string& acrText, std::uint16_t aCode)
        : ZTCSensorError(acrText), mCode(aCode) {}

    /// The failure code, as it came.
    std::uint16_t getCode() const { return mCode; }

  private:
    std::uint16_t mCode;
};
