// The capabilities of the calling thread. A thread opens with them what it needs, and goes on without.
#pragma once

#include <cstdint>

/// No capability is in effect any more; those that were permitted stay so, for ZTCFcRaisedRights. False: the
/// kernel does not let go of them, and errno says why.
bool giveUpFcRights() noexcept;

/// Whether one is in effect.
bool hasFcRight(unsigned int aCapability) noexcept;

/// What is permitted is in effect while it lives; then what was before.
class ZTCFcRaisedRights {
  public:
    ZTCFcRaisedRights() noexcept;
    ~ZTCFcRaisedRights();
    ZTCFcRaisedRights(const ZTCFcRaisedRights&) = delete;
    ZTCFcRaisedRights& operator=(const ZTCFcRaisedRights&) = delete;

  private:
    std::uint64_t mBefore;
};
