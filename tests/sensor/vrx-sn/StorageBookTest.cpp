#include "StorageBook.h"
#include "TestSupport.h"

namespace {

// A map with so many paths, of which some are usable.
ZTSHostStorage storageOf(unsigned int aPaths, unsigned int aUsable, const char* apName = "mpatha") {
    ZTSHostStorage lStorage;
    ZTSMap& lrMap = lStorage.mMaps.emplace_back();
    lrMap.mName = apName;
    lrMap.mWwid = "36001";
    lrMap.mTotal = aPaths;
    for (unsigned int lPath = 0; lPath < aPaths; ++lPath) {
        lrMap.mPaths.push_back(
            {"sd" + std::string(1, static_cast<char>('a' + lPath)), lPath < aUsable, ZTEPathSource::Kernel});
    }
    return lStorage;
}

std::string takeChanges(ZTCStorageBook& arBook) {
    std::string lText;
    for (const ZTSChange& lrChange : arBook.takeChanges()) {
        if (lrChange.mAttribute == "missing") {
            continue;  // which ones these are
        }
        lText += std::to_string(lrChange.mTime) + " " + lrChange.mName + " " + lrChange.mEvent + " " +
                 lrChange.mBefore + " > " + lrChange.mAfter + "\n";
    }
    return lText;
}

TEST(StorageBook, PathsThatWereRemovedAreMissing) {
    ZTCStorageBook lBook;
    lBook.setStart(std::nullopt);
    lBook.see(storageOf(4, 4), 1);
    EXPECT_EQ(takeChanges(lBook), "");  // what was there before has not come
    EXPECT_TRUE(lBook.haveNews());
    lBook.haveBeenTaken();
    lBook.see(storageOf(4, 4), 2);
    EXPECT_FALSE(lBook.haveNews());
    lBook.see(storageOf(8, 8), 3);
    lBook.see(storageOf(4, 4), 4);
    EXPECT_EQ(takeChanges(lBook), "3 mpatha changed 4 of 4 > 8 of 8\n4 mpatha changed 8 of 8 > 4 of 8\n");
    // Also where it has gone meanwhile, and has another name.
    lBook.see({}, 5);
    lBook.see(storageOf(4, 3, "mpathb"), 6);
    EXPECT_EQ(takeChanges(lBook), "5 mpatha went 4 of 8 > \n6 mpathb came  > 3 of 8\n");
    EXPECT_EQ(lBook.getStorage()->mMaps.at(0).mTotal, 8U);
    // While its table is made anew it has what has gone beside what is there; of one not known before, what
    // has gone is missing.
    ZTSHostStorage lBoth = storageOf(9, 4);
    lBoth.mMaps[0].mTotal = 4;
    lBook.see(lBoth, 7);
    EXPECT_EQ(lBook.getStorage()->mMaps.at(0).mTotal, 8U);
    lBoth.mMaps[0].mWwid = "36002";
    lBook.see(lBoth, 8);
    EXPECT_EQ(lBook.getStorage()->mMaps.at(0).mTotal, 9U);
}

// It was gone when the history was last written, among more than are remembered.
TEST(StorageBook, AMapThatHadGoneAtTheStartHasItsTotal) {
    for (const std::size_t lOthers : {std::size_t{0}, ZTCStorageBook::MostTotals}) {
        std::vector<ZTSMap> lGone = storageOf(8, 8).mMaps;
        lGone[0].mPaths.clear();
        for (std::size_t lOther = 0; lOther < lOthers; ++lOther) {
            lGone.emplace_back().mWwid = std::to_string(lOther);
        }
        ZTCStorageBook lBook;
        lBook.setStart(ZTSHostStorage{}, lGone);
        for (const unsigned int lPaths : {4U, 5U}) {
            lBook.see(storageOf(lPaths, lPaths), lPaths);
            EXPECT_EQ(lBook.getStorage()->mMaps.at(0).mTotal, 8U);
        }
    }
}

// Whether the store is open before the first look, or only behind another one.
TEST(StorageBook, WhatBecameOfItMeanwhileIsToldWithTheTimeOfTheFirstLook) {
    for (const bool lIsLate : {false, true}) {
        ZTCStorageBook lBook;
        lIsLate ? void() : lBook.setStart(storageOf(8, 8));
        lBook.see(storageOf(6, 6), 1);
        const std::string lFirst = takeChanges(lBook);
        lBook.see(storageOf(5, 5), 2);
        lIsLate ? lBook.setStart(storageOf(8, 8)) : void();
        const std::string lThen = takeChanges(lBook);
        EXPECT_EQ(lIsLate ? lThen : lFirst + lThen,
                  lIsLate ? "2 mpatha changed 6 of 6 > 5 of 6\n1 mpatha changed 8 of 8 > 6 of 8\n"
                          : "1 mpatha changed 8 of 8 > 6 of 8\n2 mpatha changed 6 of 8 > 5 of 8\n");
        EXPECT_EQ(lBook.getStorage()->mMaps.at(0).mTotal, 8U);
        EXPECT_TRUE(lBook.haveNews());
    }
}

// Whether the disks of the paths that are gone are still there, or not.
TEST(StorageBook, PathsThatWereAcceptedAreAllThatThereAre) {
    for (const unsigned int lDisks : {4U, 8U}) {
        ZTCStorageBook lBook;
        lBook.setStart(std::nullopt);
        lBook.see(storageOf(8, 8), 1);
        lBook.see(storageOf(lDisks, 4), 2);
        lBook.accept({"other"}, 3);
        EXPECT_EQ(takeChanges(lBook).find("3 "), std::string::npos);
        lBook.accept({"mpatha", "other"}, 4);
        EXPECT_EQ(lBook.getStorage()->mMaps.at(0).mTotal, 4U);
        EXPECT_PRED2(contains, takeChanges(lBook), "4 mpatha changed 4 of 8 > 4 of 4\n");
        const ZTSHostStorage lStored = *lBook.getStorage();
        // Here, and behind a new start.
        ZTCStorageBook lNext;
        lNext.setStart(lStored);
        for (ZTCStorageBook* const lpBook : {&lBook, &lNext}) {
            lpBook->see(storageOf(lDisks, 4), 5);
            EXPECT_EQ(lpBook->getStorage()->mMaps.at(0).mTotal, 4U);
            lpBook->see(storageOf(lDisks, 3), 6);
            EXPECT_PRED2(contains, takeChanges(*lpBook), "6 mpatha changed 4 of 4 > 3 of 4\n");
            lpBook->see(storageOf(8, 6), 7);
            lpBook->see(storageOf(8, 5), 8);
            EXPECT_PRED2(contains, takeChanges(*lpBook), "8 mpatha changed 6 of ");
        }
    }
}

}  // namespace
