#include "EncodableStream.h"

ZTCEncodableOutStream& ZTCEncodableOutStream::operator<<(const ZTCString& acrValue) {
    const char* const lpText = acrValue.get();
    const auto lLength = static_cast<unsigned int>(strlen(lpText));
    unsigned char* const lpAt = extend(static_cast<unsigned int>(sizeof lLength) + lLength);
    ztwire::put(ztwire::put(lpAt, lLength), lpText, lLength);
    return *this;
}

ZTCEncodableInStream& ZTCEncodableInStream::operator>>(ZTCString& arValue) {
    unsigned int lLength = 0;
    *this >> lLength;
    const unsigned char* const lpText = take(lLength);
    if (memchr(lpText, '\0', lLength) != nullptr) {
        throw ZTCInvalidEx("A text holds a NUL byte");
    }
    arValue = orNoMemory([&] { return ZTCString(std::string(lpText, lpText + lLength).c_str()); });
    return *this;
}
