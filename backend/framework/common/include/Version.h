// A version number of four parts.
#pragma once

#include "ZTString.h"

class ZTCVersion {
  public:
    ZTCVersion(unsigned int aMajor, unsigned int aMinor, unsigned int aRelease, unsigned int aBuild);

    /// "MAJOR.MINOR.RELEASE.BUILD", valid as long as this object.
    const ZTCString& getText() const { return mText; }

  private:
    ZTCString mText;
};
