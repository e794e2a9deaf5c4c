// How a sensor opens the files in the agent's runtime directory (ScopeWire.h has their names).
#pragma once

#include <string>
#include <utility>

#include "SensorError.h"

/// A descriptor that is closed with its owner.
class ZTCSensorDescriptor {
  public:
    explicit ZTCSensorDescriptor(int aDescriptor = -1) : mDescriptor(aDescriptor) {}
    ZTCSensorDescriptor(ZTCSensorDescriptor&& arOther) noexcept : mDescriptor(arOther.release()) {}
    ZTCSensorDescriptor& operator=(ZTCSensorDescriptor&& arOther) noexcept;
    ZTCSensorDescriptor(const ZTCSensorDescriptor&) = delete;
    ZTCSensorDescriptor& operator=(const ZTCSensorDescriptor&) = delete;
    ~ZTCSensorDescriptor();

    int get() const { return mDescriptor; }
    bool isOpen() const { return mDescriptor >= 0; }
    /// Leaves it to the caller to close.
    int release() { return std::exchange(mDescriptor, -1); }

  private:
    int mDescriptor;
};

/// Throws the error that fits errno: ZTCNoAgentError (there is no such file, or a pipe that nobody reads),
/// ZTCNoPermissionError, ZTCUnsafeFileError (a symbolic link), else ZTCSensorError.
[[noreturn]] void throwSensorErrno(const std::string& acrPath, int aErrno);

/// Whose file may be read.
enum class ZTEFileOf : unsigned char {
    Ours,    ///< the caller's or root's, with one name
    Anybody  ///< what is in it is believed by nobody
};

/// Opens a file without following a link in its place (a directory's may be one) and without waiting for
/// anything. It is looked at before: it must be of the type (S_IFIFO, S_IFREG, S_IFDIR) and belong to whom it
/// should, and a pipe must not be open to others. Throws as throwSensorErrno does.
ZTCSensorDescriptor openSensorFile(const std::string& acrPath, int aFlags, unsigned int aType,
                                   ZTEFileOf aOf = ZTEFileOf::Ours);
