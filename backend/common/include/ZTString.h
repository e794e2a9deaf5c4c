// Text. Copies are deep: two strings never share their text. The line numbers belong to the assertions'
// records.
#pragma once

#include <string>

#include "ClibMemory.h"
#include "Pointer.h"

inline constexpr char ZTStringFile[] = "backend/common/include/ZTString";

/// Text without NUL bytes. What allocates throws ZTCNoMemoryEx. Not to be changed by two threads at once.
class ZTCString {
  public:
    ZTCString(const char* apText) : mString(makePointer<std::string>(apText)) {}

    ZTCString(const ZTCString& acrCopy) {
        ZT_ASSERT(acrCopy.mString != 0, 101, ZTStringFile);
        *this = acrCopy;
    }

    ZTCString& operator=(const ZTCString& acrCopy) {
        if (this != &acrCopy) {
            mString = makePointer<std::string>(*acrCopy.mString);
        }
        return *this;
    }

    ~ZTCString() = default;

    /// The text, NUL-terminated; valid while the string lives and is not assigned.
    const char* get() const {
        ZT_ASSERT(mString != 0, 240, ZTStringFile);
        return (*mString).c_str();
    }
    const char* get() { return std::as_const(*this).get(); }

    bool operator==(const ZTCString& acrString) const {
        ZT_ASSERT(mString != 0, 124, ZTStringFile);
        ZT_ASSERT(acrString.mString != 0, 125, ZTStringFile);
        return ClibStrcmp((*mString).c_str(), (*acrString.mString).c_str()) == 0;
    }

    bool operator<(const ZTCString& acrString) const {
        ZT_ASSERT(mString != 0, 142, ZTStringFile);
        return *mString < *acrString.mString;
    }

    /// A new string: this text followed by apText.
    ZTCString operator+(const char* apText) const {
        ZT_ASSERT(mString != 0, 170, ZTStringFile);
        return orNoMemory([&] { return ZTCString((*mString + apText).c_str()); });
    }

  private:
    ZTCPointer<std::string> mString;
};
