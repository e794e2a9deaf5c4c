// A remote port that the sensor has asked to watch. Immutable.
#pragma once

#include "WorldWideName.h"

class ZTCScopeAgentTarget {
  public:
    /// Shares the names. aFcAddress: the port's 24-bit Fibre Channel address.
    ZTCScopeAgentTarget(const ZTCPointer<ZTCWorldWideName>& acrNodeName,
                        const ZTCPointer<ZTCWorldWideName>& acrPortName, unsigned int aFcAddress)
        : mNodeName(acrNodeName), mPortName(acrPortName), mFcAddress(aFcAddress) {}
    virtual ~ZTCScopeAgentTarget() = default;

    const ZTCPointer<ZTCWorldWideName>& getNodeName() const { return mNodeName; }
    const ZTCPointer<ZTCWorldWideName>& getPortName() const { return mPortName; }
    unsigned int getFcAddress() const { return mFcAddress; }

  private:
    ZTCPointer<ZTCWorldWideName> mNodeName;
    ZTCPointer<ZTCWorldWideName> mPortName;
    unsigned int mFcAddress;
};
