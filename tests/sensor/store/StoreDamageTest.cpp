// A store that was cut, flipped or zeroed anywhere is never wrong: it is as it was, or refused, or, when its
// log was hit, what it was after an earlier batch. vrx-sn sets it aside when it is damaged, and goes on.
#include <gtest/gtest.h>

#include "StoreBatches.h"
#include "StoreFile.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

constexpr std::size_t sPage = 4096;

// The files of a store, as a kill at some moment leaves them.
using ZTTestImage = std::map<std::string, std::string>;

ZTTestImage sTake(const std::string& acrPath) {
    ZTTestImage lImage;
    for (const char* const lpEnd : {"", "-wal", "-shm", "-lock"}) {
        lImage[lpEnd] = readFile(acrPath + lpEnd);
    }
    return lImage;
}

void sPut(const ZTTestImage& acrImage, const std::string& acrPath) {
    for (const auto& [lrEnd, lrBytes] : acrImage) {
        writeFile(acrPath + lrEnd, lrBytes);
    }
}

std::size_t sContentOf(SQLite::Database& arStore) {
    std::size_t lHash = 0;
    SQLite::Statement lRows(
        arStore, "SELECT id, series, first, last, occurrences, hex(data) FROM records ORDER BY id");
    while (lRows.executeStep()) {
        for (int lColumn = 0; lColumn < lRows.getColumnCount(); ++lColumn) {
            lHash = std::hash<std::string>()(std::to_string(lHash) + lRows.getColumn(lColumn).getString());
        }
    }
    return lHash;
}

class StoreDamage : public ::testing::Test {
  protected:
    static ZTSStoreOptions optionsOf(const std::string& acrPath) {
        return {.mPath = acrPath, .mHostName = "host"};
    }

    void SetUp() override {
        const std::string lPath = mDirectory / "whole.db";
        ZTCTestBatches lBatches(9);
        lBatches.mData = 5000;  // some are longer than a page
        ZTCStoreWriter lWriter(optionsOf(lPath));
        const auto lRemember = [&] {
            SQLite::Database lStore = openStoreToRead(lPath);
            mContents[static_cast<std::int64_t>(lBatches.mEvents)] = sContentOf(lStore);
        };
        lRemember();
        const auto lWrite = [&](unsigned int aCount) {
            for (unsigned int lAt = 0; lAt < aCount; ++lAt) {
                lBatches.mData = lAt % 3 == 0 ? 5000 : 24;
                lWriter.write(lBatches.make(15));
                lRemember();
            }
        };
        const auto lKeep = [&] {
            mImages.emplace_back(sTake(lPath), static_cast<std::int64_t>(lBatches.mEvents));
        };
        lWrite(6);
        lKeep();  // all in the log
        ZTBringLogIn(lPath);
        lWrite(3);
        ZTBringLogIn(lPath);
        lKeep();  // all in the file, and what is new in the log as well
        lWrite(2);
        {
            SQLite::Database lReader = openStoreToRead(lPath);
            const SQLite::Transaction lSlice(lReader);
            lReader.execAndGet("SELECT count(*) FROM records");
            lWrite(2);
            ZTBringLogIn(lPath);
        }
        lWrite(2);
        lKeep();  // a part of the log in the file
        lWriter.finish();
        lKeep();
    }

    /// How many events it has, which is all as it was after one of the batches; -1: it is refused as damaged.
    std::int64_t readAll(const std::string& acrPath, bool aIsOther = false) const {
        try {
            SQLite::Database lStore = openStoreToRead(acrPath);
            const SQLite::Transaction lSlice(lStore);
            EXPECT_EQ(ZTCountWrongSums(lStore), 0);
            const std::size_t lContent = sContentOf(lStore);
            const std::int64_t lEvents =
                ZTAskStore(lStore, "SELECT coalesce(sum(occurrences), 0) FROM records");
            const auto lFound = mContents.find(lEvents);
            EXPECT_TRUE(aIsOther || (lFound != mContents.end() && lFound->second == lContent)) << lEvents;
            return lEvents;
        } catch (const SQLite::Exception& lrError) {
            EXPECT_EQ(toStoreError(lrError, acrPath).getFault(), ZTEStoreFault::Damaged) << lrError.what();
        } catch (const ZTCStoreError& lrError) {
            EXPECT_EQ(lrError.getFault(), ZTEStoreFault::Damaged) << lrError.what();
        }
        return -1;
    }

    /// Opens it as vrx-sn does, and writes a batch, beginning anew if need be. Whether it was set aside.
    static bool goOn(const std::string& acrPath) {
        ZTCStoreWriter lWriter(optionsOf(acrPath));
        const auto lWrite = [&] {
            ZTCTestBatches lBatches(4);
            lBatches.mNextId = lWriter.getStart().mNextId;
            lWriter.write(lBatches.make(5));
            ZTBringLogIn(acrPath);
        };
        try {
            lWrite();
        } catch (const ZTCStoreError& lrError) {
            EXPECT_EQ(lrError.getFault(), ZTEStoreFault::Damaged) << lrError.what();
            lWriter.beginAnew();
            lWrite();
        }
        const std::string lAside = lWriter.getStart().mSetAside;
        EXPECT_TRUE(lAside.empty() || std::filesystem::exists(lAside)) << lAside;
        lWriter.finish();
        return !lAside.empty();
    }

    const ZTCTestDirectory mDirectory{std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp"};
    std::vector<std::pair<ZTTestImage, std::int64_t>> mImages;  ///< and how many events are in each
    std::map<std::int64_t, std::size_t> mContents;              ///< after each batch, by the events so far
};

std::string sDamage(std::string& arBytes, std::mt19937& arRandom) {
    const std::size_t lPlace = arRandom() % arBytes.size();
    const std::size_t lLength = std::min<std::size_t>(arBytes.size() - lPlace, 1 + arRandom() % 5000);
    switch (arRandom() % 4) {
        case 0:
            arBytes.resize(lPlace);
            return "cut at " + std::to_string(lPlace);
        case 1:
            std::fill_n(arBytes.begin() + static_cast<std::ptrdiff_t>(lPlace), lLength, '\0');
            return "zeroed from " + std::to_string(lPlace) + ", bytes " + std::to_string(lLength);
        case 2:
            std::rotate(arBytes.begin(),
                        arBytes.begin() + static_cast<std::ptrdiff_t>(lPlace / sPage * sPage), arBytes.end());
            return "turned by pages to " + std::to_string(lPlace / sPage);
        default:
            arBytes[lPlace] = static_cast<char>(arBytes[lPlace] ^ (1 << arRandom() % 8));
            return "flipped at " + std::to_string(lPlace);
    }
}

}  // namespace

TEST_F(StoreDamage, NeverMakesAWrongSum) {
    const unsigned int lRounds = ZTTestRounds(ZTIsSanitized ? 60U : 200U, 4000U);
    std::mt19937 lRandom(
        static_cast<unsigned int>(ZTTestRounds(1, static_cast<int>(std::random_device()() % 1000))));
    unsigned int lRefused = 0;
    unsigned int lEarlier = 0;
    for (unsigned int lRound = 0; lRound < lRounds; ++lRound) {
        auto [lImage, lEvents] = mImages[lRandom() % mImages.size()];
        const bool lIsLog = !lImage["-wal"].empty() && lRandom() % 2 == 0;
        const std::string lWhat = sDamage(lImage[lIsLog ? "-wal" : ""], lRandom);
        const ZTCTestDirectory lDirectory(mDirectory.getPath());
        sPut(lImage, lDirectory / "read.db");
        sPut(lImage, lDirectory / "written.db");

        const std::int64_t lRead = readAll(lDirectory / "read.db");
        lRefused += lRead < 0 ? 1 : 0;
        lEarlier += lRead >= 0 && lRead < lEvents ? 1 : 0;
        EXPECT_TRUE(lRead == -1 || lRead == lEvents || lIsLog) << lRead << " of " << lEvents;
        // Damage that nothing has met yet stays.
        const bool lIsNew = goOn(lDirectory / "written.db");
        EXPECT_GE(readAll(lDirectory / "written.db", true), lIsNew ? 1 : -1);
        ASSERT_FALSE(HasFailure()) << "round " << lRound << (lIsLog ? ", log " : ", file ") << lWhat;
    }
    EXPECT_GT(lRefused, lRounds / 4);
    EXPECT_GT(lEarlier, 0U);
}

TEST_F(StoreDamage, WhatWasKilledIsWholeAndWhatLostItsBeginIsSetAside) {
    for (const auto& [lrImage, lEvents] : mImages) {
        const ZTCTestDirectory lDirectory;
        sPut(lrImage, lDirectory / "a");
        EXPECT_EQ(readAll(lDirectory / "a"), lEvents);
        EXPECT_FALSE(goOn(lDirectory / "a"));
        for (const std::size_t lZeros : {std::size_t{1}, std::size_t{100}, sPage, 2 * sPage}) {
            ZTTestImage lDamaged = lrImage;
            lDamaged[""].replace(0, lZeros, lZeros, '\0');
            sPut(lDamaged, lDirectory / "b");
            EXPECT_EQ(readAll(lDirectory / "b"), -1) << lZeros;
            EXPECT_TRUE(goOn(lDirectory / "b")) << lZeros;
        }
        ZTTestImage lEmpty = lrImage;
        lEmpty[""].clear();
        sPut(lEmpty, lDirectory / "c");
        EXPECT_TRUE(goOn(lDirectory / "c"));
    }
}

// A sqlite3 that may write brings in what the killed one left in the log, without sums, and removes the log.
TEST_F(StoreDamage, WhatAnotherProgramHasClosedIsWholeAndGetsItsSumsAgain) {
    const auto lClose = [](const std::string& acrPath, const char* apFirst) {
        SQLite::Database lStore(acrPath, SQLite::OPEN_READWRITE);
        lStore.exec(apFirst);
    };
    struct ZTSCase {
        const char* mpFirst;
        bool mIsWhole;
    };
    for (const ZTSCase& lrCase : {ZTSCase{"SELECT count(*) FROM records", true}, ZTSCase{"VACUUM", true},
                                  ZTSCase{"UPDATE records SET occurrences = 1000 WHERE id = 3", false},
                                  ZTSCase{"DELETE FROM records WHERE id = 3", false}}) {
        for (const auto& [lrImage, lEvents] : mImages) {
            const ZTCTestDirectory lDirectory(mDirectory.getPath());
            const std::string lPath = lDirectory / "100% whole?#.db";
            sPut(lrImage, lPath);
            lClose(lPath, lrCase.mpFirst);
            ASSERT_FALSE(std::filesystem::exists(lPath + "-wal"));
            const std::int64_t lRead = readAll(lPath, !lrCase.mIsWhole);
            EXPECT_TRUE(lRead == -1 || lRead == lEvents || !lrCase.mIsWhole) << lRead;
            std::filesystem::remove(lPath + "-wal");  // of who has read
            EXPECT_EQ(openStoreToWrite(lPath).mSetAside.empty(), lrCase.mIsWhole) << lrCase.mpFirst;
            if (lrCase.mIsWhole) {
                EXPECT_EQ(readAll(lPath), lEvents) << lrCase.mpFirst;
                EXPECT_FALSE(goOn(lPath));
            }
        }
    }
}
