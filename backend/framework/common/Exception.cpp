#include "Exception.h"

#include <cstdio>
#include <cstring>

ZTCException::ZTCException(const char* apMessage, unsigned int aCode) noexcept : mCode(aCode) {
    const char* lpMessage = apMessage != nullptr ? apMessage : "";
    const size_t lLength = strnlen(lpMessage, MaxText);
    memcpy(mMessage, lpMessage, lLength);
    mMessage[lLength] = '\0';
}

ZTCException::~ZTCException() = default;

const char* ZTCException::what() const {
    return mMessage;
}

void throwNoMemory() {
    throw ZTCNoMemoryEx("Out of Memory");
}

void throwInvalidValue() {
    throw ZTCInvalidEx("Invalid Value");
}

void ztexception::errnoText(char* apBuffer, unsigned int aSize, const char* apOperation,
                            const char* apSubject, int aErrno) noexcept {
    char lReason[128];
    // The GNU strerror_r returns its text, which may be the buffer or a constant.
    const char* lpReason = strerror_r(aErrno, lReason, sizeof lReason);
    const bool lHasSubject = apSubject != nullptr;
    snprintf(apBuffer, aSize, "%s%s%s: %s", apOperation, lHasSubject ? " " : "", lHasSubject ? apSubject : "",
             lpReason);
}
