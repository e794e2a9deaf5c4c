// The log's file and its disk: what is taken for a log file, and what becomes of records when it is full or
// stands still.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <regex>

#include "Assert.h"
#include "StandingWrites.h"
#include "Statistics.h"
#include "TestLog.h"

namespace {

using LogFile = ZTCTestLog;

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

// How often the calling thread has waited for something.
long waitsSoFar() {
    rusage lUsage{};
    getrusage(RUSAGE_THREAD, &lUsage);
    return lUsage.ru_nvcsw;
}

}  // namespace

TEST_F(LogFile, EndsTheLineOfAWriterThatWasKilled) {
    for (const char* const lpLeft : {"whole\n", "whole\nha"}) {
        writeFile(mPath, lpLeft);
        inChild([] { Log(ZTLL_Notice, ZTTestLogFile, "after"); });
        EXPECT_TRUE(std::regex_match(log(), std::regex("whole\n(ha\n)?2[^\n]* after\n"))) << log();
    }
}

TEST_F(LogFile, RefusesWhatSomebodyElseMayHavePutInItsPlace) {
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
            Log(ZTLL_Notice, ZTTestLogFile, "for us alone");
            EXPECT_THROW(openLogAt(mPath), ZTCOsException);
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
        EXPECT_TRUE(contains(lEnd.mErr, ": for us alone\n")) << "shown instead: " << lEnd.mErr;
        char lByte = 0;
        EXPECT_LE(read(lReader.get(), &lByte, 1), 0);
        EXPECT_EQ(readFile(lOther), "");
    }
}

TEST_F(LogFile, CountsWhatAFullDiskTookAndTellsItAfterwards) {
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

TEST_F(LogFile, CompletesALineThatAFullDiskCutAlsoWhenNothingElseWasLost) {
    const ZTCTestPeriod lTell(ZTP_LogTell);
    inChild([&] {
        {
            const FullDisk lFull(log(), 20);
            Log(ZTLL_Error, ZTTestLogFile, "cut");
            flushLog();
            EXPECT_NE(log().back(), '\n');
        }
        EXPECT_TRUE(waitUntil([&] { return log().ends_with(": cut\n"); }));
    });
}

TEST_F(LogFile, ADiskThatStandsStillHoldsUpOneCallerForATenthOfASecondAndIsToldOfLater) {
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
                    Log(lNumber % 100 == 99 ? ZTLL_Error : ZTLL_Notice, ZTTestLogFile,
                        "thread %u number %u of %s", aThread, lNumber, "many");
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

TEST_F(LogFile, ADiskThatStandsStillDoesNotHoldUpAFailedAssertion) {
    const ZTCTestPeriod lFlush(ZTP_LogFlush);
    const ZTSTestEnd lEnd = runChild([&] {
        openLogAt(mPath);
        ZTSetWritesStand(true);
        Log(ZTLL_Notice, ZTTestLogFile, "not written");
        ZT_ASSERT_NAMED(false, "first != second", 5, "File");
    });
    EXPECT_EQ(lEnd.mStatus, 1);
}

TEST_F(LogFile, ADeviceHasNoLimitAndStaysWhereItIs) {
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

TEST_F(LogFile, BecomesAnotherFileBeforeItPassesItsLimit) {
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
    for (const ZTSTestLine& lrLine : linesOf(readFile(lBefore) + log())) {
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

TEST_F(LogFile, GoesOnWithoutAFileThatTakesAnything) {
    const ZTSTestEnd lEnd = runChild([] {
        openLogAt("/dev/full");
        logNumbers(0, 5000);
        Log(ZTLL_Error, ZTTestLogFile, "an error");
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
}

TEST_F(LogFile, GoesOnInANewFileWithoutSplittingALine) {
    constexpr unsigned int lFiles = 20;
    constexpr unsigned int lCount = ZTIsSanitized ? 2000 : 20000;
    inChild([&] {
        std::thread lLogs([] { inThreads(4, [](unsigned int aThread) { logNumbers(aThread, lCount); }); });
        for (unsigned int lFile = 0; lFile < lFiles; ++lFile) {
            Log(ZTLL_Notice, ZTTestLogFile, "of file %u", lFile);
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
