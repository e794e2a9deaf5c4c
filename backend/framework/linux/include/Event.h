// Something that happens and can be waited for together with other descriptors.
#pragma once

#include "Descriptor.h"

class ZTCEvent {
  public:
    /// Throws ZTCOsException.
    ZTCEvent();

    /// It has happened, until somebody clears it. Any thread, any number of times.
    void set();
    void clear();

    /// Readable while it has happened.
    int getDescriptor() const { return mDescriptor.get(); }

  private:
    ZTCDescriptor mDescriptor;
};
