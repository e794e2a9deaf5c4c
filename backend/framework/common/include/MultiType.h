// A value of one of several types, for settings. Immutable, so safe to read from any thread.
#pragma once

#include <variant>

#include "ZTString.h"

class ZTCMultiType {
  public:
    explicit ZTCMultiType(bool aValue) : mValue(aValue) {}
    explicit ZTCMultiType(unsigned int aValue) : mValue(aValue) {}
    explicit ZTCMultiType(const ZTCString& acrValue) : mValue(acrValue) {}
    explicit ZTCMultiType(const char* apValue) : mValue(ZTCString(apValue)) {}

    // Each throws ZTCInvalidEx when the value is of another type.
    bool getBool() const { return valueOf<bool>(); }
    unsigned int getNumber() const { return valueOf<unsigned int>(); }
    const ZTCString& getText() const { return valueOf<ZTCString>(); }

  private:
    template <class Type>
    const Type& valueOf() const {
        const auto* const lpValue = std::get_if<Type>(&mValue);
        if (lpValue == nullptr) {
            throwInvalidValue();
        }
        return *lpValue;
    }

    std::variant<bool, unsigned int, ZTCString> mValue;
};
