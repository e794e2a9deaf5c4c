// One block of collected event data, with its event kind and, when the remote port is a registered target,
// that target's names: what a record is made of.
#pragma once

#include "BigEndian.h"
#include "ScopeEvent.h"
#include "WorldWideName.h"

class ZTCEncodableOutStream;

/// A view: the bytes and the names are the caller's, and have to live as long as it is used.
class ZTCScopeData {
  public:
    static constexpr unsigned int FixedSize = 1 + 1 + 1 + 4;
    static constexpr unsigned int NamesSize = 2 * ZTCWorldWideName::Size;

    ZTCScopeData(const ZTCScopeEvent& acrEvent, const unsigned char* apData, unsigned int aLength)
        : ZTCScopeData(acrEvent, apData, aLength, nullptr, nullptr) {}
    /// The same with the bytes of the target's node name and port name.
    ZTCScopeData(const ZTCScopeEvent& acrEvent, const unsigned char* apData, unsigned int aLength,
                 const unsigned char* apNodeName, const unsigned char* apPortName)
        : mpData(apData),
          mpNodeName(apNodeName),
          mpPortName(apPortName),
          mLength(aLength),
          mCategory(static_cast<unsigned char>(acrEvent.getCategory())),
          mSubcategory(static_cast<unsigned char>(acrEvent.getSubcategory())) {}

    ZTCScopeEvent getEvent() const { return {mCategory, mSubcategory}; }
    /// The event data, which may be null as long as it is not encoded.
    const unsigned char* getEventData() const { return mpData; }
    /// The number of its bytes.
    unsigned int getLength() const { return mLength; }

    /// The bytes of the encoded form: what counts against the limit on all collected data.
    unsigned int getSize() const { return FixedSize + (mpNodeName != nullptr ? NamesSize : 0) + mLength; }
    /// Category, subcategory, whether names follow, the names, the length and the event data.
    void encode(ZTCEncodableOutStream& arStream) const;
    /// The same, without the event data, into room for it; returns where the event data goes.
    unsigned char* encodeHead(unsigned char* apTo) const {
        unsigned char* lpAt = ztwire::put(apTo, mCategory);
        lpAt = ztwire::put(lpAt, mSubcategory);
        lpAt = ztwire::put(lpAt, static_cast<unsigned char>(mpNodeName != nullptr ? 1 : 0));
        if (mpNodeName != nullptr) {
            lpAt = ztwire::put(lpAt, mpNodeName, ZTCWorldWideName::Size);
            lpAt = ztwire::put(lpAt, mpPortName, ZTCWorldWideName::Size);
        }
        return ztwire::put(lpAt, mLength);
    }

  private:
    const unsigned char* mpData;
    const unsigned char* mpNodeName;  ///< null: no names
    const unsigned char* mpPortName;
    unsigned int mLength;
    unsigned char mCategory;
    unsigned char mSubcategory;
};
