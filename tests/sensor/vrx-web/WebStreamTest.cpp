// What comes into the history is streamed: each once, and nothing is missed by who was away.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "StoreReader.h"
#include "TestStore.h"
#include "WebStream.h"

namespace {

using Json = nlohmann::json;

struct Event {
    std::string mId;
    std::string mKind;
    Json mData;

    std::string name() const {
        if (mKind == "record") {
            return mData.at("id").dump() + (mData.at("open").get<bool>() ? " open" : " closed");
        }
        return mKind == "incident" ? "incident " + mData.at("id").dump() : mKind;
    }
};

// As a reader of a stream takes it apart.
std::vector<Event> eventsOf(const std::string& acrText) {
    std::vector<Event> lEvents;
    std::istringstream lLines(acrText);
    for (std::string lId, lKind, lData, lEmpty; std::getline(lLines, lId);) {
        std::getline(lLines, lKind) && std::getline(lLines, lData) && std::getline(lLines, lEmpty);
        EXPECT_TRUE(lId.starts_with("id: ") && lKind.starts_with("event: ") && lData.starts_with("data: ") &&
                    lEmpty.empty())
            << acrText;
        lEvents.push_back({lId.substr(4), lKind.substr(7), Json::parse(lData.substr(6))});
    }
    return lEvents;
}

struct Site {
    ZTCTestDirectory mDirectory{"/dev/shm"};
    const std::string mPath = mDirectory / "history.db";
    ZTCWebHealth mHealth{mDirectory.getPath()};
    std::atomic<unsigned int> mNews{0};
    std::unique_ptr<ZTCWebStream> mpStream;

    void follow() {
        mpStream = std::make_unique<ZTCWebStream>(mPath, mHealth, [this] { ++mNews; });
        EXPECT_TRUE(waitUntil([this] { return isReadable(); }));
    }
    std::string historyState() { return mHealth.getState(0).mHistory; }
    // The first look has been taken: an id of another history can be told from one of this.
    bool isReadable() {
        try {
            ZTCStoreReader lReader(mPath);
            mpStream->catchUp(lReader, "");
            return historyState().empty();
        } catch (const ZTCStoreError&) {
            return false;
        }
    }

    // What somebody gets who had an event, up to what there is now.
    std::vector<Event> comeBack(std::string aLastEventId, unsigned int* apCaught = nullptr) const {
        std::string lText;
        auto lPlace = mpStream->begin(aLastEventId);
        ZTCStoreReader lReader(mPath);
        while (!lPlace) {
            const ZTCWebStream::Caught lCaught = mpStream->catchUp(lReader, aLastEventId);
            lText += *lCaught.mpPieces;
            aLastEventId = lCaught.mEventId;
            lPlace = mpStream->begin(aLastEventId);
            apCaught != nullptr ? ++*apCaught : 0;
        }
        for (ZTCWebStream::Taken lTaken; (lTaken = mpStream->take(*lPlace)).mpPiece;) {
            lText += *lTaken.mpPiece;
        }
        return eventsOf(lText);
    }
    // Waits until the last of so many is there.
    std::vector<Event> await(ZTCWebStream::Place& arPlace, std::size_t aCount) const {
        std::string lText;
        std::size_t lHas = 0;
        EXPECT_TRUE(waitUntil([&] {
            for (ZTCWebStream::Taken lTaken; (lTaken = mpStream->take(arPlace)).mpPiece; ++lHas) {
                lText += *lTaken.mpPiece;
            }
            return lHas >= aCount;
        })) << lText;
        return eventsOf(lText);
    }
};

std::vector<std::string> namesOf(const std::vector<Event>& acrEvents) {
    std::vector<std::string> lNames;
    for (const Event& lrEvent : acrEvents) {
        lNames.push_back(lrEvent.name());
    }
    return lNames;
}

void addIncident(ZTCTestStore& arStore, int aId, const char* apState, const char* apClosed,
                 const char* apMerged = "NULL") {
    arStore.exec("INSERT OR REPLACE INTO incidents VALUES (" + std::to_string(aId) + ", 'link_flap', '" +
                 apState + "', 'a <b>link</b>\nflaps', 1, 2, " + apClosed + ", " + apMerged +
                 ", NULL, 7, NULL, NULL, 0, '', NULL, '', '{}', '')");
}

constexpr char sNow[] = "unixepoch() * 1000000000";

}  // namespace

TEST(WebStream, RecordsComeOpenAndClosedAndIncidentsWheneverTheyChange) {
    Site lSite;
    ZTCTestStore lStore(lSite.mPath);
    lStore.addSeries(1, "plogi", 1, 1, "00", "0c");
    lStore.addRecord(1, 1, 10, 11, 3);
    addIncident(lStore, 1, "open", "NULL");
    lSite.follow();
    auto lPlace = *lSite.mpStream->begin("");
    EXPECT_EQ(lSite.mpStream->take(lPlace).mpPiece, nullptr) << "what was there before is no news";

    lStore.addRecord(2, 1, 20, 21, 5);
    EXPECT_EQ(namesOf(lSite.await(lPlace, 1)), std::vector<std::string>{"2 open"});
    lStore.closeTo(2);
    EXPECT_EQ(namesOf(lSite.await(lPlace, 2)), (std::vector<std::string>{"1 closed", "2 closed"}));
    EXPECT_GE(lSite.mNews.load(), 2U);

    lStore.exec("UPDATE incidents SET memory = 'x'");
    addIncident(lStore, 2, "open", "NULL");
    const std::vector<Event> lOpened = lSite.await(lPlace, 1);
    EXPECT_EQ(namesOf(lOpened), std::vector<std::string>{"incident 2"}) << "the memory is vrx-sn's alone";
    EXPECT_EQ(lOpened.at(0).mData.at("title"), "a <b>link</b>\nflaps");
    EXPECT_EQ(lOpened.at(0).mData.at("hosts"), Json::array({"db7"}));
    // Closed as of long ago; closed and opened between two looks; become part of another; acknowledged.
    addIncident(lStore, 2, "closed", "3");
    EXPECT_EQ(namesOf(lSite.await(lPlace, 1)), std::vector<std::string>{"incident 2"});
    addIncident(lStore, 3, "closed", "3");
    EXPECT_EQ(namesOf(lSite.await(lPlace, 1)), std::vector<std::string>{"incident 3"});
    addIncident(lStore, 1, "closed", sNow, "3");
    EXPECT_EQ(lSite.await(lPlace, 1).at(0).mData.at("merged"), 3);
    lStore.exec("UPDATE incidents SET acknowledged_by = 'me', acknowledged_at = 5 WHERE id = 1");
    EXPECT_EQ(lSite.await(lPlace, 1).at(0).mData.at("acknowledged").at("who"), "me");
}

// Somebody is away from any moment on, and comes back to the same program, or to a new one: what they had and
// what they get is all that there is, each once.
TEST(WebStream, WhoComesBackMissesNothing) {
    Site lSite;
    ZTCTestStore lStore(lSite.mPath);
    lStore.addSeries(1, "plogi", 1, 1, "00", "0c");
    lSite.follow();
    auto lPlace = *lSite.mpStream->begin("");
    std::vector<Event> lAll;
    const auto lTake = [&](std::size_t aCount) {
        for (Event& lrEvent : lSite.await(lPlace, aCount)) {
            lAll.push_back(std::move(lrEvent));
        }
    };
    for (int lRecord = 1; lRecord <= 12; lRecord += 4) {
        lStore.exec("BEGIN");
        for (int lAt = lRecord; lAt < lRecord + 4; ++lAt) {
            lStore.exec("INSERT INTO records VALUES (" + std::to_string(lAt) + ", 1, 1, 1, 1, x'01')");
        }
        lStore.exec("COMMIT");
        lTake(4);
        lStore.closeTo(lRecord + 1);
        lTake(lRecord == 1 ? 2 : 4);
    }
    addIncident(lStore, 1, "open", "NULL");
    lTake(1);
    ASSERT_EQ(lAll.size(), 12U + 10U + 1U);

    const auto lCheck = [&](const char* apWhom) {
        for (std::size_t lHad = 1; lHad <= lAll.size(); ++lHad) {
            SCOPED_TRACE(std::string(apWhom) + ", behind " + std::to_string(lHad));
            std::multiset<std::string> lClosed;
            std::set<std::string> lSeen;
            const auto lSee = [&](const Event& acrEvent) {
                const std::string lName = acrEvent.name();
                lSeen.insert(acrEvent.mKind == "record" ? acrEvent.mData.at("id").dump() : lName);
                lName.ends_with("closed") ? void(lClosed.insert(lName)) : void();
            };
            std::for_each(lAll.begin(), lAll.begin() + static_cast<std::ptrdiff_t>(lHad), lSee);
            const std::vector<Event> lRest = lSite.comeBack(lAll[lHad - 1].mId);
            std::for_each(lRest.begin(), lRest.end(), lSee);
            EXPECT_EQ(lSeen.size(), 13U);
            EXPECT_EQ(lClosed.size(), 10U) << "none twice";
            EXPECT_EQ(std::set(lClosed.begin(), lClosed.end()).size(), 10U);
            // And again from the last one that was had: there is nothing more.
            if (!lRest.empty()) {
                EXPECT_EQ(lSite.comeBack(lRest.back().mId).size(), 0U);
            }
        }
    };
    lCheck("the same program");
    lSite.follow();
    lCheck("a new program");
}

TEST(WebStream, WhatIsTooMuchIsToldAsAGap) {
    Site lSite;
    ZTCTestStore lStore(lSite.mPath);
    lStore.addSeries(1, "plogi", 1, 1, "00", "0c");
    lStore.addRecord(1, 1, 10, 11, 3);
    lStore.closeTo(1);
    lSite.follow();
    auto lPlace = *lSite.mpStream->begin("");
    lStore.addRecord(2, 1, 10, 11, 3);
    const std::string lId = lSite.await(lPlace, 1).at(0).mId;
    auto lSlow = lPlace;
    lStore.exec(
        "WITH RECURSIVE n (id) AS (VALUES (3) UNION ALL SELECT id + 1 FROM n WHERE id < 12000) INSERT INTO records "
        "SELECT id, 1, id, id, 1, x'01000000' FROM n");
    lSite.await(lPlace, 1);
    EXPECT_TRUE(waitUntil([&] {
        auto lAt = lSlow;
        return lSite.mpStream->take(lAt).mIsBehind;
    })) << "the slow one is sent off";

    unsigned int lTimes = 0;
    ASSERT_TRUE(waitUntil([&] {
        auto lLast = *lSite.mpStream->begin("") - 1;
        return contains(*lSite.mpStream->take(lLast).mpPiece, "\"id\":12000,");
    }));
    const std::vector<Event> lCaught = lSite.comeBack(lId, &lTimes);
    EXPECT_EQ(lCaught.at(0).mKind, "gap");
    EXPECT_EQ(lCaught.at(0).mData.at("records"), 1999);
    EXPECT_EQ(lCaught.at(1).name(), "2001 open");
    EXPECT_EQ(lCaught.size(), 10'001U);
    EXPECT_GT(lTimes, 1U) << "a slice at a time";

    // What was never ours, is refused nowhere: it begins with what comes.
    for (const char* lpId : {"", "1", "0-0-0-0-0", "x-0-0-0-0-0", "0-0-0-0-0-0-0",
                             "0-0-0-0-0-ffffffffffffffff", "-1-0-0-0-0-0", "0-0-0-0-0-0 "}) {
        EXPECT_TRUE(lSite.mpStream->begin(lpId).has_value()) << lpId;
        EXPECT_EQ(lSite.comeBack(lpId).size(), 0U) << lpId;
    }
    // Of another history, with numbers as large as can be.
    EXPECT_EQ(namesOf(lSite.comeBack("0-7fffffffffffffff-7fffffffffffffff-7fffffffffffffff-0-0")),
              std::vector<std::string>{"gap"});
}

TEST(WebStream, AHistoryThatGoesAndComesIsToldAndFollowedAgain) {
    Site lSite;
    lSite.mpStream = std::make_unique<ZTCWebStream>(lSite.mPath, lSite.mHealth, [] {});
    EXPECT_TRUE(waitUntil([&] { return contains(lSite.historyState(), "there is no history at"); }));
    auto lpStore = std::make_unique<ZTCTestStore>(lSite.mPath);
    EXPECT_TRUE(waitUntil([&] { return lSite.isReadable(); }));
    auto lPlace = *lSite.mpStream->begin("");
    lpStore->addSeries(1, "plogi", 1, 1, "00", "0c");
    lpStore->addRecord(1, 1, 10, 11, 3);
    EXPECT_EQ(namesOf(lSite.await(lPlace, 1)), std::vector<std::string>{"1 open"});

    std::filesystem::rename(lSite.mPath, lSite.mPath + ".aside");
    EXPECT_TRUE(waitUntil([&] { return !lSite.historyState().empty(); }));
    lpStore.reset();
    for (const char* lpEnd : {"-wal", "-shm", "-lock"}) {
        std::filesystem::remove(lSite.mPath + lpEnd);
    }
    ZTCTestStore lNew(lSite.mPath);
    lNew.addSeries(1, "plogi", 1, 1, "00", "0c");
    lNew.addRecord(1, 1, 20, 21, 3);
    EXPECT_EQ(namesOf(lSite.await(lPlace, 2)), (std::vector<std::string>{"gap", "1 open"}));
    EXPECT_TRUE(waitUntil([&] { return lSite.historyState().empty(); }));
}

// In the file itself, beneath who has it open: nothing that SQLite looks at again.
TEST(WebStream, AHistoryThatIsSpoiledWhereItLiesIsSeen) {
    Site lSite;
    { const ZTCTestStore lStore(lSite.mPath); }
    lSite.follow();
    const std::string lWhole = readFile(lSite.mPath);
    const auto lWrite = [&](const std::string& acrBytes) {
        const ZTCDescriptor lFile(open(lSite.mPath.c_str(), O_WRONLY | O_CLOEXEC));
        EXPECT_EQ(pwrite(lFile.get(), acrBytes.data(), acrBytes.size(), 0),
                  static_cast<ssize_t>(acrBytes.size()));
    };
    lWrite(std::string(4096, 'x'));
    EXPECT_TRUE(waitUntil([&] { return !lSite.historyState().empty(); }));
    lWrite(lWhole);
    EXPECT_TRUE(waitUntil([&] { return lSite.historyState().empty(); }));
}
