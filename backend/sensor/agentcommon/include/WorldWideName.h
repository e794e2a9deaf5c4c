// A Fibre Channel world wide name: 8 bytes, printed as 20:00:00:25:b5:01:00:0a.
#pragma once

#include <atomic>
#include <optional>

#include "Log.h"
#include "ZTString.h"

class ZTCEncodableInStream;

inline constexpr char ZTWorldWideNameFile[] = "backend/sensor/agentcommon/include/WorldWideName";

/// Reading is safe from any thread; setting is not, beside a reader. Names are compared by their 8 bytes; the
/// printed form is made when somebody first asks for it.
class ZTCWorldWideName {
  public:
    static constexpr unsigned int Size = 8;

    /// The printed form of a name's Size bytes, of which no object need be made.
    class Text {
      public:
        explicit Text(const unsigned char* apBinary);
        const char* get() const { return mText; }

      private:
        char mText[3 * Size];
    };

    /// All bytes zero, printed as "" until a form is set.
    ZTCWorldWideName() = default;
    /// From Size bytes, in Fibre Channel order.
    explicit ZTCWorldWideName(const unsigned char* apBinary) {
        const ZTCTraceScope lTrace(ZTWorldWideNameFile, 106, 108);
        _init(apBinary);
    }
    ZTCWorldWideName(const ZTCWorldWideName& acrCopy) : ZTCWorldWideName() { copy(acrCopy); }
    ZTCWorldWideName& operator=(const ZTCWorldWideName& acrCopy) {
        if (this != &acrCopy) {
            copy(acrCopy);
        }
        return *this;
    }
    virtual ~ZTCWorldWideName() = default;

    void setBinaryForm(const unsigned char* apBinary) { _init(apBinary); }
    /// Reads eight hex pairs with colons, or 16 hex digits with or without 0x, upper or lower case. Other
    /// text is ZTCInvalidEx, the name unchanged.
    void setStringForm(const ZTCString& acrString) { _init(acrString); }

    const unsigned char* getBinaryForm() const { return mBinaryForm; }
    /// Eight lower-case hex pairs with colons, or "" when no form was set. Throws ZTCNoMemoryEx.
    const ZTCString& getStringForm() const;

    bool operator==(const ZTCWorldWideName& acrOther) const {
        return memcmp(mBinaryForm, acrOther.mBinaryForm, Size) == 0;
    }

    /// Reads 8 bytes. Throws ZTCInvalidEx, the name unchanged, when there are fewer.
    void decode(ZTCEncodableInStream& arStream);

  private:
    void _init(const unsigned char* apBinary);
    void _init(const ZTCString& acrString);
    void copy(const ZTCWorldWideName& acrCopy);

    unsigned char mBinaryForm[Size]{};
    bool mIsSet = false;
    mutable std::atomic<bool> mIsPrinted{false};  ///< mStringForm has been made, and stays
    mutable std::optional<ZTCString> mStringForm;
};
