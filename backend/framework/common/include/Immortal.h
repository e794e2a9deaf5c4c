// An object that is never destroyed, and takes no memory from the heap: for what threads may still reach
// while the process ends.
#pragma once

#include <new>

/// Made as a function's static, so that it is there from its first use on.
template <class T>
class ZTCImmortal {
  public:
    ZTCImmortal() { ::new (static_cast<void*>(mBytes)) T; }

    T& get() { return *std::launder(reinterpret_cast<T*>(mBytes)); }

  private:
    alignas(T) unsigned char mBytes[sizeof(T)];
};
