// An address in its printed form. Immutable.
#pragma once

#include "ZTString.h"

class ZTCIpAddress {
  public:
    explicit ZTCIpAddress(const ZTCString& acrText) : mText(acrText) {}
    const ZTCString& getText() const { return mText; }

  private:
    ZTCString mText;
};
