// What the library counts: in rows that never move, in a file that is its own.
#include <sys/mman.h>

#include "FcStatistics.h"
#include "StatisticsBytes.h"
#include "TestPages.h"
#include "TestSupport.h"

namespace {

constexpr char sFile[] = "libdfc-fchost.stats";

// As one who reads it while it grows: the header, then as many rows as that has.
ZTTestRows rowsIn(const std::string& acrDirectory) {
    const std::string lBytes = readFile(acrDirectory + "/" + sFile);
    ZTTestRows lRows;
    for (std::size_t lAt = 64,
                     lLeft = lBytes.size() < 64 ? 0 : *reinterpret_cast<const unsigned*>(&lBytes[8]);
         lLeft > 0; --lLeft, lAt += 64) {
        lRows.emplace_back(lBytes.substr(lAt, 56).c_str(),
                           *reinterpret_cast<const std::uint64_t*>(&lBytes.at(lAt + 56)));
    }
    return lRows;
}

std::uint64_t figureIn(const std::string& acrDirectory, const std::string& acrName) {
    const ZTTestRows lRows = rowsIn(acrDirectory);
    const std::map<std::string, std::uint64_t> lByName(lRows.begin(), lRows.end());
    return lByName.count(acrName) != 0 ? lByName.at(acrName) : ~0UL;
}

TEST(FcStatistics, RowsAreMadeAsTheyAreCounted) {
    for (const char* const lpParent : {"/dev/shm", "/tmp"}) {
        SCOPED_TRACE(lpParent);
        const ZTCTestDirectory lDirectory(lpParent);
        {
            ZTCFcStatistics lStatistics(lDirectory.getPath(), lDirectory / "log");
            lStatistics.count(ZTFF_ToldFcpReadCheckError, 7);
            lStatistics.set(ZTFF_WayPerf, 1);
            for (const std::uint64_t lLun : {0UL, 12UL, 12UL, 12345678901UL, 1UL << 60, ~0UL}) {
                lStatistics.countFor(ZTFL_Unreached, 3, 0x0060160bb20110c, lLun, 2);
            }
            EXPECT_EQ(lStatistics.countFor(ZTFL_Beyond, ~0U, 0, 16640), 1U);
            EXPECT_EQ(lStatistics.countFor(ZTFL_Failures, 1234, 1, 16640, 3), 3U);
            EXPECT_EQ(lStatistics.countFor(ZTFL_Failures, ~0U, 1, 5, 4), 0U);  // too long without a LUN too
            lStatistics.countFor(ZTFK_Other, 3, 0, 0x20005);
            EXPECT_TRUE(waitUntil([&] { return figureIn(lDirectory.getPath(), "no_row_total") == 4; }));
            ZTTestRows lRows = rowsIn(lDirectory.getPath());
            std::string lBytes = ZTTestStatisticsOf(lRows);
            const std::string lShown = readFile(lDirectory / sFile);
            lBytes.replace(16, 8, lShown, 16, 8)[32] = 0;  // when it began, and no wake
            EXPECT_EQ(lShown.substr(0, lBytes.size()), lBytes);
            EXPECT_EQ(lRows.at(ZTFF_ToldFcpReadCheckError),
                      std::pair(std::string("told_total{kind=\"fcp_read_check_error\"}"), 7UL));
            EXPECT_EQ(lRows.at(ZTFF_WayPerf), std::pair(std::string("way{name=\"perf\"}"), 1UL));
            lRows.erase(lRows.begin(), lRows.begin() + ZTFF_Count);
            EXPECT_EQ(lRows, (ZTTestRows{{"gone{host=\"3\",port=\"00060160bb20110c\",lun=\"0\"}", 2},
                                         {"gone{host=\"3\",port=\"00060160bb20110c\",lun=\"12\"}", 4},
                                         {"gone{host=\"3\",port=\"00060160bb20110c\",lun=\"*\"}", 6},
                                         {"beyond{host=\"4294967295\",lun=\"16640\"}", 1},
                                         {"failed{host=\"1234\",port=\"0000000000000001\",lun=\"16640\"}", 3},
                                         {"fpin_other{host=\"3\",tag=\"0x20005\"}", 1}}));
            struct stat lFile {};
            EXPECT_EQ(lstat((lDirectory / sFile).c_str(), &lFile), 0);
            EXPECT_EQ(lFile.st_mode, S_IFREG | 0640U);
        }
        EXPECT_TRUE(lDirectory.isEmpty());
    }
}

TEST(FcStatistics, TheDocumentHasEveryRow) {
    const ZTCTestDirectory lDirectory("/dev/shm");
    ZTCFcStatistics lStatistics(lDirectory.getPath());
    for (const auto lRow : {ZTFL_TimeOuts, ZTFL_Unreached, ZTFL_Failures, ZTFL_Beyond}) {
        lStatistics.countFor(lRow, 3, 1, 0);
    }
    for (const auto lRow :
         {ZTFK_LinkIntegrity, ZTFK_Delivery, ZTFK_PeerCongestion, ZTFK_Congestion, ZTFK_Other}) {
        lStatistics.countFor(lRow, 3, lRow < ZTFK_Congestion ? 1 : 0, 0);
    }
    std::set<std::string> lRows, lPage;
    for (const auto& [lrName, lValue] : rowsIn(lDirectory.getPath())) {
        const std::regex lLabel("(kind=|=(?=\"\\d))\"\\w+\"");
        lRows.insert("`" + std::regex_replace(lrName, lLabel, "$1\"...\"") + "`");
    }
    for (const ZTTestTexts& lrCells : rowsOf("docs/statistics.md", "row of the library | what it is")) {
        lPage.insert(lrCells[0]);
    }
    EXPECT_EQ(lRows, lPage);
}

// One who reads meanwhile finds each row named. What finds no row is in the totals all the same. A fabric
// takes half of them at the most.
TEST(FcStatistics, RowsGrowUnderAReaderUntilTheTableIsFull) {
    const ZTCTestDirectory lDirectory("/dev/shm");
    constexpr unsigned int lMost =
        ZTCFcStatisticsFile::MaxRows - ZTFF_Count - ZTCFcStatisticsFile::MaxRows / 2;
    ZTCFcStatistics lStatistics(lDirectory.getPath());
    for (unsigned int lPort = 1; lPort <= ZTCFcStatisticsFile::MaxRows; ++lPort) {
        lStatistics.countFor(ZTFK_LinkIntegrity, 3, lPort, 2);
    }
    const std::uint64_t lFpinsWithoutRow = lStatistics.get(ZTFF_NoRow);
    EXPECT_EQ(lFpinsWithoutRow, ZTCFcStatisticsFile::MaxRows - ZTCFcStatisticsFile::MaxRows / 2);
    const ZTCDescriptor lFile(open((lDirectory / sFile).c_str(), O_RDONLY | O_CLOEXEC));
    void* const lpMapped = mmap(nullptr, ZTCFcStatisticsFile::Size, PROT_READ, MAP_SHARED, lFile.get(), 0);
    ASSERT_NE(lpMapped, MAP_FAILED);
    auto* const lpRows = static_cast<char*>(lpMapped);
    std::atomic<unsigned int> lLeft{3};
    inThreads(4, [&](unsigned int aThread) {
        for (unsigned int lRow = 0; aThread != 0 && lRow < lMost + 10; ++lRow) {
            lStatistics.countFor(ZTFL_TimeOuts, lRow, 0, 1, 2);
        }
        aThread != 0 ? --lLeft : 0;
        while (aThread == 0 && lLeft != 0) {
            const auto lCount = reinterpret_cast<std::atomic<std::uint32_t>*>(lpRows + 8)->load();
            EXPECT_NE(lpRows[64UL * lCount], '\0') << lCount;  // the last one's name
        }
    });
    munmap(lpMapped, ZTCFcStatisticsFile::Size);
    EXPECT_EQ(figureIn(lDirectory.getPath(), "late{host=\"0\",lun=\"1\"}"), 6U);
    EXPECT_EQ(rowsIn(lDirectory.getPath()).size(), ZTCFcStatisticsFile::MaxRows);
    EXPECT_EQ(lStatistics.get(ZTFF_NoRow), lFpinsWithoutRow + 3 * 10 * 2);
}

// It goes with the process, but for a kill; the next one replaces it. A child that forks off has no part in
// it.
TEST(FcStatistics, TheFileGoesWithItsProcess) {
    for (const char* const lpParent : {"/dev/shm", "/tmp"}) {
        SCOPED_TRACE(lpParent);
        const ZTCTestDirectory lDirectory(lpParent);
        const auto lShow = [&] {
            auto* const lpStatistics = new ZTCFcStatistics(lDirectory.getPath(), lDirectory / "log");
            EXPECT_TRUE(waitUntil([&] { return !rowsIn(lDirectory.getPath()).empty(); }));
            return lpStatistics;
        };
        ZTCTestChild lKilled([&] { lShow(), raise(SIGKILL); });
        EXPECT_EQ(lKilled.waitForEnd(), 128 + SIGKILL);
        const std::string lLeft = readFile(lDirectory / sFile);
        EXPECT_FALSE(lLeft.empty());
        ZTCTestChild lQuick([&] {
            lShow();
            EXPECT_TRUE(waitUntil([&] { return readFile(lDirectory / sFile) != lLeft; }));
            ZTCTestProcess lForked(fork());
            lForked.getProcess() == 0 ? quick_exit(0) : void();
            EXPECT_EQ(lForked.waitForEnd(), 0);
            EXPECT_FALSE(rowsIn(lDirectory.getPath()).empty());
            quick_exit(::testing::Test::HasFailure() ? 99 : 0);
        });
        EXPECT_EQ(lQuick.waitForEnd(), 0);
        EXPECT_TRUE(lDirectory.isEmpty());
    }
}

TEST(FcStatistics, WhatIsSomebodyElsesIsLeftAlone) {
    const ZTCTestDirectory lDirectory("/dev/shm");
    const std::string lLog = lDirectory / "log";
    const auto lExpectInMemory = [&](const std::string& acrDirectory, const std::string& acrWhy) {
        std::filesystem::remove(lLog);
        ZTCFcStatistics lStatistics(acrDirectory, lLog);
        lStatistics.count(ZTFF_TimeOuts, 5);
        EXPECT_EQ(lStatistics.get(ZTFF_TimeOuts), 5U);
        EXPECT_EQ(readFile(lLog), "libdfc-fchost: the statistics are in no file (" + acrWhy + ")\n");
    };
    lExpectInMemory("", "no directory is set: No such file or directory");
    lExpectInMemory(lDirectory / "none", (lDirectory / "none") + ": No such file or directory");
    writeFile(lDirectory / "others", "theirs");
    std::filesystem::create_symlink("others", lDirectory / sFile);
    std::filesystem::create_symlink("others", lDirectory / (std::string(sFile) + ".new"));
    lExpectInMemory(lDirectory.getPath(), (lDirectory / sFile) + ": File exists");
    EXPECT_TRUE(std::filesystem::is_symlink(lDirectory / sFile));
    std::filesystem::remove(lDirectory / sFile);
    {
        ZTCFcStatistics lFirst(lDirectory.getPath(), lLog);
        const ZTCFcStatistics lSecond(lDirectory.getPath(), lLog);
        lFirst.count(ZTFF_TimeOuts);
        EXPECT_EQ(figureIn(lDirectory.getPath(), "timeouts_total"), 0U);
        std::filesystem::remove(lDirectory / sFile);
        writeFile(lDirectory / sFile, "theirs");
    }
    EXPECT_EQ(readFile(lDirectory / sFile) + readFile(lDirectory / "others"), "theirstheirs");
}

}  // namespace
