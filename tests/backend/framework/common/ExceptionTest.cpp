#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <type_traits>

#include "Exception.h"

namespace {

template <class Handled, class Thrown>
bool isCaughtBy() {
    try {
        throw Thrown("text", 7);
    } catch (const Handled& lrException) {
        return lrException.what() == std::string("text") && lrException.getCode() == 7;
    } catch (...) {
        return false;
    }
}

// The handlers that catch the class, as letters: root, generic, halt, system, operation, C library.
template <class Thrown>
std::string handlersOf() {
    static_assert(std::is_nothrow_constructible_v<Thrown, const char*, unsigned int>);
    const std::pair<char, bool> lHandlers[] = {
        {'R', isCaughtBy<ZTCException, Thrown>()},    {'G', isCaughtBy<ZTCGenericException, Thrown>()},
        {'H', isCaughtBy<ZTCHaltEx, Thrown>()},       {'S', isCaughtBy<ZTCOsException, Thrown>()},
        {'O', isCaughtBy<ZTCOpsException, Thrown>()}, {'C', isCaughtBy<ZTCClibEx, Thrown>()}};
    std::string lLetters;
    for (const auto& [lLetter, lIsCaught] : lHandlers) {
        lLetters.append(lIsCaught ? 1 : 0, lLetter);
    }
    return lLetters;
}

template <class Exception, class Work>
void expectThrown(Work aWork, const std::string& acrText, unsigned int aCode) {
    try {
        aWork();
        FAIL() << "nothing was thrown instead of " << acrText;
    } catch (const Exception& lrException) {
        EXPECT_EQ(lrException.what(), acrText);
        EXPECT_EQ(lrException.getCode(), aCode);
    }
}

}  // namespace

TEST(ExceptionTest, IsCaughtByTheHandlersOfItsFamilies) {
    EXPECT_EQ(handlersOf<ZTCException>(), "R");
    EXPECT_EQ(handlersOf<ZTCExistsEx>(), "RG");
    EXPECT_EQ(handlersOf<ZTCNotFoundEx>(), "RG");
    EXPECT_EQ(handlersOf<ZTCInvalidEx>(), "RG");
    EXPECT_EQ(handlersOf<ZTCNotImplementedEx>(), "RG");
    EXPECT_EQ(handlersOf<ZTCNoMemoryEx>(), "RGH");
    EXPECT_EQ(handlersOf<ZTCExitConditionEx>(), "RGH");
    EXPECT_EQ(handlersOf<ZTCShutDownEx>(), "RGH");
    EXPECT_EQ(handlersOf<ZTCQuitThreadEx>(), "RGH");
    EXPECT_EQ(handlersOf<ZTCTimeOutEx>(), "RS");
    EXPECT_EQ(handlersOf<ZTCHeartbeatFailedEx>(), "RO");
    EXPECT_EQ(handlersOf<ZTCClibStatFailedEx>(), "RC");
    EXPECT_EQ(handlersOf<ZTCClibUtimeFailedEx>(), "RC");
    EXPECT_EQ(handlersOf<ZTCClibGetProcStatusFailedEx>(), "RC");
}

TEST(ExceptionTest, KeepsACopyOfTheTextThatIsCutWhenItIsLong) {
    constexpr unsigned int lMost = ZTCException::MaxText;
    for (const unsigned int lLength : {0U, 1U, lMost, lMost + 1, 10 * lMost}) {
        std::string lText(lLength, 'x');
        const ZTCShutDownEx lException(lText.c_str(), 0);
        lText.assign(lLength, 'y');
        EXPECT_EQ(ZTCShutDownEx(lException).what(), std::string(std::min(lLength, lMost), 'x'));
    }
    EXPECT_STREQ(ZTCException(nullptr, 0).what(), "");
}

TEST(ExceptionTest, TellsWhatTheSystemSays) {
    const std::string lLong(5000, 'x');
    expectThrown<ZTCOsException>([] { throwErrno<ZTCOsException>("open", "/a/file", ENOENT); },
                                 "open /a/file: No such file or directory", ENOENT);
    expectThrown<ZTCClibEx>([] { throwErrno<ZTCClibStatFailedEx>("stat", nullptr, EACCES); },
                            "stat: Permission denied", EACCES);
    expectThrown<ZTCOsException>([&] { throwErrno<ZTCTimeOutEx>("open", lLong.c_str(), EIO); },
                                 "open " + lLong.substr(0, ZTCException::MaxText - 5), EIO);
}

TEST(ExceptionTest, TurnsAFailedAllocationIntoItsOwn) {
    expectThrown<ZTCHaltEx>([] { orNoMemory([] { throw std::bad_alloc(); }); }, "Out of Memory", 2);
    expectThrown<ZTCInvalidEx>([] { orNoMemory(throwInvalidValue); }, "Invalid Value", 6);
}
