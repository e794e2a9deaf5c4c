#include <cerrno>

#include "Exception.h"
#include "TestSupport.h"

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
