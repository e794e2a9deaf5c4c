// What is logged, by how many threads and however the process ends, is in the log once and in order.
#include <pty.h>
#include <sys/ioctl.h>

#include <barrier>
#include <climits>

#include "Assert.h"
#include "StandingWrites.h"
#include "TestLog.h"

namespace {

// Logs while the data of its thread is being destroyed.
struct LastWords {
    ~LastWords() { Log(ZTLL_Notice, ZTTestLogFile, "thread %u number %u of %s", mThread, 1U, "many"); }
    unsigned int mThread = 0;
};
thread_local LastWords tLastWords;

using LogTest = ZTCTestLog;

}  // namespace

TEST_F(LogTest, ASecondsStormIsInOrderAndWhatItLosesIsCounted) {
    constexpr unsigned int lThreads = 4;
    constexpr unsigned int lCount = ZTIsSanitized ? 20000 : 100000;
    inChild([] {
        inThreads(lThreads, [](unsigned int aThread) {
            for (unsigned int lNumber = 0; lNumber < lCount; ++lNumber) {
                logNumber(aThread, lNumber);
            }
        });
    });
    const std::string lLog = log();
    EXPECT_EQ(countIn(lLog, " of many\n") + lostIn(lLog), lThreads * lCount);
    numbersIn(lLog);
}

TEST_F(LogTest, LosesNothingOfMoreThreadsThanItHasRings) {
    constexpr unsigned int lInTurn = ZTIsSanitized ? 500 : 2000;
    constexpr unsigned int lAtOnce = 100;
    constexpr unsigned int lEach = 30;
    inChild([] {
        for (unsigned int lThread = 0; lThread < lInTurn; ++lThread) {
            std::thread([lThread] {
                tLastWords.mThread = lThread;
                logNumbers(lThread, 1);
            }).join();
        }
    });
    expectNumbers(log(), lInTurn, 2);

    writeFile(mPath, "");
    inChild([] {
        std::barrier lAll(lAtOnce);
        inThreads(lAtOnce, [&](unsigned int aThread) {
            lAll.arrive_and_wait();
            logNumbers(aThread, lEach);
            lAll.arrive_and_wait();
        });
    });
    expectNumbers(log(), lAtOnce, lEach);
}

TEST_F(LogTest, ADaemonsRecordsFromBeforeItsForkAreItsOwn) {
    const ZTSTestEnd lEnd = runChild([&] {
        Log(ZTLL_Notice, ZTTestLogFile, "before");
        ZTCTestChild lDaemon([&] {
            openLogAt(mPath);
            Log(ZTLL_Notice, ZTTestLogFile, "after");
        });
        EXPECT_EQ(lDaemon.waitForEnd(), 0);
        discardLog();
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
    EXPECT_EQ(lastTexts(log(), 3), (std::vector<std::string>{"before", "after"}));
    for (const ZTSTestLine& lrLine : linesOf(log())) {
        EXPECT_EQ(lrLine.mThread, lrLine.mProcess) << lrLine.mText;
    }
    EXPECT_EQ(std::filesystem::status(mPath).permissions(), std::filesystem::perms{0640});
}

TEST_F(LogTest, HasNothingThatIsMaskedAlsoFromBeforeTheMaskWasKnown) {
    constexpr ZTCLogLevel lLevels[] = {ZTLL_Highest, ZTLL_Abnormal,    ZTLL_Error, ZTLL_Warning,
                                       ZTLL_Notice,  ZTLL_Information, ZTLL_Trace};
    for (const unsigned int lMask : {255U & ~ZTLL_Warning.mBit, ZTLogCodeDefault, 0U}) {
        writeFile(mPath, "");
        const auto lLogAll = [&] {
            for (const ZTCLogLevel& lrLevel : lLevels) {
                Log(lrLevel, ZTTestLogFile, "of level %s", lrLevel.mpTag);
            }
            const ZTCTraceScope lTrace("File", 11, 22, "function");
        };
        const ZTSTestEnd lEnd = runChild([&] {
            lLogAll();
            setLogCode(lMask);
            openLogAt(mPath);
            lLogAll();
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
        const auto lExpect = [&](const std::string& acrText, const ZTCLogLevel& acrLevel) {
            EXPECT_EQ(countIn(log(), acrText), (lMask & acrLevel.mBit) != 0 ? 2U : 0U) << acrText << lMask;
        };
        for (const ZTCLogLevel& lrLevel : lLevels) {
            lExpect(std::string("of level ") + lrLevel.mpTag, lrLevel);
        }
        lExpect(" -T- File:11 function: Entered\n", ZTLL_Trace);
        lExpect(" -T- File:22 function: Left\n", ZTLL_Trace);
    }
}

TEST_F(LogTest, WritesANoticeWithoutAFurtherCall) {
    const ZTCTestPeriod lNap(ZTP_LogNap, 5);
    inChild([&] {
        for (unsigned int lNumber = 0; lNumber < 20; ++lNumber) {
            const std::string lText = "notice " + std::to_string(lNumber);
            Log(ZTLL_Notice, ZTTestLogFile, "%s", lText.c_str());
            ASSERT_TRUE(waitUntil([&] { return isLogged(lText); })) << lText;
            // The next one comes when the writer rests, or at any moment on its way there.
            waitUntil([lPolls = 0U, lNumber]() mutable { return ++lPolls > 4 * lNumber; });
        }
    });
}

// What does not compile.
static_assert(ztlog::faultOf<unsigned int, const char*>("%u %s\n") == ztlog::Fault::None);
static_assert(ztlog::faultOf<unsigned int>("%x") == ztlog::Fault::OtherConversion);
static_assert(ztlog::faultOf<unsigned int>("%5u") == ztlog::Fault::OtherConversion);
static_assert(ztlog::faultOf<>("100%%") == ztlog::Fault::OtherConversion);
static_assert(ztlog::faultOf<unsigned int>("%lu") == ztlog::Fault::OtherArguments);
static_assert(ztlog::faultOf<unsigned int>("%u %u") == ztlog::Fault::OtherArguments);
static_assert(ztlog::faultOf<unsigned int>("none") == ztlog::Fault::OtherArguments);
static_assert(ztlog::faultOf<>("a\tb") == ztlog::Fault::ControlCharacter);
static_assert(ztlog::faultOf<>("a\nb") == ztlog::Fault::ControlCharacter);

TEST_F(LogTest, FormatsAsTheCLibraryDoes) {
    inChild([&] {
        std::vector<std::string> lExpected;
        char lText[512];
#define ROW(...)                                  \
    Log(ZTLL_Notice, ZTTestLogFile, __VA_ARGS__); \
    snprintf(lText, sizeof lText, __VA_ARGS__);   \
    lExpected.emplace_back(lText)
        ROW("%d %d %d %u %hu", -1, INT_MAX, INT_MIN, UINT_MAX, static_cast<unsigned short>(65535));
        ROW("%lu %lu %p %p", 0UL, ULONG_MAX, static_cast<const void*>(ZTTestLogFile),
            static_cast<void*>(nullptr));
        ROW("%s|%s", "text", "");
#undef ROW
        flushLog();
        EXPECT_EQ(lastTexts(log(), lExpected.size()), lExpected);
    });
}

TEST_F(LogTest, KeepsARecordOnOneLine) {
    std::vector<std::pair<std::string, std::string>> lRows = {
        {"tab\tbell\a", "tab\\x09bell\\x07"},
        {"two lines\n\n", "two lines\\x0a"},
        {"\x7f\x1b[0m", "\\x7f\\x1b[0m"},
        {"gr\xc3\xbc\xc3\x9f", "gr\xc3\xbc\xc3\x9f"},
        {std::string(4096, 'a'), std::string(4096, 'a')},
        {std::string(4097, 'a'), std::string(4096, 'a') + "[cut]"},
    };
    for (std::size_t lAt = 0; lAt < 17; ++lAt) {  // wherever it stands among words of eight
        lRows.emplace_back(std::string(lAt, 'b') + '\x01' + std::string(17 - lAt, '~'),
                           std::string(lAt, 'b') + "\\x01" + std::string(17 - lAt, '~'));
    }
    const std::string lLong(4096, '\x02');
    inChild([&] {
        std::vector<std::string> lExpected;
        for (const auto& lrRow : lRows) {
            Log(ZTLL_Notice, ZTTestLogFile, "%s", lrRow.first.c_str());
            lExpected.push_back(lrRow.second);
        }
        Log(ZTLL_Notice, ZTTestLogFile, "ends in a line end\n");
        Log(ZTLL_Notice, ZTTestLogFile, "%s", static_cast<const char*>(nullptr));
        lExpected.insert(lExpected.end(), {"ends in a line end", "(null)"});
        flushLog();
        EXPECT_EQ(lastTexts(log(), lExpected.size()), lExpected);
        Log(ZTLL_Notice, ZTTestLogFile, "%s%s%s%s%s%s", lLong.c_str(), lLong.c_str(), lLong.c_str(),
            lLong.c_str(), lLong.c_str(), lLong.c_str());
    });
    const std::string lCut = lastTexts(log(), 1).at(0);
    EXPECT_TRUE(lCut.size() <= 16U * 1024 && lCut.size() > 16U * 1024 - 100) << lCut.size();
    EXPECT_TRUE(lCut.ends_with("\\x02[cut]"));
}

TEST_F(LogTest, AStandardErrorThatNobodyReadsHoldsUpNothing) {
    constexpr unsigned int lCount = 2000;
    for (const bool lIsTerminal : {false, true}) {
        writeFile(mPath, "");
        inChild([&] {
            int lPipe[2];
            ASSERT_EQ(lIsTerminal ? openpty(&lPipe[0], &lPipe[1], nullptr, nullptr, nullptr) : pipe(lPipe),
                      0);
            dup2(lPipe[1], STDERR_FILENO);
            setLogEcho(true);
            for (unsigned int lNumber = 0; lNumber < lCount; ++lNumber) {
                Log(ZTLL_Error, ZTTestLogFile, "thread %u number %u of %s", 0U, lNumber, "many");
                if (lNumber % 1000 == 0) {
                    EXPECT_TRUE(flushLog());
                }
            }
            EXPECT_TRUE(flushLog());
            EXPECT_TRUE(waitUntil([&] {  // what a terminal takes is there a moment later
                int lShown = 0;
                ioctl(lPipe[0], FIONREAD, &lShown);
                return lShown > 1000;
            }));
        });
        expectNumbers(log(), 1, lCount);
    }
}

TEST_F(LogTest, GoesOnInAForkedProcess) {
    if (ZTHasThreadSanitizer) {
        GTEST_SKIP() << "it wants no other thread to be there at a fork";
    }
    constexpr unsigned int lCount = ZTIsSanitized ? 5000 : 20000;
    const std::string lGo = mDirectory / "go";
    inChild([&] {
        logNumbers(0, lCount);
        std::jthread lOther;
        lOther = std::jthread(logNumbers, 3, lCount);
        EXPECT_TRUE(waitUntil([&] { return isLogged("thread 3 number 0 of many"); }));
        ZTSetWritesStand(true);  // so that it is not written before the fork
        Log(ZTLL_Notice, ZTTestLogFile, "the parent's");
        ZTCTestChild lChild([&] {
            ZTSetWritesStand(false);
            EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(lGo); }));
            openLog();
            Log(ZTLL_Notice, ZTTestLogFile, "child %d", getpid());
            EXPECT_TRUE(waitUntil([&] { return isLogged("child " + std::to_string(getpid())); }));
            logNumbers(1, lCount);
        });
        ZTSetWritesStand(false);
        lOther = std::jthread();  // it is waited for
        flushLog();
        writeFile(lGo, "");
        EXPECT_EQ(lChild.waitForEnd(), 0) << lChild.getOut();
        logNumbers(2, lCount);
    });
    expectNumbers(log(), 4, lCount);
    EXPECT_EQ(countIn(log(), ": the parent's\n"), 1U);
    std::map<char, std::string> lWho;  // by the thread's number in the text
    for (const ZTSTestLine& lrLine : linesOf(log())) {
        const bool lIsChild = lrLine.mText.starts_with("child ");
        lWho[lIsChild ? 'c' : lrLine.mText.substr(0, 8).back()] =
            lIsChild ? lrLine.mText.substr(6) : lrLine.mProcess + "." + lrLine.mThread;
    }
    EXPECT_EQ(lWho['0'], lWho['2']);
    EXPECT_EQ(lWho['1'], lWho['c'] + "." + lWho['c']);
}

TEST_F(LogTest, TellsOneFailedAssertionWhileAllThreadsAreBusy) {
    for (unsigned int lRound = 0; lRound < 5; ++lRound) {
        writeFile(mPath, "");
        const ZTSTestEnd lEnd = runChild([&] {
            openLogAt(mPath);
            std::barrier lTogether(3);
            inThreads(6, [&](unsigned int aThread) {
                logNumbers(aThread, 1000);
                if (aThread < 3) {
                    lTogether.arrive_and_wait();
                    failAssertion("first != second", 5, "function", "File");
                }
                for (;;) {
                    Log(ZTLL_Notice, ZTTestLogFile, "still here");
                }
            });
        });
        EXPECT_EQ(lEnd.mStatus, 1);
        EXPECT_EQ(countIn(log(), " Assertion [ first != second ] failed\n"), 1U);
        EXPECT_GE(countIn(log(), " number 999 of many\n"), 3U) << "of who had logged all before it failed";
    }
}

TEST_F(LogTest, GoesToStandardErrorWithoutAFileUnlessItIsDiscarded) {
    for (const bool lIsDiscarded : {false, true}) {
        const ZTSTestEnd lEnd = runChild([&] {
            logNumbers(0, 5);
            if (lIsDiscarded) {
                discardLog();
            }
            logNumbers(1, 5);
        });
        EXPECT_EQ(lEnd.mStatus, 0);
        EXPECT_EQ(lEnd.mErr.empty(), lIsDiscarded);
        expectNumbers(lEnd.mErr, lIsDiscarded ? 0 : 2, 5);
    }
}
