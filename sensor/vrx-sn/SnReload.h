// Reads the options anew, in a thread of its own: the configuration may lie on a disk that stands still.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "SnOptions.h"

/// Used by one thread. A read that is kept holds up nobody, not even the end: it is left to itself then.
class ZTCSnReload {
  public:
    /// acrWords: the command line. Throws std::system_error.
    explicit ZTCSnReload(const std::vector<std::string>& acrWords);
    ~ZTCSnReload();
    ZTCSnReload(const ZTCSnReload&) = delete;
    ZTCSnReload& operator=(const ZTCSnReload&) = delete;

    /// What is asked for while one is under way is read behind it, once. Throws std::system_error.
    void begin();
    /// Is readable when there is something to take.
    int getDescriptor() const;
    /// Throws what the reading threw.
    ZTSSnOptions take();

  private:
    class Shared;
    const std::shared_ptr<Shared> mpShared;
};
