// The exception hierarchy. Every failure that is told to a caller is one of these, thrown by value of the
// most derived class and caught by reference; `what()` is the only way to its text.
//
// Every derivation is public and virtual, so a class may join two families (generic and halting) and still
// hold one ZTCException; a handler catches a class, a family or the root. The text is kept inside the object
// (cut at MaxText bytes), so throwing needs no memory beyond what the language's own throw needs, and the
// caller's string need not outlive the exception.
#pragma once

#include <new>

/// Root of the hierarchy. Not derived from std::exception: what is caught here is the framework's own.
class ZTCException {
  public:
    static constexpr unsigned int MaxText = 1023;  ///< bytes of text kept, without the terminator

    /// Keeps a copy of apMessage (a null pointer counts as "") and the code. Never throws.
    ZTCException(const char* apMessage, unsigned int aCode) noexcept;
    ZTCException(const ZTCException&) noexcept = default;
    ZTCException& operator=(const ZTCException&) noexcept = default;
    virtual ~ZTCException();

    /// The text, valid as long as the exception.
    virtual const char* what() const;

    /// The code that belongs to the text; for failures of the system, its errno.
    unsigned int getCode() const noexcept { return mCode; }

  private:
    unsigned int mCode;
    char mMessage[MaxText + 1];
};

// The classes differ in nothing but their names, bases and codes. One line each below: the class, its bases,
// and the code of its failures. Where none is given it depends on the failure, and is an errno.
#define ZT_EXCEPTION_OF_ROOT(Name)                                                                   \
    class Name : public virtual ZTCException {                                                       \
      public:                                                                                        \
        Name(const char* apMessage, unsigned int aCode) noexcept : ZTCException(apMessage, aCode) {} \
    }
#define ZT_EXCEPTION(Name, Base, ...)                                                               \
    class Name : public virtual Base {                                                              \
      public:                                                                                       \
        explicit Name(const char* apMessage, unsigned int aCode __VA_OPT__(=) __VA_ARGS__) noexcept \
            : ZTCException(apMessage, aCode), Base(apMessage, aCode) {}                             \
    }
#define ZT_EXCEPTION_OF_TWO(Name, First, Second, ...)                                               \
    class Name : public virtual First, public virtual Second {                                      \
      public:                                                                                       \
        explicit Name(const char* apMessage, unsigned int aCode __VA_OPT__(=) __VA_ARGS__) noexcept \
            : ZTCException(apMessage, aCode), First(apMessage, aCode), Second(apMessage, aCode) {}  \
    }

ZT_EXCEPTION_OF_ROOT(ZTCGenericException);  ///< an operation failed, its caller may go on
ZT_EXCEPTION_OF_ROOT(ZTCHaltEx);            ///< the thread or the process must stop
ZT_EXCEPTION_OF_ROOT(ZTCOsException);       ///< an Os* wrapper failed
ZT_EXCEPTION_OF_ROOT(ZTCOpsException);      ///< the outcome of an operation is a failure
ZT_EXCEPTION_OF_ROOT(ZTCClibEx);            ///< a Clib* wrapper failed

ZT_EXCEPTION(ZTCInvalidEx, ZTCGenericException, 6);          ///< a value is not valid
ZT_EXCEPTION(ZTCNotFoundEx, ZTCGenericException, 8);         ///< a key is absent
ZT_EXCEPTION(ZTCExistsEx, ZTCGenericException, 10);          ///< a key or file is already present
ZT_EXCEPTION(ZTCNotImplementedEx, ZTCGenericException, 13);  ///< an operation is not provided

ZT_EXCEPTION_OF_TWO(ZTCNoMemoryEx, ZTCGenericException, ZTCHaltEx, 2);        ///< allocation failed
ZT_EXCEPTION_OF_TWO(ZTCExitConditionEx, ZTCGenericException, ZTCHaltEx, 19);  ///< the process must not run
ZT_EXCEPTION_OF_TWO(ZTCShutDownEx, ZTCGenericException, ZTCHaltEx, 19);       ///< an ordered shutdown
ZT_EXCEPTION_OF_TWO(ZTCQuitThreadEx, ZTCGenericException, ZTCHaltEx);         ///< one thread leaves its loop

ZT_EXCEPTION(ZTCTimeOutEx, ZTCOsException);                ///< a timed wait expired
ZT_EXCEPTION(ZTCHeartbeatFailedEx, ZTCOpsException, 492);  ///< the watched heartbeat file went stale
ZT_EXCEPTION(ZTCClibStatFailedEx, ZTCClibEx);              ///< ClibStat failed
ZT_EXCEPTION(ZTCClibUtimeFailedEx, ZTCClibEx);             ///< ClibUtime failed
ZT_EXCEPTION(ZTCClibGetProcStatusFailedEx, ZTCClibEx);     ///< a process is gone or cannot be told

#undef ZT_EXCEPTION
#undef ZT_EXCEPTION_OF_ROOT
#undef ZT_EXCEPTION_OF_TWO

/// The one ZTCNoMemoryEx: "Out of Memory".
[[noreturn]] void throwNoMemory();

/// The one ZTCInvalidEx for an id outside a table: "Invalid Value".
[[noreturn]] void throwInvalidValue();

namespace ztexception {
/// Writes "OPERATION SUBJECT: errno's text" into the buffer ("OPERATION: ..." when apSubject is null).
void errnoText(char* apBuffer, unsigned int aSize, const char* apOperation, const char* apSubject,
               int aErrno) noexcept;
}  // namespace ztexception

/// Throws Exception for a failure of the system: the operation, what it was done to (may be null) and the
/// errno's text as the message, the errno as the code.
template <class Exception>
[[noreturn]] void throwErrno(const char* apOperation, const char* apSubject, int aErrno) {
    char lText[ZTCException::MaxText + 1];
    ztexception::errnoText(lText, sizeof lText, apOperation, apSubject, aErrno);
    throw Exception(lText, static_cast<unsigned int>(aErrno));
}

/// Runs aWork and turns the standard library's std::bad_alloc into ZTCNoMemoryEx.
template <class Work>
decltype(auto) orNoMemory(Work&& arWork) {
    try {
        return arWork();
    } catch (const std::bad_alloc&) {
        throwNoMemory();
    }
}
