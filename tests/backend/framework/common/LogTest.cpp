// The log is the process's: every case that writes one does so in a child process.
#include <sys/resource.h>

#include <algorithm>
#include <barrier>
#include <climits>
#include <map>
#include <regex>
#include <sstream>

#include "Assert.h"
#include "Exception.h"
#include "Log.h"
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

void logNumbers(unsigned int aThread, unsigned int aCount) {
    for (unsigned int lNumber = 0; lNumber < aCount; ++lNumber) {
        Log(ZTLL_Notice, sFile, "thread %u number %u of %s", aThread, lNumber, "many");
    }
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
    constexpr unsigned int lCount = ZTIsSanitized ? 5000 : 100000;
    inChild([] {
        startLogWriter();
        inThreads(8, [](unsigned int aThread) { logNumbers(aThread, lCount); });
    });
    expectNumbers(log(), 8, lCount);
}

TEST_F(LogTest, LosesNothingOfMoreThreadsThanItHasRings) {
    constexpr unsigned int lInTurn = ZTIsSanitized ? 500 : 2000;
    constexpr unsigned int lAtOnce = 100;
    inChild([] {
        startLogWriter();
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
            logNumbers(aThread, 200);
            lAll.arrive_and_wait();
        });
    });
    expectNumbers(log(), lAtOnce, 200);
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

TEST_F(LogTest, RefusesALink) {
    symlink((mDirectory / "target").c_str(), mPath.c_str());
    EXPECT_THROW(openLogAt(mPath), ZTCOsException);
    EXPECT_FALSE(std::filesystem::exists(mDirectory / "target"));
}

TEST_F(LogTest, HasAnErrorInTheFileWhenTheCallReturnsAndNothingThatIsMasked) {
    inChild([&] {
        for (const ZTCLogLevel& lrLevel : {ZTLL_Error, ZTLL_Abnormal, ZTLL_Highest}) {
            Log(lrLevel, sFile, "at once %s", lrLevel.mpTag);
            EXPECT_TRUE(isLogged(std::string("at once ") + lrLevel.mpTag));
        }
        setLogCode(255 & ~ZTLL_Warning.mBit);
        Log(ZTLL_Warning, sFile, "masked");
        { const ZTCTraceScope lTrace("File", 11, 22, "function"); }
        setLogCode(0);
        Log(ZTLL_Highest, sFile, "masked");
        setLogCode(ZTLogCodeDefault);
        Log(ZTLL_Trace, sFile, "masked");
        Log(ZTLL_Information, sFile, "masked");
    });
    EXPECT_FALSE(contains(log(), "masked"));
    EXPECT_TRUE(isLogged(" -T- File:11 function: Entered"));
    EXPECT_TRUE(isLogged(" -T- File:22 function: Left"));
}

TEST_F(LogTest, WritesANoticeWithoutAFurtherCall) {
    inChild([&] {
        startLogWriter();
        for (unsigned int lNumber = 0; lNumber < 80; ++lNumber) {
            const std::string lText = "notice " + std::to_string(lNumber);
            Log(ZTLL_Notice, sFile, "%s", lText.c_str());
            ASSERT_TRUE(waitUntil([&] { return isLogged(lText); })) << lText;
            // The next one comes when the writer rests, or at any moment on its way there.
            waitUntil([lPolls = 0U, lNumber]() mutable { return ++lPolls > lNumber; });
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
    for (const unsigned int lRoom : {0U, 1U, 60U, 5000U, 5077U}) {  // before, at and in the middle of a line
        writeFile(mPath, "");
        inChild([&] {
            startLogWriter();
            {
                const FullDisk lFull(log(), lRoom);
                logNumbers(0, lCount / 2);
                flushLog();
                logNumbers(0, lCount / 2);
                flushLog();
            }
            EXPECT_TRUE(waitUntil([&] { return isLogged(" log records were lost: File too large"); }));
        });
        unsigned long lLost = 0;
        for (const Line& lrLine : linesOf(log())) {
            unsigned long lNumber = 0;
            sscanf(lrLine.mText.c_str(), "%lu log records were lost", &lNumber);
            lLost += lNumber;
        }
        const std::size_t lWritten = countIn(log(), ": thread 0 number");
        EXPECT_EQ(lLost + lWritten, lCount);
        EXPECT_GE(lWritten, lRoom / 120);
    }
}

TEST_F(LogTest, CompletesALineThatAFullDiskCutAlsoWhenNothingElseWasLost) {
    inChild([&] {
        startLogWriter();
        {
            const FullDisk lFull(log(), 20);
            Log(ZTLL_Error, sFile, "cut");
            EXPECT_NE(log().back(), '\n');
        }
        EXPECT_TRUE(waitUntil([&] { return log().ends_with(": cut\n"); }));
    });
}

TEST_F(LogTest, GoesOnWithoutAFileThatTakesAnything) {
    const ZTSTestEnd lEnd = runChild([] {
        openLogAt("/dev/full");
        startLogWriter();
        logNumbers(0, 5000);
        Log(ZTLL_Error, sFile, "an error");
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
}

TEST_F(LogTest, GoesOnInANewFileWithoutSplittingALine) {
    constexpr unsigned int lFiles = 20;
    constexpr unsigned int lCount = ZTIsSanitized ? 2000 : 40000;
    inChild([&] {
        startLogWriter();
        std::thread lLogs([] { inThreads(4, [](unsigned int aThread) { logNumbers(aThread, lCount); }); });
        for (unsigned int lFile = 0; lFile < lFiles; ++lFile) {
            std::filesystem::rename(mPath, mPath + std::to_string(lFile));
            reopenLog();
            EXPECT_TRUE(std::filesystem::exists(mPath));
        }
        lLogs.join();
        // Where the new one cannot be made, the old one goes on.
        std::filesystem::rename(mPath, mPath + std::to_string(lFiles));
        std::filesystem::create_directory(mPath);
        reopenLog();
        EXPECT_TRUE(contains(readFile(mPath + std::to_string(lFiles)), "-E- "));
    });
    std::string lAll;
    for (unsigned int lFile = 0; lFile <= lFiles; ++lFile) {
        lAll += readFile(mPath + std::to_string(lFile));
        EXPECT_TRUE(lAll.empty() || lAll.back() == '\n');
    }
    expectNumbers(lAll, 4, lCount);
}

TEST_F(LogTest, GoesOnInAForkedProcess) {
    constexpr unsigned int lCount = ZTIsSanitized ? 5000 : 50000;
    const std::string lGo = mDirectory / "go";
    inChild([&] {
        logNumbers(0, lCount);
        std::jthread lOther;
        if (!ZTHasThreadSanitizer) {  // which wants no other thread to be there at a fork
            startLogWriter();
            lOther = std::jthread(logNumbers, 3, lCount);
            EXPECT_TRUE(waitUntil([&] { return isLogged("thread 3 number 0 of many"); }));
        }
        ZTCTestChild lChild([&] {
            EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(lGo); }));
            startLogWriter();
            Log(ZTLL_Notice, sFile, "child %d", getpid());
            EXPECT_TRUE(waitUntil([&] { return isLogged("child " + std::to_string(getpid())); }));
            logNumbers(1, lCount);
        });
        lOther = std::jthread();  // it is waited for
        flushLog();
        writeFile(lGo, "");
        EXPECT_EQ(lChild.waitForEnd(), 0) << lChild.getOut();
        logNumbers(2, lCount);
    });
    expectNumbers(log(), ZTHasThreadSanitizer ? 3 : 4, lCount);
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
        for (const bool lHasWriter : {false, true}) {
            writeFile(mPath, "");
            const ZTSTestEnd lEnd = runChild([&] {
                openLogAt(mPath);
                if (lHasWriter) {
                    startLogWriter();
                }
                logNumbers(0, 1000);
                lrRow.second();
            });
            EXPECT_EQ(lEnd.mStatus, lrRow.first);
            expectNumbers(log(), 1, 1000);
        }
    }
}

TEST_F(LogTest, TellsOneFailedAssertionWhileAllThreadsAreBusy) {
    for (unsigned int lRound = 0; lRound < 5; ++lRound) {
        writeFile(mPath, "");
        const ZTSTestEnd lEnd = runChild([&] {
            openLogAt(mPath);
            startLogWriter();
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
