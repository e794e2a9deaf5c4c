#include <sys/socket.h>
#include <sys/un.h>

#include <nlohmann/json.hpp>

#include "IncidentTeller.h"
#include "ServiceLog.h"
#include "SnFigures.h"
#include "TestSupport.h"

namespace {

using namespace std::chrono_literals;

ZTSIncidentTelling telling(ZTSIncidentTelling::Why aWhy, bool aIsForCommand) {
    ZTSIncidentTelling lTelling;
    lTelling.mWhy = aWhy;
    lTelling.mIsForCommand = aIsForCommand;
    ZTSIncident& lrIncident = lTelling.mIncident;
    lrIncident.mId = 17;
    lrIncident.mClass = ZTEIncidentClass::RedundancyLost;
    lrIncident.mTitle = "4 of 8 paths\n\x1b[31m";
    lrIncident.mOpened = lrIncident.mLast = ZTSecond;
    lrIncident.mTargets = {{{0x50}}, {{0x51}}};
    lrIncident.mHits.mMounts = {"/data", "a\nb"};
    lrIncident.mPathsLeft = 4;
    lrIncident.mPathsTotal = 8;
    return lTelling;
}

class IncidentTeller : public ::testing::Test {
  protected:
    // What lies in the journal, or nothing.
    std::string read() const {
        char lText[65536];
        const ssize_t lRead = recv(mSocket.get(), lText, sizeof lText, MSG_DONTWAIT);
        return {lText, static_cast<std::size_t>(std::max<ssize_t>(lRead, 0))};
    }
    void listen() const {
        sockaddr_un lAddress{AF_UNIX, ""};
        mPath.copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
        ASSERT_EQ(bind(mSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress), 0);
    }
    std::string tell(const ZTSIncidentTelling& acrTelling, const std::string& acrJournal) {
        testing::internal::CaptureStderr();
        ZTCIncidentTeller("db7", acrJournal, mFigures, mLog, mCommand).tell(acrTelling, {});
        return testing::internal::GetCapturedStderr();
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "journal";
    const ZTCDescriptor mSocket{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    ZTCSnFigures mFigures{""};
    ZTCServiceLog mLog{"vrx-sn"};
    ZTCIncidentCommand mCommand{mFigures, mLog};
};

TEST_F(IncidentTeller, TheJournalHasItsFields) {
    listen();
    EXPECT_EQ(tell(telling(ZTSIncidentTelling::Why::Worse, false), mPath), "");
    const std::string lEntry = "\n" + read();
    for (const char* const lpLine :
         {"PRIORITY=3", "MESSAGE_ID=efcdc28270fb4c5ba57106e6f75003ff", "INCIDENT_ID=17",
          "INCIDENT_CLASS=redundancy_lost", "INCIDENT_STATE=open", "INCIDENT_TARGET=50:00:00:00:00:00:00:00",
          "INCIDENT_TARGET=51:00:00:00:00:00:00:00", "INCIDENT_MOUNT=/data", "INCIDENT_PATHS_LEFT=4",
          "INCIDENT_OPENED=1970-01-01T00:00:01.000000000Z"}) {
        EXPECT_PRED2(contains, lEntry, "\n" + std::string(lpLine) + "\n");
    }
    // What has line ends has a length before it, and adds no fields.
    EXPECT_PRED2(contains, lEntry, std::string("\nINCIDENT_MOUNT\n\x03\0\0\0\0\0\0\0a\nb\n", 28));
    const std::size_t lJson = lEntry.find("\nINCIDENT_JSON=") + 15;
    EXPECT_EQ(nlohmann::json::parse(lEntry.substr(lJson, lEntry.find('\n', lJson) - lJson))["id"], 17);
    EXPECT_EQ(mFigures.get(ZTSN_IncidentsTold), 1U);
}

TEST_F(IncidentTeller, WithoutAJournalItIsALine) {
    const std::string lLine = "vrx-sn: incident 17 closed: 4 of 8 paths";
    for (const std::string& lrJournal : {std::string(), mPath}) {  // nobody listens there
        const std::string lSaid = tell(telling(ZTSIncidentTelling::Why::Closed, false), lrJournal);
        EXPECT_TRUE(lSaid.starts_with(lLine)) << lSaid;
        EXPECT_EQ(std::ranges::count(lSaid, '\n'), 1);
        EXPECT_FALSE(contains(lSaid, "\x1b"));
    }
    EXPECT_EQ(mFigures.get(ZTSN_IncidentsTold), 0U);  // that one is over nobody counts
}

TEST_F(IncidentTeller, TheCommandGetsTheDocument) {
    const std::string lOut = mDirectory / "out";
    mCommand.setCommand("/bin/dd status=none of=" + lOut);
    EXPECT_NE(tell(telling(ZTSIncidentTelling::Why::Opened, false), ""), "");
    EXPECT_NE(tell(telling(ZTSIncidentTelling::Why::Opened, true), ""), "");
    EXPECT_TRUE(waitUntil([&] { return contains(readFile(lOut), "\n"); }));
    const nlohmann::json lDocument = nlohmann::json::parse(readFile(lOut));
    EXPECT_EQ(lDocument["id"], 17);
    EXPECT_EQ(lDocument["class"], "redundancy_lost");
    EXPECT_TRUE(mCommand.finish(30s));
    EXPECT_EQ(mFigures.get(ZTSN_Commands), 1U);
}

}  // namespace
