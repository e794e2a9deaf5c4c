// A remote port that the sensor has asked to watch. Immutable, and small, for there may be very many: it
// holds the bytes of its names.
#pragma once

#include "WorldWideName.h"

class ZTCScopeAgentTarget {
  public:
    /// aFcAddress: the port's 24-bit Fibre Channel address.
    ZTCScopeAgentTarget(const ZTCWorldWideName& acrNodeName, const ZTCWorldWideName& acrPortName,
                        unsigned int aFcAddress)
        : mFcAddress(aFcAddress) {
        ClibMemcpy(mNodeName, acrNodeName.getBinaryForm(), ZTCWorldWideName::Size);
        ClibMemcpy(mPortName, acrPortName.getBinaryForm(), ZTCWorldWideName::Size);
    }

    /// The names' ZTCWorldWideName::Size bytes.
    const unsigned char* getNodeName() const { return mNodeName; }
    const unsigned char* getPortName() const { return mPortName; }
    unsigned int getFcAddress() const { return mFcAddress; }

  private:
    unsigned char mNodeName[ZTCWorldWideName::Size];
    unsigned char mPortName[ZTCWorldWideName::Size];
    unsigned int mFcAddress;
};
