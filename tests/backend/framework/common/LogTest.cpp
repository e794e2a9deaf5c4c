// The log is the process's: every case that writes one does so in a child process.
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <barrier>
#include <climits>
#include <map>
#include <regex>
#include <sstream>

#include "Assert.h"
#include "Exception.h"
#include "Log.h"
#include "StandingWrites.h"
#include "Statistics.h"
#include "TestSupport.h"

namespace {

constexpr char sFile[] = "LogTest";

struct Line {
    std::string mTime;
    std::string mProcess;
    std::string mThread;
    std::string mText;
};

// The lines of a log, each of which has to be whole.
std::vector<Line> linesOf(const std::string& acrLog) {
    std::vector<Line> lLines;
    std::istringstream lText(acrLog);
    for (std::string lLine; std::getline(lText, lLine);) {
        char lTime[27]{};
        char lProcess[11]{};
        char lThread[11]{};
        int lLength = 0;
        sscanf(lLine.c_str(), "%26[0-9T:.-]Z %10[0-9].%10[0-9] -%*1[HAEWNIT]- %*[^ :]:%*[0-9] %*[^ :]:%n",
               lTime, lProcess, lThread, &lLength);
        const auto lFrom = static_cast<std::size_t>(lLength);
        if (lLength == 0 || lLine[lFrom] != ' ' || strlen(lTime) != 26 ||
            std::any_of(lLine.begin(), lLine.end(), iscntrl) || lText.eof()) {
            ADD_FAILURE() << "malformed: " << lLine;
            break;
        }
        lLines.push_back({lTime, lProcess, lThread, lLine.substr(lFrom + 1)});
    }
    return lLines;
}

// The texts of the last so many lines.
std::vector<std::string> lastTexts(const std::string& acrLog, std::size_t aCount) {
    std::vector<std::string> lTexts;
    for (const Line& lrLine : linesOf(acrLog)) {
        lTexts.push_back(lrLine.mText);
    }
    return {lTexts.end() - static_cast<std::ptrdiff_t>(std::min(aCount, lTexts.size())), lTexts.end()};
}

void logNumber(unsigned int aThread, unsigned int aNumber) {
    Log(ZTLL_Notice, sFile, "thread %u number %u of %s", aThread, aNumber, "many");
}

// Not more at once than a ring holds.
void logNumbers(unsigned int aThread, unsigned int aCount) {
    constexpr unsigned int lAtOnce = 1000;
    for (unsigned int lNumber = 0; lNumber < aCount; ++lNumber) {
        logNumber(aThread, lNumber);
        if (lNumber % lAtOnce == lAtOnce - 1) {
            flushLog();
        }
    }
}

// What the log says that it has lost.
unsigned long lostIn(const std::string& acrLog) {
    unsigned long lLost = 0;
    for (const Line& lrLine : linesOf(acrLog)) {
        unsigned long lNumber = 0;
        sscanf(lrLine.mText.c_str(), "%lu log records were lost", &lNumber);
        lLost += lNumber;
    }
    return lLost;
}

// Every thread's records are there once and in order, with times that do not go back; nor do they in the
// whole file, but for a thread that was stopped in the middle of a record, which is waited for only so long.
void expectNumbers(const std::string& acrLog, std::size_t aThreads, unsigned int aCount) {
    const std::vector<Line> lLines = linesOf(acrLog);
    std::map<unsigned int, unsigned int> lNext;
    std::map<unsigned int, std::string> lTime;
    std::string lLatest;
    std::size_t lBack = 0;
    for (const Line& lrLine : lLines) {
        lBack += lrLine.mTime < lLatest ? 1 : 0;
        lLatest = lrLine.mTime;
        unsigned int lThread = 0;
        unsigned int lNumber = 0;
        if (sscanf(lrLine.mText.c_str(), "thread %u number %u of many", &lThread, &lNumber) != 2) {
            continue;
        }
        ASSERT_EQ(lNumber, lNext[lThread]++) << "thread " << lThread;
        ASSERT_LE(lTime[lThread], lrLine.mTime) << "thread " << lThread;
        lTime[lThread] = lrLine.mTime;
    }
    EXPECT_LE(lBack, 2 + lLines.size() / 1000);  // threads that were stopped in the middle of a record
    EXPECT_EQ(lNext.size(), aThreads);
    for (const auto& [lThread, lCount] : lNext) {
        EXPECT_EQ(lCount, aCount) << "thread " << lThread;
    }
}

void openLogAt(const std::string& acrPath) {
    setLogFilePath(acrPath.c_str());
    openLog();
}

// Logs while the data of its thread is being destroyed.
struct LastWords {
    ~LastWords() { Log(ZTLL_Notice, sFile, "thread %u number %u of %s", mThread, 1U, "many"); }
    unsigned int mThread = 0;
};
thread_local LastWords tLastWords;

class LogTest : public ::testing::Test {
  protected:
    std::string log() const { return readFile(mPath); }
    bool isLogged(const std::string& acrText) const { return contains(log(), acrText + "\n"); }

    // Runs the work with the log open in a child, which has to end well.
    void inChild(const std::function<void()>& acrWork) const {
        const ZTSTestEnd lEnd = runChild([&] {
            const ZTCTestPeriod lFlush(ZTP_LogFlush, 30000);  // on a busy machine
            openLogAt(mPath);
            acrWork();
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "log";
};

}  // namespace

TEST_F(LogTest, WritesEveryRecordOfManyThreadsWholeAndInOrder) {
    constexpr unsigned int lCount = ZTIsSanitized ? 5000 : 40000;
    inChild([] { inThreads(8, [](unsigned int aThread) { logNumbers(aThread, lCount); }); });
    expectNumbers(log(), 8, lCount);
}

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
    std::map<unsigned int, unsigned int> lNext;
    for (const Line& lrLine : linesOf(lLog)) {
        unsigned int lThread = 0;
        unsigned int lNumber = 0;
        if (sscanf(lrLine.mText.c_str(), "thread %u number %u of many", &lThread, &lNumber) == 2) {
            ASSERT_GE(lNumber, lNext[lThread]) << "thread " << lThread;
            lNext[lThread] = lNumber + 1;
        }
    }
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

TEST_F(LogTest, BeginsWithWhatWasLoggedBeforeItWasOpened) {
    const ZTSTestEnd lEnd = runChild([&] {
        Log(ZTLL_Notice, sFile, "before 1");
        Log(ZTLL_Error, sFile, "before 2");
        openLogAt(mPath);
        Log(ZTLL_Notice, sFile, "after");
    });
    EXPECT_EQ(lEnd.mErr, "");
    EXPECT_EQ(lastTexts(log(), 3), (std::vector<std::string>{"before 1", "before 2", "after"}));
    EXPECT_EQ(std::filesystem::status(mPath).permissions(), std::filesystem::perms{0640});
}

TEST_F(LogTest, EndsTheLineOfAWriterThatWasKilled) {
    for (const char* const lpLeft : {"whole\n", "whole\nha"}) {
        writeFile(mPath, lpLeft);
        inChild([] { Log(ZTLL_Notice, sFile, "after"); });
        EXPECT_TRUE(std::regex_match(log(), std::regex("whole\n(ha\n)?2[^\n]* after\n"))) << log();
    }
}

TEST_F(LogTest, RefusesWhatSomebodyElseMayHavePutInItsPlace) {
    const std::string lOther = mDirectory / "other";
    writeFile(lOther, "");
    const std::function<void()> lRows[] = {
        [&] { symlink(lOther.c_str(), mPath.c_str()); },
        [&] { mkfifo(mPath.c_str(), 0666); },
        [&] { mkdir(mPath.c_str(), 0777); },
        [&] { link(lOther.c_str(), mPath.c_str()); },
        [&] { EXPECT_EQ(mknod(mPath.c_str(), S_IFCHR | 0666, makedev(1, 3)), 0); },
        [&] {
            writeFile(mPath, "");
            EXPECT_EQ(chown(mPath.c_str(), 65534, 65534), 0);
        },
    };
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make all of these";
    }
    for (const auto& lrMake : lRows) {
        std::filesystem::remove(mPath);
        lrMake();
        const ZTCDescriptor lReader(open(mPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        const ZTSTestEnd lEnd = runChild([&] {
            Log(ZTLL_Notice, sFile, "for us alone");
            EXPECT_THROW(openLogAt(mPath), ZTCOsException);
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
        EXPECT_TRUE(contains(lEnd.mErr, ": for us alone\n")) << "shown instead: " << lEnd.mErr;
        char lByte = 0;
        EXPECT_LE(read(lReader.get(), &lByte, 1), 0);
        EXPECT_EQ(readFile(lOther), "");
    }
}

TEST_F(LogTest, HasNothingThatIsMaskedAlsoFromBeforeTheMaskWasKnown) {
    for (const unsigned int lMask : {255U & ~ZTLL_Warning.mBit, ZTLogCodeDefault, 0U}) {
        writeFile(mPath, "");
        const auto lLogAll = [] {
            for (const ZTCLogLevel& lrLevel : {ZTLL_Highest, ZTLL_Abnormal, ZTLL_Error, ZTLL_Warning,
                                               ZTLL_Notice, ZTLL_Information, ZTLL_Trace}) {
                Log(lrLevel, sFile, "of level %s", lrLevel.mpTag);
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
        for (const ZTCLogLevel& lrLevel : {ZTLL_Highest, ZTLL_Abnormal, ZTLL_Error, ZTLL_Warning, ZTLL_Notice,
                                           ZTLL_Information, ZTLL_Trace}) {
            EXPECT_EQ(countIn(log(), std::string("of level ") + lrLevel.mpTag),
                      (lMask & lrLevel.mBit) != 0 ? 2U : 0U)
                << lMask;
        }
        EXPECT_EQ(countIn(log(), " -T- File:11 function: Entered\n"),
                  (lMask & ZTLL_Trace.mBit) != 0 ? 2U : 0U);
        EXPECT_EQ(countIn(log(), " -T- File:22 function: Left\n"), (lMask & ZTLL_Trace.mBit) != 0 ? 2U : 0U);
    }
}

TEST_F(LogTest, WritesANoticeWithoutAFurtherCall) {
    const ZTCTestPeriod lNap(ZTP_LogNap, 5);
    inChild([&] {
        for (unsigned int lNumber = 0; lNumber < 20; ++lNumber) {
            const std::string lText = "notice " + std::to_string(lNumber);
            Log(ZTLL_Notice, sFile, "%s", lText.c_str());
            ASSERT_TRUE(waitUntil([&] { return isLogged(lText); })) << lText;
            // The next one comes when the writer rests, or at any moment on its way there.
            waitUntil([lPolls = 0U, lNumber]() mutable { return ++lPolls > 4 * lNumber; });
        }
    });
}

TEST_F(LogTest, FormatsAsTheCLibraryDoes) {
    inChild([&] {
        std::vector<std::string> lExpected;
        char lText[512];
#define ROW(...)                                \
    Log(ZTLL_Notice, sFile, __VA_ARGS__);       \
    snprintf(lText, sizeof lText, __VA_ARGS__); \
    lExpected.emplace_back(lText)
        ROW("%d %i %d %d %u %x %X %o", 0, -1, INT_MAX, INT_MIN, UINT_MAX, 0xdeadbeefU, 0xabcU, 8U);
        ROW("%lu %lx %ld %lld %zu %c%c %%", ULONG_MAX, 0xfeedUL, LONG_MIN, LLONG_MAX, sizeof lText, 'a', 'z');
        ROW("%p %p %20p|100%%", static_cast<const void*>(sFile), static_cast<void*>(nullptr),
            static_cast<const void*>(sFile));
        ROW("%5u|%-5u|%05u|%2u|%5c|%-3c|", 42U, 42U, 42U, 12345U, 'x', 'y');
        ROW("%+d|% d|%5d|%-5d|%05d|%#x %#o %08lx", 7, 7, -7, -7, -7, 255U, 8U, 0xabcUL);
        ROW("%8s|%-8s|%.2s|%s|%u %d", "text", "text", "text", "", static_cast<unsigned short>(65535),
            static_cast<signed char>(-5));
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
            Log(ZTLL_Notice, sFile, "%s", lrRow.first.c_str());
            lExpected.push_back(lrRow.second);
        }
        Log(ZTLL_Notice, sFile, "ends in a line end\n");
        Log(ZTLL_Notice, sFile, "%s", static_cast<const char*>(nullptr));
        lExpected.insert(lExpected.end(), {"ends in a line end", "(null)"});
        flushLog();
        EXPECT_EQ(lastTexts(log(), lExpected.size()), lExpected);
        Log(ZTLL_Notice, sFile, "%s%s%s%s%s%s", lLong.c_str(), lLong.c_str(), lLong.c_str(), lLong.c_str(),
            lLong.c_str(), lLong.c_str());
    });
    const std::string lCut = lastTexts(log(), 1).at(0);
    EXPECT_TRUE(lCut.size() <= 16U * 1024 && lCut.size() > 16U * 1024 - 100) << lCut.size();
    EXPECT_TRUE(lCut.ends_with("\\x02[cut]"));
}

// A disk that is full, but for so many bytes, while this lives.
class FullDisk {
  public:
    FullDisk(const std::string& acrLog, std::size_t aRoom) {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &mBefore);
        const rlimit lLimit{acrLog.size() + aRoom, mBefore.rlim_max};
        setrlimit(RLIMIT_FSIZE, &lLimit);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &mBefore); }

  private:
    rlimit mBefore{};
};

TEST_F(LogTest, CountsWhatAFullDiskTookAndTellsItAfterwards) {
    constexpr unsigned int lCount = 5000;
    inChild([] { logNumbers(0, 1); });
    const auto lLine = static_cast<unsigned int>(log().size());  // of a number of one digit
    // Before, in the middle of, one before and at the end of a line.
    for (const unsigned int lRoom : {0U, 1U, 60U, lLine - 1, lLine, 3 * lLine, 5000U, 5077U}) {
        writeFile(mPath, "");
        inChild([&] {
            {
                const FullDisk lFull(log(), lRoom);
                logNumbers(0, lCount / 2);
                flushLog();
                logNumbers(0, lCount / 2);
                flushLog();
            }
            flushLog();
            EXPECT_TRUE(isLogged(" log records were lost: File too large"));
            EXPECT_EQ(ZTGetStatistic(ZTS_LogLostError), lostIn(log()));
        });
        const std::size_t lWritten = countIn(log(), ": thread 0 number");
        EXPECT_EQ(lostIn(log()) + lWritten, lCount);
        // One that went out in part is completed; one of which nothing went out is lost.
        if (lRoom <= 3 * lLine) {
            EXPECT_EQ(lWritten, (lRoom + lLine - 1) / lLine) << lRoom;
        }
    }
}

TEST_F(LogTest, CompletesALineThatAFullDiskCutAlsoWhenNothingElseWasLost) {
    const ZTCTestPeriod lTell(ZTP_LogTell);
    inChild([&] {
        {
            const FullDisk lFull(log(), 20);
            Log(ZTLL_Error, sFile, "cut");
            flushLog();
            EXPECT_NE(log().back(), '\n');
        }
        EXPECT_TRUE(waitUntil([&] { return log().ends_with(": cut\n"); }));
    });
}

// How often the calling thread has waited for something.
long waitsSoFar() {
    rusage lUsage{};
    getrusage(RUSAGE_THREAD, &lUsage);
    return lUsage.ru_nvcsw;
}

TEST_F(LogTest, ADiskThatStandsStillHoldsUpOneCallerForATenthOfASecondAndIsToldOfLater) {
    constexpr unsigned int lThreads = 4;
    constexpr unsigned int lCount = 5000;  // more than twice what a ring holds
    inChild([&] {
        for (unsigned int lRound = 1; lRound <= 2; ++lRound) {
            ZTSetWritesStand(true);
            logNumber(0, 0);
            EXPECT_TRUE(waitUntil(ZTIsAWriteStanding));
            std::atomic<unsigned int> lWaited{0};
            std::atomic<long> lMost{0};
            inThreads(lThreads, [&](unsigned int aThread) {
                for (unsigned int lNumber = 0; lNumber < lCount; ++lNumber) {
                    const long lBefore = waitsSoFar();
                    Log(lNumber % 100 == 99 ? ZTLL_Error : ZTLL_Notice, sFile, "thread %u number %u of %s",
                        aThread, lNumber, "many");
                    const long lWaits = waitsSoFar() - lBefore;
                    lWaited += lWaits > 10 ? 1 : 0;  // fewer: a lock of a sanitizer
                    lMost = std::max(lMost.load(), lWaits);
                }
            });
            EXPECT_EQ(lWaited.load(), 1U);
            EXPECT_LE(lMost.load(), 101) << "waits of a millisecond at the least";
            {
                const ZTCTestPeriod lFlush(ZTP_LogFlush);
                EXPECT_FALSE(flushLog());
            }
            ZTSetWritesStand(false);
            EXPECT_TRUE(flushLog());
            EXPECT_EQ(lostIn(log()) + countIn(log(), " of many\n"), lRound * (lThreads * lCount + 1));
        }
        EXPECT_EQ(countIn(log(), " log records were lost: the file did not take them in time\n"), 2U);
        EXPECT_GT(countIn(log(), " of many\n"), 2 * lThreads * 1000U);
    });
}

TEST_F(LogTest, ADiskThatStandsStillDoesNotHoldUpAFailedAssertion) {
    const ZTCTestPeriod lFlush(ZTP_LogFlush);
    const ZTSTestEnd lEnd = runChild([&] {
        openLogAt(mPath);
        ZTSetWritesStand(true);
        Log(ZTLL_Notice, sFile, "not written");
        ZT_ASSERT_NAMED(false, "first != second", 5, "File");
    });
    EXPECT_EQ(lEnd.mStatus, 1);
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
                Log(ZTLL_Error, sFile, "thread %u number %u of %s", 0U, lNumber, "many");
                if (lNumber % 1000 == 0) {
                    EXPECT_TRUE(flushLog());
                }
            }
            EXPECT_TRUE(flushLog());
            int lShown = 0;
            ioctl(lPipe[0], FIONREAD, &lShown);
            EXPECT_GT(lShown, 1000);
        });
        expectNumbers(log(), 1, lCount);
    }
}

TEST_F(LogTest, ADeviceHasNoLimitAndStaysWhereItIs) {
    const std::string lDevice = "/dev/zt-test-" + std::to_string(getpid());
    if (mknod(lDevice.c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0) {
        GTEST_SKIP() << "only root can make one";
    }
    EXPECT_EQ(runChild([&] {
                  setLogLimit(1);
                  openLogAt(lDevice);
                  logNumbers(0, 30000);
              }).mStatus,
              0);
    EXPECT_EQ(std::filesystem::status(lDevice).type(), std::filesystem::file_type::character);
    EXPECT_FALSE(std::filesystem::exists(lDevice + ".1"));
    unlink(lDevice.c_str());
}

TEST_F(LogTest, BecomesAnotherFileBeforeItPassesItsLimit) {
    constexpr unsigned int lCount = 30000;  // more than 3 MB
    constexpr std::uintmax_t lLimit = 1024 * 1024;
    const std::string lBefore = mPath + ".1";
    setLogLimit(1);
    inChild([] { logNumbers(0, lCount); });
    EXPECT_GT(std::filesystem::file_size(lBefore), lLimit / 2);
    for (const std::string& lrPath : {mPath, lBefore}) {
        EXPECT_LE(std::filesystem::file_size(lrPath), lLimit);
        EXPECT_EQ(linesOf(readFile(lrPath)).at(0).mText,
                  "The log file had reached its limit of 1 MiB: what came before is in " + lBefore);
    }
    unsigned int lNumber = 0;
    EXPECT_EQ(sscanf(linesOf(readFile(lBefore)).at(1).mText.c_str(), "thread 0 number %u", &lNumber), 1);
    for (const Line& lrLine : linesOf(readFile(lBefore) + log())) {
        if (lrLine.mText.starts_with("thread")) {
            EXPECT_EQ(lrLine.mText, "thread 0 number " + std::to_string(lNumber++) + " of many");
        }
    }
    EXPECT_EQ(lNumber, lCount);

    // It cannot be moved: a line says so, and it goes on.
    std::filesystem::remove(lBefore);
    std::filesystem::create_directories(lBefore + "/full");
    inChild([] { logNumbers(1, lCount / 2); });
    EXPECT_GT(std::filesystem::file_size(mPath), lLimit);
    EXPECT_EQ(countIn(log(), ": thread 1 number"), lCount / 2);
    const std::size_t lTold = countIn(log(), " and goes on growing, it cannot be moved away: ");
    EXPECT_TRUE(lTold > 0 && lTold < 20) << lTold;

    // Somebody else has moved it: what is in the place of the one before stays.
    std::filesystem::remove_all(lBefore);
    writeFile(lBefore, "of somebody else");
    inChild([&] {
        std::filesystem::rename(mPath, mPath + ".moved");
        logNumbers(2, 1000);
    });
    EXPECT_TRUE(readFile(lBefore) == "of somebody else");
    EXPECT_TRUE(std::filesystem::exists(mPath));
    setLogLimit(0);
}

TEST_F(LogTest, GoesOnWithoutAFileThatTakesAnything) {
    const ZTSTestEnd lEnd = runChild([] {
        openLogAt("/dev/full");
        logNumbers(0, 5000);
        Log(ZTLL_Error, sFile, "an error");
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
}

TEST_F(LogTest, GoesOnInANewFileWithoutSplittingALine) {
    constexpr unsigned int lFiles = 20;
    constexpr unsigned int lCount = ZTIsSanitized ? 2000 : 20000;
    inChild([&] {
        std::thread lLogs([] { inThreads(4, [](unsigned int aThread) { logNumbers(aThread, lCount); }); });
        for (unsigned int lFile = 0; lFile < lFiles; ++lFile) {
            Log(ZTLL_Notice, sFile, "of file %u", lFile);
            std::filesystem::rename(mPath, mPath + std::to_string(lFile));
            reopenLog();
            EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(mPath); }));
        }
        lLogs.join();
        // Where the new one cannot be made, the old one goes on.
        std::filesystem::rename(mPath, mPath + std::to_string(lFiles));
        std::filesystem::create_directory(mPath);
        reopenLog();
        flushLog();
        EXPECT_TRUE(contains(readFile(mPath + std::to_string(lFiles)), "-E- "));
    });
    std::string lAll;
    for (unsigned int lFile = 0; lFile <= lFiles; ++lFile) {
        lAll += readFile(mPath + std::to_string(lFile));
        EXPECT_TRUE(lAll.empty() || lAll.back() == '\n');
        const bool lHasIts = contains(lAll, ": of file " + std::to_string(lFile) + "\n");
        EXPECT_EQ(lHasIts, lFile != lFiles) << "what was logged before a file was left is in it";
    }
    expectNumbers(lAll, 4, lCount);
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
        Log(ZTLL_Notice, sFile, "the parent's");
        ZTCTestChild lChild([&] {
            ZTSetWritesStand(false);
            EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(lGo); }));
            openLog();
            Log(ZTLL_Notice, sFile, "child %d", getpid());
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
    for (const Line& lrLine : linesOf(log())) {
        const bool lIsChild = lrLine.mText.starts_with("child ");
        lWho[lIsChild ? 'c' : lrLine.mText.substr(0, 8).back()] =
            lIsChild ? lrLine.mText.substr(6) : lrLine.mProcess + "." + lrLine.mThread;
    }
    EXPECT_EQ(lWho['0'], lWho['2']);
    EXPECT_EQ(lWho['1'], lWho['c'] + "." + lWho['c']);
}

TEST_F(LogTest, HasEverythingInTheFileHoweverTheProcessEnds) {
    const std::pair<int, void (*)()> lRows[] = {
        {3, [] { exit(3); }},
        {1, [] { ZT_ASSERT_NAMED(false, "first != second", 5, "File"); }},
    };
    for (const auto& lrRow : lRows) {
        writeFile(mPath, "");
        const ZTSTestEnd lEnd = runChild([&] {
            openLogAt(mPath);
            logNumbers(0, 1000);
            lrRow.second();
        });
        EXPECT_EQ(lEnd.mStatus, lrRow.first);
        expectNumbers(log(), 1, 1000);
    }
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
                    Log(ZTLL_Notice, sFile, "still here");
                }
            });
        });
        EXPECT_EQ(lEnd.mStatus, 1);
        EXPECT_EQ(countIn(log(), " Assertion [ first != second ] failed\n"), 1U);
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
