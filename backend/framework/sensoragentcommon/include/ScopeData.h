// One block of collected event data, with its event kind and, when the remote port is a registered target,
// that target's names. Used under the scope-data lock, or by one thread.
#pragma once

#include "Pointer.h"
#include "ScopeEvent.h"
#include "WorldWideName.h"

class ZTCEncodableOutStream;

class ZTCScopeData {
  public:
    /// Copies aLength bytes. aCeiling is the per-record data ceiling, in bytes. Throws ZTCNoMemoryEx.
    ZTCScopeData(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apData, unsigned int aLength,
                 unsigned int aCeiling);
    /// The same with the target's node name and port name, whose bytes are copied.
    ZTCScopeData(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apData, unsigned int aLength,
                 unsigned int aCeiling, const ZTCPointer<ZTCWorldWideName>& acrNodeName,
                 const ZTCPointer<ZTCWorldWideName>& acrPortName);
    ~ZTCScopeData();
    ZTCScopeData(const ZTCScopeData&) = delete;
    ZTCScopeData& operator=(const ZTCScopeData&) = delete;

    const ZTCScopeEvent& getEvent() const { return *mEvent; }

    /// The event data: getLength() bytes, which may be changed in place. Valid until the next append.
    unsigned char* getEventData() { return mpData; }
    unsigned int getLength() const { return mLength; }

    /// Whether the event data stays below the ceiling with aCount bytes more.
    bool mayGrowBy(unsigned int aCount) const {
        return static_cast<unsigned long>(mLength) + aCount < mCeiling;
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
    static constexpr unsigned int InlineRoom = 24;  ///< most blocks fit and need no memory of their own

    ZTCPointer<ZTCScopeEvent> mEvent;
    unsigned char* mpData = mInline;
    unsigned int mLength = 0;
    unsigned int mRoom = InlineRoom;
    unsigned int mCeiling;
    bool mHasNames = false;
    unsigned char mNames[NamesSize];
    unsigned char mInline[InlineRoom];
};
