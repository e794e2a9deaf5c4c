#include <sys/ioctl.h>
#include <sys/stat.h>

#include "SensorProgram.h"
#include "StoreRequest.h"
#include "TestDisk.h"
#include "TestManager.h"

namespace {

TEST(SensorProgram, WhatTheLibrarySendsIsInTheStore) {
    ZTCSnStand lStand({"--every", "0.1", "--fold", "1"});
    lStand.play("queue-full board=0 lun=3 times=1000\nport-busy board=1 times=500\nplogi times=7\n");
    EXPECT_TRUE(lStand.waitForEvents(1507));
    lStand.play("queue-full board=0 lun=3 times=20\n");
    EXPECT_EQ(lStand.endSensor(), 0);  // fetches once more
    EXPECT_EQ(lStand.getStored(), 1527);
    EXPECT_EQ(lStand.getLost(), 0);
    lStand.expectSumsAreWhole();
    EXPECT_LE(lStand.ask("SELECT count(*) FROM records"), 4);
    struct stat lStatus {};
    ASSERT_EQ(stat(lStand.getStore().c_str(), &lStatus), 0);
    EXPECT_EQ(lStatus.st_mode & 0777, 0640U);
    EXPECT_EQ(std::filesystem::file_size(lStand.getStore() + "-wal"), 0U);

    lStand.play("port-busy board=0 times=11\n");
    lStand.startSensor();
    EXPECT_TRUE(lStand.waitForEvents(1538));
    EXPECT_EQ(lStand.ask("SELECT count(*) FROM agents"), 1);
    lStand.endSensor();
    lStand.expectSumsAreWhole();
    EXPECT_EQ(lStand.getLost(), 0);
    EXPECT_EQ(lStand.endAgent(), 0);
    const auto lChanges = [&](const char* apWhich) {
        return lStand.ask(std::string("SELECT count(*) FROM changes WHERE what = 'sensor' AND ") + apWhich);
    };
    EXPECT_EQ(lChanges("event = 'came' AND after LIKE 'version %'"), 2);
    EXPECT_EQ(lChanges("event = 'went' AND after = 'ended'"), 2);
    const std::string lKilled = std::to_string(lStand.startSensor().getProcess());
    EXPECT_TRUE(waitUntil([&] { return lChanges("event = 'came'") == 3; }));
    lStand.killSensor();
    lStand.startSensor();
    EXPECT_TRUE(waitUntil([&] { return lChanges("event = 'came'") == 4; }));
    EXPECT_EQ(lChanges(("after = 'unknown' AND name = 'vrx-sn, process " + lKilled + "'").c_str()), 1);
    lStand.endSensor();
}

// A disk that has lost what was written to it, as a program sees it that runs on.
TEST(SensorProgram, APageThatIsDamagedMeanwhileLosesNothingThatGoesOn) {
    ZTCSnStand lStand({"--every", "0.1", "--fold", "600"});
    lStand.play("port-busy board=0 times=100\nqueue-full board=1 lun=3 times=50\n");
    ASSERT_TRUE(lStand.waitForEvents(150));
    {
        SQLite::Database lStore = openStoreAgain(lStand.getStore());
        lStore.setBusyTimeout(10000);
        // What vrx-sn has of the page is no longer true, and what the log has of it is in the file.
        const auto lPage =
            lStore.execAndGet("SELECT rootpage FROM sqlite_schema WHERE name = 'records'").getInt64();
        lStore.execAndGet("PRAGMA wal_checkpoint(PASSIVE)");
        lStore.exec("INSERT INTO meta VALUES ('mark', 1)");
        const ZTCDescriptor lFile(open(lStand.getStore().c_str(), O_WRONLY | O_CLOEXEC));
        const std::string lGarbage(4096, 'x');
        ASSERT_EQ(pwrite(lFile.get(), lGarbage.data(), lGarbage.size(), (lPage - 1) * 4096), 4096);
    }
    lStand.play("port-busy board=0 times=7\n");
    EXPECT_TRUE(waitUntil([&] { return lStand.getStored() == 107; })) << lStand.getSensor().getErr();
    EXPECT_TRUE(contains(lStand.getSensor().getErr(), "the history was damaged"));
    EXPECT_EQ(lStand.endSensor(), 0);
    lStand.startSensor();
    lStand.play("port-busy board=0 times=3\n");
    EXPECT_TRUE(lStand.waitForEvents(110));
    lStand.endSensor();
    EXPECT_EQ(lStand.getStored(), 110);
    EXPECT_EQ(lStand.getLost(), 0);
    EXPECT_EQ(lStand.getUnknown(), 1);  // the other row is in the damaged file
    EXPECT_EQ(lStand.ask("SELECT count(*) FROM changes WHERE event = 'damaged'"), 1);
    lStand.expectSumsAreWhole();
}

TEST(SensorProgram, WhatCannotBeUsedIsOneLineAndAStatus) {
    const ZTCTestDirectory lDirectory;
    writeFile(lDirectory / "file", "");
    const std::string lStore = lDirectory / "history.db";
    writeFile(lDirectory / "text", "no store");
    writeFile(lDirectory / "other.db", "");
    SQLite::Database(lDirectory / "other.db", SQLite::OPEN_READWRITE).exec("CREATE TABLE a (b)");
    const struct {
        std::string mStore;
        std::vector<std::string> mArguments;
        int mStatus;
    } lRows[] = {{lStore, {"--every", "0"}, 2},
                 {lStore, {"--config", "/absent"}, 2},
                 {lDirectory.getPath(), {}, 1},
                 {lDirectory / "text", {}, 1},
                 {lDirectory / "other.db", {}, 1},
                 {lDirectory / "file/history.db", {}, 1},
                 {lDirectory / "absent/history.db", {}, 1}};
    for (const auto& lrRow : lRows) {
        const ZTSTestEnd lEnd = runChild<ZTCSnRun>(lDirectory.getPath(), lrRow.mStore, lrRow.mArguments);
        EXPECT_EQ(lEnd.mStatus, lrRow.mStatus) << lEnd.mErr;
        EXPECT_TRUE(lEnd.mErr.starts_with("vrx-sn: ")) << lEnd.mErr;
        EXPECT_EQ(countIn(lEnd.mErr, "\n"), 1U) << lEnd.mErr;
        EXPECT_EQ(lEnd.mOut, "");
        EXPECT_FALSE(std::filesystem::exists(lrRow.mStore + "-lock"));
    }
    const ZTSTestEnd lHelp =
        runChild<ZTCSnRun>(lDirectory.getPath(), lStore, ZTCTestChild::Arguments{"--help"});
    EXPECT_EQ(lHelp.mStatus, 0);
    EXPECT_TRUE(contains(lHelp.mOut, "--on-incident COMMAND"));
    EXPECT_EQ(lHelp.mErr, "");
}

TEST(SensorProgram, TheManagerIsToldHowItGoes) {
    const ZTCTestDirectory lDirectory("/dev/shm");
    const ZTCTestManager lManager(lDirectory / "notify");
    const auto lEnvironment =
        lManager.getEnvironment("200000", {"RUNTIME_DIRECTORY=" + lDirectory.getPath()});
    writeFile(lDirectory / "conf", "every=0.1\n");
    ZTCSnStand lStand({"--config", lDirectory / "conf"}, lEnvironment);
    EXPECT_TRUE(lManager.hears("READY=1"));
    lStand.play("port-busy times=1234\n");
    EXPECT_TRUE(lManager.hears("WATCHDOG=1"));
    EXPECT_TRUE(lManager.hears("STATUS=1,234 events today"));

    EXPECT_EQ(readFile(lDirectory / "vrx-sn.stats").substr(0, 8), "VRXSTAT1");

    writeFile(lDirectory / "conf", "every=nothing\n");
    lStand.getSensor().sendSignal(SIGHUP);
    EXPECT_TRUE(lManager.hears("RELOADING=1"));
    EXPECT_TRUE(lManager.hears("READY=1"));
    EXPECT_TRUE(contains(lStand.getSensor().getErr(), "the configuration stays as it was"))
        << lStand.getSensor().getErr();
    writeFile(lDirectory / "conf", "every=0.2\nstore=/other\nhost=other\n");
    lStand.getSensor().sendSignal(SIGHUP);
    EXPECT_TRUE(waitUntil([&] { return contains(lStand.getSensor().getErr(), "read anew"); }));
    EXPECT_TRUE(contains(lStand.getSensor().getErr(), "only a new start changes --host"))
        << lStand.getSensor().getErr();
    lStand.killAgent();
    EXPECT_TRUE(lManager.hears("no agent"));
    lStand.endSensor();
    EXPECT_TRUE(lManager.hears("STOPPING=1"));
    EXPECT_FALSE(std::filesystem::exists(lDirectory / "vrx-sn.stats"));
}

TEST(SensorProgram, ADiskThatStandsStillHoldsUpNobody) {
    const ZTCTestDirectory lDirectory;
    const ZTCTestManager lManager(lDirectory / "notify");
    const ZTCTestDisk lDisk("history.db");
    ZTCSnStand lStand({"--every", "0.1"}, lManager.getEnvironment("200000", lDisk.getEnvironment()));
    lStand.play("port-busy times=100\n");
    EXPECT_TRUE(lStand.waitForEvents(100));
    lDisk.stand();
    lStand.play("port-busy times=1000\n");
    EXPECT_TRUE(lManager.hears("its disk stands still")) << lStand.getSensor().getErr();
    EXPECT_TRUE(lManager.hears("WATCHDOG=1"));
    EXPECT_EQ(lStand.getFigure("held_events"), 0U);
    // An end that cannot write takes its ten seconds. What was fetched is told by the next one.
    const bool lEnds = ZTTestRounds(false, true);
    if (lEnds) {
        const auto lBegin = std::chrono::steady_clock::now();
        lStand.getSensor().sendSignal(SIGTERM);
        EXPECT_TRUE(
            waitUntil([&] { return contains(lStand.getSensor().getErr(), "that are not in the history"); }));
        lDisk.move();  // a thread that waits for its disk can only be ended when it has it
        lStand.endSensor();
        EXPECT_LT(std::chrono::steady_clock::now() - lBegin, std::chrono::seconds(15));
        lStand.startSensor();
    }
    lDisk.move();
    EXPECT_TRUE(lStand.waitForEvents(1100));
    EXPECT_EQ(lStand.getStored() + lStand.getLost(), 1100);
    EXPECT_TRUE(lEnds || contains(lStand.getSensor().getErr(), "over after")) << lStand.getSensor().getErr();
    lStand.endSensor();
}

// Standard error that takes nothing, and a journal.
TEST(SensorProgram, LinesAreNotWaitedForAndTheJournalHasTheirLevels) {
    const ZTCTestDirectory lDirectory;
    int lPipe[2];
    ASSERT_EQ(pipe2(lPipe, O_CLOEXEC | O_NONBLOCK), 0);
    const ZTCDescriptor lReader(lPipe[0]);
    const ZTCDescriptor lWriter(lPipe[1]);
    while (write(lWriter.get(), "x", 1) == 1) {
    }
    fcntl(lWriter.get(), F_SETFL, 0);
    int lSockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, lSockets), 0);
    const ZTCDescriptor lJournal(lSockets[0]);
    const ZTCDescriptor lStream(lSockets[1]);
    struct stat lStatus {};
    ASSERT_EQ(fstat(lStream.get(), &lStatus), 0);
    for (const ZTCDescriptor* const lpError : {&lWriter, &lStream}) {
        const bool lIsJournal = lpError == &lStream;
        ZTCTestChild lChild([&] {
            const std::string lName =
                "JOURNAL_STREAM=" + std::to_string(lStatus.st_dev) + ":" + std::to_string(lStatus.st_ino);
            lIsJournal ? putenv(const_cast<char*>(lName.c_str())) : 0;
            dup2(lpError->get(), STDERR_FILENO);
            execl(ZT_VRX_SN, ZT_VRX_SN, "--dir", lDirectory.getPath().c_str(), "--every", "\n0", nullptr);
        });
        EXPECT_EQ(lChild.waitForEnd(), 2);
    }
    char lText[512];
    const ssize_t lRead = recv(lJournal.get(), lText, sizeof lText, MSG_DONTWAIT);
    ASSERT_GT(lRead, 0);
    const std::string lLine(lText, static_cast<std::size_t>(lRead));
    EXPECT_TRUE(lLine.starts_with("<3>--every")) << lLine;
    EXPECT_EQ(countIn(lLine, "\n"), 1U) << lLine;
}

// What somebody asks for by a row of the store, windows, and things in sysfs that are none: a pipe in the
// place of each attribute that is read.
TEST(SensorProgram, WhatIsAskedForIsDoneAndPipesInPlaceOfFilesHoldUpNobody) {
    const ZTCTestDirectory lDirectory;
    for (const char* const lpPipe :
         {"sys/class/fc_host/host3/port_name", "sys/class/fc_host/host3/statistics/nos_count",
          "sys/class/scsi_device/3:0:0:0/device/state", "sys/block/sda/dev", "proc/diskstats",
          "proc/self/mountinfo", "etc/multipath.conf", "names"}) {
        const std::filesystem::path lPath(lDirectory / lpPipe);
        std::filesystem::create_directories(lPath.parent_path());
        ASSERT_EQ(mkfifo(lPath.c_str(), 0600), 0);
    }
    writeFile(lDirectory / "conf", "window=\"host @1 @2 one\"\nwindow=\"hba0 @3 @4\"\n");
    ZTCSnStand lStand(
        {"--config", lDirectory / "conf", "--root", lDirectory.getPath(), "--names", lDirectory / "names"});
    lStand.play("port-busy times=5\n");
    EXPECT_TRUE(lStand.waitForEvents(5));
    EXPECT_TRUE(waitUntil([&] { return lStand.ask("SELECT count(*) FROM windows") == 2; }));
    ZTSStoreRequest lNote;
    lNote.mTime = 5;
    lNote.mWho = "root";
    lNote.mWhat = "note";
    lNote.mText = "a cable was pulled";
    addStoreRequest(lStand.getStore(), lNote);
    EXPECT_TRUE(waitUntil([&] {
        return lStand.ask(
                   "SELECT count(*) FROM changes WHERE what = 'note' AND after = 'a cable was pulled'") == 1;
    }));
    writeFile(lDirectory / "conf", "window=\"host @1\"\n");
    lStand.getSensor().sendSignal(SIGHUP);
    EXPECT_TRUE(waitUntil([&] { return contains(lStand.getSensor().getErr(), "stays as it was: "); }));
    EXPECT_EQ(lStand.ask("SELECT count(*) FROM windows"), 2);
    writeFile(lDirectory / "conf", "");
    lStand.getSensor().sendSignal(SIGHUP);
    EXPECT_TRUE(waitUntil([&] { return lStand.ask("SELECT count(*) FROM windows") == 0; }));
    const auto lBegan = std::chrono::steady_clock::now();
    lStand.endSensor();
    EXPECT_LT(std::chrono::steady_clock::now() - lBegan, std::chrono::seconds(9));
    EXPECT_EQ(lStand.ask("SELECT count(*) FROM changes WHERE what = 'note'"), 1);
}

}  // namespace
