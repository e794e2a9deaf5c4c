// One block of collected event data, with its event kind and, when the remote port is a registered target,
// that target's names. Used under the scope-data lock, or by one thread.
#pragma once

#include "ScopeEvent.h"
#include "WorldWideName.h"

class ZTCEncodableOutStream;

/// Small, for there are many: the kind is held as its two bytes, and most blocks need no memory of their own.
class ZTCScopeData {
  public:
    /// Copies the kind and aLength bytes. aCeiling is the per-record data ceiling of now, in bytes; growth is
    /// judged by the one of its own time. Throws ZTCNoMemoryEx.
    ZTCScopeData(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apData, unsigned int aLength,
                 unsigned int aCeiling);
    /// The same with the bytes of the target's node name and port name.
    ZTCScopeData(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apData, unsigned int aLength,
                 unsigned int aCeiling, const unsigned char* apNodeName, const unsigned char* apPortName);
    ~ZTCScopeData();
    ZTCScopeData(const ZTCScopeData&) = delete;
    ZTCScopeData& operator=(const ZTCScopeData&) = delete;

    ZTCScopeEvent getEvent() const { return {mCategory, mSubcategory}; }

    /// The event data: getLength() bytes, which may be changed in place. Valid until the next append.
    unsigned char* getEventData() { return isInline() ? mBytes.mInline : mBytes.mpOutside; }
    const unsigned char* getEventData() const { return isInline() ? mBytes.mInline : mBytes.mpOutside; }
    unsigned int getLength() const { return mLength; }

    /// Whether the event data stays below a ceiling with aCount bytes more.
    bool mayGrowBy(unsigned int aCount, unsigned int aCeiling) const {
        return static_cast<unsigned long>(mLength) + aCount < aCeiling;
    }
    /// Adds bytes to the event data. Throws ZTCNoMemoryEx, the data unchanged.
    void appendEventData(const unsigned char* apData, unsigned int aLength);

    /// The bytes of the encoded form: what counts against the limit on all collected data.
    unsigned int getSize() const { return FixedSize + (mHasNames ? NamesSize : 0) + mLength; }
    /// Category, subcategory, whether names follow, the names, the length and the event data.
    void encode(ZTCEncodableOutStream& arStream) const;
    /// The same into getSize() bytes of room; returns the address behind them.
    unsigned char* encode(unsigned char* apTo) const;

  private:
    static constexpr unsigned int FixedSize = 1 + 1 + 1 + 4;
    static constexpr unsigned int NamesSize = 2 * ZTCWorldWideName::Size;
    static constexpr unsigned int InlineRoom = 32;

    bool isInline() const { return mRoom == InlineRoom; }

    union {
        unsigned char mInline[InlineRoom];
        unsigned char* mpOutside;  ///< when there is more room than that
    } mBytes;
    unsigned char mNames[NamesSize];
    unsigned int mLength = 0;
    unsigned int mRoom = InlineRoom;
    unsigned char mCategory;
    unsigned char mSubcategory;
    bool mHasNames = false;
};
