// How the store fails. Each text is one line that says what to do.
#pragma once

#include <stdexcept>
#include <string>

enum class ZTEStoreFault : unsigned char {
    Busy,      ///< somebody holds a lock, or keeps the log from being emptied: it may be over in a moment
    Full,      ///< the disk is full
    ReadOnly,  ///< the disk, or the file
    Io,        ///< the disk fails
    Memory,    ///< none is left
    Damaged,   ///< the file is no store, or not a whole one
    Newer,     ///< a newer version has made it
    Unusable,  ///< it cannot be there: no folder, no permission, another vrx-sn has it
};

class ZTCStoreError : public std::runtime_error {
  public:
    ZTCStoreError(ZTEStoreFault aFault, const std::string& acrText)
        : std::runtime_error(acrText), mFault(aFault) {}

    ZTEStoreFault getFault() const { return mFault; }
    /// What was asked for can be tried again later.
    bool mayPass() const { return mFault <= ZTEStoreFault::Memory; }

  private:
    ZTEStoreFault mFault;
};
