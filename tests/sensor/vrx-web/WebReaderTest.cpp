// vrx-web beside the store: it changes nothing of it, and however many ask, it takes little and holds up
// nobody.
#include <grp.h>
#include <sys/resource.h>

#include "SensorBooks.h"
#include "WebProgram.h"
#include "WebRoutes.h"

namespace {

namespace Fs = std::filesystem;

constexpr unsigned int sUser = 65534;
constexpr unsigned int sGroup = 65533;  // that may read the store

// What there is of the files of a directory; each name with its rights, its times and its bytes.
std::map<std::string, std::string> sLookAt(const std::string& acrDirectory) {
    std::map<std::string, std::string> lFiles;
    for (const auto& lrFile : Fs::directory_iterator(acrDirectory)) {
        struct stat lStatus {};
        lstat(lrFile.path().c_str(), &lStatus);
        lFiles[lrFile.path().filename()] = std::to_string(lStatus.st_mode) + " " +
                                           std::to_string(lStatus.st_mtim.tv_sec) + "." +
                                           std::to_string(lStatus.st_mtim.tv_nsec) + " " +
                                           (S_ISREG(lStatus.st_mode) ? readFile(lrFile.path()) : "");
    }
    return lFiles;
}

TEST(WebReader, NothingThatIsSentChangesAByteOfTheStore) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be another user";
    }
    // The program lies where the other user may run it; the store's log is not in the file yet.
    const ZTCTestDirectory lPrograms;
    Fs::permissions(lPrograms.getPath(), Fs::perms(0755));
    Fs::copy_file(ZT_TEST_WEB, lPrograms / "vrx-web");
    const ZTCTestDirectory lDirectory;
    const std::string lPath = lDirectory / "history.db";
    ZTCStoreWriter lWriter(ZTHostStoreOptions(lPath));
    lWriter.write(ZTSStoredIncidents().mBatch);
    Fs::permissions(lDirectory.getPath(), Fs::perms(0750));
    for (const char* const lpFile : {"", "history.db", "history.db-wal", "history.db-shm"}) {
        EXPECT_EQ(chown((lDirectory / lpFile).c_str(), 0, sGroup), 0) << lpFile;
    }
    const auto lBefore = sLookAt(lDirectory.getPath());
    EXPECT_GT(lBefore.at("history.db-wal").size(), 4096U);

    std::vector<std::string> lCommand = ZTCWebRun::commandOf(lPath, {});
    lCommand[0] = lPrograms / "vrx-web";
    const std::string lIds[] = {"--reuid=" + std::to_string(sUser), "--regid=" + std::to_string(sUser),
                                "--groups=" + std::to_string(sGroup)};
    lCommand.insert(lCommand.begin(), {"/usr/bin/setpriv", lIds[0], lIds[1], lIds[2]});
    ZTCWebRun lWeb(ZTCWebRun::Whole{lCommand});
    ZTCWebClient lClient(lWeb.getPort());
    for (const ZTSWebRoute& lrRoute : listWebRoutes()) {
        const std::string lAsk = std::string(lrRoute.mPath) + (lrRoute.mPath.ends_with('/') ? "1" : "");
        EXPECT_EQ(lClient.get(lAsk).mStatus, 200U) << lAsk;
        for (const std::string_view lName : lrRoute.mParameters) {
            lClient.get(lAsk + "?" + std::string(lName) +
                        "=x%27;UPDATE%20meta%20SET%20value=0;PRAGMA%20journal_mode=DELETE;VACUUM;--");
        }
        for (const char* const lpMethod : {"POST", "PUT", "DELETE", "PATCH"}) {
            ZTCWebClient lOther(lWeb.getPort());
            EXPECT_EQ(lOther
                          .ask(std::string(lpMethod) + " " + lAsk +
                               " HTTP/1.1\r\nHost: localhost\r\nContent-Length: 2\r\n\r\n{}")
                          .mStatus,
                      405U);
        }
    }
    EXPECT_EQ(lClient.get("/metrics").mStatus, 200U);
    EXPECT_EQ(lWeb.end(), 0);
    const auto lBehind = sLookAt(lDirectory.getPath());
    EXPECT_EQ(lBefore.size(), lBehind.size());
    for (const auto& [lName, lFile] : lBefore) {
        EXPECT_TRUE(lBehind.count(lName) == 1 && lBehind.at(lName) == lFile) << lName;
    }
    // Nor could it: what its user may not, it may not.
    ZTCTestChild lTries([&] {
        const gid_t lGroup = sGroup;
        EXPECT_EQ(setgroups(1, &lGroup), 0);
        EXPECT_EQ(setgid(sUser), 0);
        EXPECT_EQ(setuid(sUser), 0);
        EXPECT_EQ(access(lPath.c_str(), R_OK), 0);
        for (const char* const lpFile : {"", "history.db", "history.db-wal", "history.db-shm"}) {
            EXPECT_NE(access((lDirectory / lpFile).c_str(), W_OK), 0) << lpFile;
        }
    });
    EXPECT_EQ(lTries.waitForEnd(), 0);
}

// Records of as much data as there may be, asked for by as many as there may be, of whom none reads.
TEST(WebReader, AnswersThatNobodyTakesAreBounded) {
    const ZTCTestDirectory lDirectory;
    ZTSStoredIncidents lHost;
    const ZTSStoreRow lRow = lHost.mBatch.mRows.back();
    for (int lTimes = 1; lTimes <= 60; ++lTimes) {
        lHost.mBatch.mRows.push_back(lRow);
        lHost.mBatch.mRows.back().mId = lRow.mId + static_cast<std::uint64_t>(lTimes);
        lHost.mBatch.mRows.back().mRecord.mData.assign(262144, 0xff);
    }
    ZTCStoreWriter lWriter(ZTHostStoreOptions(lDirectory / "history.db"));
    lWriter.write(lHost.mBatch);
    const ZTCWebRun lWeb(lDirectory / "history.db");
    const std::string lAsks[] = {
        ZTWebGet("/api/v1/records?limit=1000"), ZTWebGet("/api/v1/records?limit=1000&format=csv"),
        ZTWebGet("/api/v1/records?limit=1000&format=ndjson"), ZTWebGet("/api/v1/incidents/1")};
    std::vector<std::unique_ptr<ZTCWebClient>> lClients;
    for (unsigned int lAt = 0; lAt < 1000; ++lAt) {
        const std::string lFrom = "127.0.0." + std::to_string(20 + lAt % 4);
        lClients.push_back(std::make_unique<ZTCWebClient>(lWeb.getPort(), lFrom.c_str()));
        lClients.back()->send(lAsks[lAt / 4 % std::size(lAsks)]);
    }
    lClients.resize(990);
    // The last of the crowd has had his turn when there is room for one more.
    const auto lAnswerOf = [&] { return ZTCWebClient(lWeb.getPort()).get("/api/v1/ports").mStatus; };
    EXPECT_TRUE(waitUntil([&] { return lAnswerOf() == 200; }));
    printf("           %ju KiB at the most\n", static_cast<std::uintmax_t>(lWeb.getMemory("VmHWM")));
    if (!ZTIsSanitized) {
        EXPECT_LE(lWeb.getMemory("VmHWM"), 160U << 10);
    }
}

// In the whole form the storm is millions of events.
TEST(WebReader, StreamsAndThoseWhoPollHoldUpNoCollecting) {
    constexpr unsigned int lPollers = 50;
    const unsigned int lEvents = ZTTestRounds(100000U, 5000000U);
    ZTCSnBooks lBooks({"--every", "0.05", "--fold", "0.2"});
    EXPECT_TRUE(waitUntil([&] { return lBooks.ask("SELECT count(*) FROM meta") > 0; }));
    const ZTCWebRun lWeb(lBooks.getStore());
    const std::string lAsks[] = {"/api/v1/incidents", "/api/v1/timeline?since=-1h&by=kind", "/api/v1/ports",
                                 "/api/v1/records?limit=100", "/metrics"};
    std::vector<std::unique_ptr<ZTCWebClient>> lStreams;
    for (unsigned int lAt = 0; lAt < 200; ++lAt) {
        lStreams.push_back(std::make_unique<ZTCWebClient>(
            lWeb.getPort(), ("127.0.0." + std::to_string(2 + lAt % 4)).c_str()));
        lStreams.back()->send(ZTWebGet("/api/v1/stream"));
        EXPECT_TRUE(lStreams.back()->readUntil("retry:"));
    }
    std::atomic<bool> lIsOver{false};
    std::atomic<unsigned int> lAnswers{0};
    std::thread lPolling([&] {
        inThreads(5, [&](unsigned int aThread) {
            setpriority(PRIO_PROCESS, 0, 19);
            std::vector<std::unique_ptr<ZTCWebClient>> lClients;
            for (unsigned int lAt = 0; lAt < lPollers / 5; ++lAt) {
                lClients.push_back(std::make_unique<ZTCWebClient>(lWeb.getPort()));
            }
            while (!lIsOver) {
                for (std::size_t lAt = 0; lAt < lClients.size(); ++lAt) {
                    lClients[lAt]->send(ZTWebGet(lAsks[(aThread + lAt) % std::size(lAsks)]));
                }
                for (const auto& lrpClient : lClients) {
                    const unsigned int lStatus = lrpClient->receive().mStatus;
                    EXPECT_TRUE(lStatus == 200 || lStatus == 503) << lStatus;
                    lAnswers += lStatus == 200;
                }
            }
        });
    });
    lBooks.storm(lEvents, ZTIsSanitized ? 10000 : 50000);
    // Each stream has the first record of it, and goes on while the storm does.
    for (const auto& lrpStream : lStreams) {
        EXPECT_TRUE(lrpStream->readUntil("event: record"));
    }
    EXPECT_TRUE(waitUntil([&] { return lBooks.getDelivered() >= lEvents && lAnswers >= 4 * lPollers; }, 600));
    lIsOver = true;
    lPolling.join();
    printf("           %u answers beside 200 streams; %ju KiB at the most\n", lAnswers.load(),
           static_cast<std::uintmax_t>(lWeb.getMemory("VmHWM")));
    if (!ZTIsSanitized) {
        EXPECT_LE(lWeb.getMemory("VmHWM"), 60U << 10);
    }
    lBooks.expectAll(lEvents);
    // Of a processor that has others to serve the agent may be full for a moment.
    EXPECT_EQ(lBooks.getOtherLosses("'limit'"), 0);
    EXPECT_LE(lBooks.getLost(), lEvents / 10);
}

}  // namespace
