// The store goes, comes, is another, is no store, is held, or lies on a disk that stands still: everybody is
// told why, the page is there, and it recovers by itself.
#include <SQLiteCpp/SQLiteCpp.h>

#include <nlohmann/json.hpp>

#include "TestDisk.h"
#include "WebProgram.h"

namespace {

using Json = nlohmann::json;
namespace Fs = std::filesystem;

constexpr char sPeriods[] = "ZT_TEST_WEB_PERIODS=request=400,alive=100";
constexpr char sPath[] = "/api/v1/incidents";

// Why the history cannot be read, behind that nobody collects here. Empty: it can.
std::string sReasonOf(const ZTCWebRun& acrWeb) {
    const std::string lReason = Json::parse(acrWeb.get("/healthz").mBody).at("reason");
    const std::size_t lAt = lReason.find("; ", lReason.find("; ") + 1);
    return lAt == std::string::npos ? "" : lReason.substr(lAt + 2);
}

// Each of them says so within a request's time.
void sExpectTold(const ZTCWebRun& acrWeb) {
    EXPECT_TRUE(waitUntil([&] { return acrWeb.get(sPath).mStatus == 503; }));
    EXPECT_TRUE(waitUntil([&] { return !sReasonOf(acrWeb).empty(); }));
    EXPECT_FALSE(contains(sReasonOf(acrWeb), "\n"));
    const ZTSWebReply lReply = acrWeb.get("/api/v1/records");
    EXPECT_EQ(lReply.mStatus, 503U);
    EXPECT_FALSE(Json::parse(lReply.mBody).at("error").get<std::string>().empty());
    EXPECT_EQ(acrWeb.get("/").mStatus, 200U);
    EXPECT_EQ(acrWeb.get("/metrics").mStatus, 200U);
}

void sExpectWell(const ZTCWebRun& acrWeb, const std::string& acrHost = "db7") {
    EXPECT_TRUE(waitUntil([&] {
        const ZTSWebReply lReply = acrWeb.get(sPath);
        return lReply.mStatus == 200 && Json::parse(lReply.mBody).at("host") == acrHost;
    })) << acrWeb.getErr();
    EXPECT_TRUE(waitUntil([&] { return sReasonOf(acrWeb).empty(); })) << sReasonOf(acrWeb);
}

struct Stand {
    Stand() { ZTCWebStore::make(mPath); }

    void remove() const {
        for (const char* const lpEnd : {"", "-wal", "-shm"}) {
            Fs::remove_all(mPath + lpEnd);
        }
    }
    void makeOther(const std::string& acrHost) const {
        ZTSStoreOptions lOptions = ZTHostStoreOptions(mDirectory / "other.db");
        lOptions.mHostName = acrHost;
        ZTCStoreWriter lWriter(lOptions);
        lWriter.write(ZTSStoredIncidents().mBatch);
        lWriter.finish();
        for (const char* const lpEnd : {"-wal", "-shm", ""}) {
            Fs::rename(lOptions.mPath + lpEnd, mPath + lpEnd);
        }
    }
    void exec(const std::string& acrSql) const {
        SQLite::Database(mPath, SQLite::OPEN_READWRITE, 5000).exec(acrSql);
    }
    void overwrite(std::size_t aAt, std::size_t aSize) const {
        std::fstream lFile(mPath, std::ios::in | std::ios::out | std::ios::binary);
        lFile.seekp(static_cast<std::streamoff>(aAt));
        lFile << std::string(aSize, 'x');
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
};

TEST(WebTrouble, AStoreThatIsNoneIsToldAndComesBack) {
    const struct {
        const char* mpWhat;
        std::function<void(const Stand&)> mDo;
    } lTroubles[] = {
        {"gone", [](const Stand&) {}},
        {"a directory", [](const Stand& acrStand) { Fs::create_directory(acrStand.mPath); }},
        {"a pipe", [](const Stand& acrStand) { mkfifo(acrStand.mPath.c_str(), 0600); }},
        {"a link that leads nowhere",
         [](const Stand& acrStand) { Fs::create_symlink("/nonexistent/x", acrStand.mPath); }},
        {"empty", [](const Stand& acrStand) { writeFile(acrStand.mPath, ""); }},
        {"a text", [](const Stand& acrStand) { writeFile(acrStand.mPath, std::string(100000, 'x')); }},
        {"another program's",
         [](const Stand& acrStand) {
             SQLite::Database(acrStand.mPath, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
                 .exec("CREATE TABLE t (x)");
         }},
        {"cut short",
         [](const Stand& acrStand) {
             acrStand.makeOther("db7");
             Fs::resize_file(acrStand.mPath, 8192 + 100);
         }},
        {"damaged",
         [](const Stand& acrStand) {
             acrStand.makeOther("db7");
             acrStand.overwrite(4096, Fs::file_size(acrStand.mPath) - 4096);
         }},
        {"of a newer version",
         [](const Stand& acrStand) {
             acrStand.makeOther("db7");
             acrStand.exec("PRAGMA user_version = 99");
         }},
        {"of an older version", [](const Stand& acrStand) {
             acrStand.makeOther("db7");
             acrStand.exec("PRAGMA user_version = 1");
         }}};
    inThreads(std::size(lTroubles), [&](unsigned int aRow) {
        SCOPED_TRACE(lTroubles[aRow].mpWhat);
        const Stand lStand;
        const ZTCWebRun lWeb(lStand.mPath, {}, {sPeriods});
        sExpectWell(lWeb);
        lStand.remove();
        lTroubles[aRow].mDo(lStand);
        sExpectTold(lWeb);
        lStand.remove();
        lStand.makeOther("db8");
        sExpectWell(lWeb, "db8");
    });
}

TEST(WebTrouble, AnotherStoreInItsPlaceIsTakenAtOnce) {
    const Stand lStand;
    const ZTCWebRun lWeb(lStand.mPath, {}, {sPeriods});
    ZTCWebClient lStream(lWeb.getPort());
    lStream.send(ZTWebGet("/api/v1/stream"));
    EXPECT_TRUE(lStream.readUntil("retry:"));
    lStand.makeOther("db8");
    sExpectWell(lWeb, "db8");
    EXPECT_TRUE(lStream.readUntil(": keep-alive"));
}

TEST(WebTrouble, AStoreThatIsNotThereYetIsWaitedFor) {
    const Stand lStand;
    lStand.remove();
    const ZTCWebRun lWeb(lStand.mPath, {}, {sPeriods});
    sExpectTold(lWeb);
    lStand.makeOther("db9");
    sExpectWell(lWeb, "db9");
}

TEST(WebTrouble, AStoreThatIsHeldIsWaitedForAsLongAsARequestMayTake) {
    const Stand lStand;
    const ZTCWebRun lWeb(lStand.mPath, {}, {sPeriods});
    sExpectWell(lWeb);
    {
        // Nobody who only reads is held up by who writes a log; by who takes the file for himself.
        SQLite::Database lOther(lStand.mPath, SQLite::OPEN_READWRITE, 10000);
        lOther.exec("BEGIN EXCLUSIVE");
        inThreads(8, [&](unsigned int) {
            const unsigned int lStatus = lWeb.get(sPath).mStatus;
            EXPECT_TRUE(lStatus == 503 || lStatus == 200) << lStatus;
        });
        EXPECT_EQ(lWeb.get("/").mStatus, 200U);
    }
    sExpectWell(lWeb);
}

// Whoever waits for the disk waits in the kernel, and nobody can call him back.
TEST(WebTrouble, ADiskThatStandsStillHoldsUpNobodyButItsReaders) {
    const Stand lStand;
    const ZTCTestDisk lDisk("history.db");
    std::vector<std::string> lEnvironment = lDisk.getEnvironment();
    lEnvironment.emplace_back(sPeriods);
    ZTCWebRun lWeb(lStand.mPath, {}, lEnvironment);
    sExpectWell(lWeb);
    lDisk.standWhole();
    inThreads(20, [&](unsigned int aThread) {
        EXPECT_EQ(lWeb.get(aThread % 2 == 0 ? sPath : "/api/v1/records?limit=1000").mStatus, 503U);
    });
    sExpectTold(lWeb);
    ZTCWebClient lStream(lWeb.getPort());
    lStream.send(ZTWebGet("/api/v1/stream"));
    EXPECT_TRUE(lStream.readUntil(": keep-alive"));
    lDisk.move();
    sExpectWell(lWeb);
    lDisk.standWhole();
    EXPECT_EQ(lWeb.get(sPath).mStatus, 503U);
    EXPECT_EQ(lWeb.end(), 0) << lWeb.getErr();  // while somebody still waits
    const ZTCWebRun lNext(lStand.mPath, {}, lEnvironment);
    EXPECT_EQ(lNext.get(sPath).mStatus, 503U);
    EXPECT_EQ(lNext.get("/").mStatus, 200U);
    lDisk.move();
    sExpectWell(lNext);
}

}  // namespace
