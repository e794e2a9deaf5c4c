// Files of raw answers: the messages as they came from the pipe, one after the other. AnswerInput.h reads
// them.
#pragma once

#include <optional>
#include <string>

#include "Failure.h"
#include "SensorFiles.h"
#include "SensorMessages.h"

/// A message that could not be saved, and that nobody else has.
class ZTCUnsavedAnswer : public ZTCScopeFailure {
  public:
    ZTCUnsavedAnswer(const std::string& acrText, ZTSensorBytes aMessage)
        : ZTCScopeFailure(acrText), mMessage(std::move(aMessage)) {}

    const ZTSensorBytes& getMessage() const { return mMessage; }

  private:
    ZTSensorBytes mMessage;
};

/// Adds messages to a file. One thread.
class ZTCAnswerFile {
  public:
    /// Opens it to be added to. Throws ZTCScopeFailure, also when what it holds is not whole answers.
    explicit ZTCAnswerFile(std::string aPath);

    /// The message is on the disk, whole, when this returns; when it cannot be, the file is as it was, and
    /// the next one may be tried. Throws ZTCUnsavedAnswer.
    void add(const ZTSensorBytes& acrMessage);

  private:
    void checkWhole() const;

    std::string mPath;
    ZTCSensorDescriptor mFile;
    std::optional<off_t> mWholeEnd;  ///< where the last whole message ends, if half a one stands behind it
};
