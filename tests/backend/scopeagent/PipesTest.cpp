// The pipes themselves: other ends that are absent, slow, or gone at the worst moment.
#include <malloc.h>
#include <sys/stat.h>

#include <future>

#include "AgentClient.h"
#include "NamedPipe.h"
#include "Os.h"

namespace {

// Numbered, so that a piece that is lost or comes twice is seen.
std::string sNumbered(std::size_t aLength) {
    std::string lText;
    for (std::size_t lAt = 0; lAt < aLength; lAt += 4) {
        lText += wordOf(lAt);
    }
    return lText;
}

class Pipes : public ::testing::Test {
  protected:
    explicit Pipes(ZTENamedPipeDirection aDirection = ZTNPD_Write)
        : mPipe(mPath.c_str(), static_cast<unsigned char>(aDirection), 1, 1) {
        signal(SIGPIPE, SIG_IGN);
        mPipe.create(0);
        mPipe.open(0);
    }
    ~Pipes() override { signal(SIGPIPE, SIG_DFL); }

    void write(const std::string& acrBytes) {
        char* const lpBytes = const_cast<char*>(acrBytes.data());
        const iovec lPieces[] = {{lpBytes, 2}, {lpBytes + 2, acrBytes.size() - 2}};
        mPipe.write(lPieces, 2);
    }
    std::future<void> writeMeanwhile(const std::string& acrBytes) {
        return std::async(std::launch::async, [this, &acrBytes] { write(acrBytes); });
    }
    ZTCDescriptor openOther(int aMode) const { return openPipe(mPath, aMode); }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "pipe";
    ZTCNamedPipe mPipe;
    const std::string mLarge = sNumbered(2 * 1024 * 1024);
};

class WrittenPipe : public Pipes {
  protected:
    WrittenPipe() : mCapacity(fcntl(mObserver.get(), F_GETPIPE_SZ)) {}

    int unread() const { return unreadIn(mObserver); }
    bool isRead() const {
        pollfd lPoll{mObserver.get(), 0, 0};
        return poll(&lPoll, 1, 0) == 0;
    }
    void expectNothingElseIn(const ZTCDescriptor& acrReader, const std::string& acrMessage) {
        EXPECT_EQ(unread(), static_cast<int>(acrMessage.size()));
        EXPECT_EQ(readBytes(acrReader, acrMessage.size()), acrMessage);
    }

    // Another writing end changes nothing for the one under test, and sees what is in the pipe.
    const ZTCDescriptor mObserver{[this] {
        const ZTCDescriptor lReader(openOther(O_RDONLY));
        return openOther(O_WRONLY);
    }()};
    const int mCapacity;
};

TEST_F(WrittenPipe, KeepsWholeMessagesForALaterReader) {
    write("first");
    write("second");
    openOther(O_RDONLY);  // looks, and takes nothing
    write("third");
    {
        const ZTCDescriptor lReader(openOther(O_RDONLY));
        EXPECT_EQ(readBytes(lReader, 5), "first");
        write("fourth");
    }
    write("fifth");
    mPipe.settle();
    const ZTCDescriptor lReader(openOther(O_RDONLY));
    expectNothingElseIn(lReader, "secondthirdfourthfifth");
}

TEST_F(WrittenPipe, WaitsForAReaderThatIsAbsentStoppedOrSlow) {
    ZTCDescriptor lStopped = openOther(O_RDONLY);
    std::future<void> lWrite = writeMeanwhile(mLarge);
    EXPECT_TRUE(waitUntil([&] { return unread() == mCapacity; }));
    lStopped.close();  // it has read nothing: the message stays whole
    const ZTCDescriptor lReader(openOther(O_RDONLY));
    EXPECT_EQ(lWrite.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    std::string lRead;
    while (lRead.size() < mLarge.size()) {
        lRead += readBytes(lReader, 1024);
    }
    EXPECT_TRUE(lRead == mLarge);
    lWrite.get();
    write("next");
    expectNothingElseIn(lReader, "next");
}

TEST_F(WrittenPipe, DropsTheMessageThatItsReaderLeavesWhileItIsWritten) {
    for (const std::size_t lTaken : {1U, 100U, 1000U * 1000U}) {
        const bool lComesLate = lTaken == 100;
        ZTCDescriptor lReader(lComesLate ? ZTCDescriptor() : openOther(O_RDONLY));
        std::future<void> lWrite = writeMeanwhile(mLarge);
        if (lComesLate) {
            EXPECT_TRUE(waitUntil([&] { return unread() == mCapacity; }));
            lReader = openOther(O_RDONLY);
        }
        EXPECT_EQ(readBytes(lReader, lTaken), mLarge.substr(0, lTaken));
        EXPECT_TRUE(waitUntil([&] { return unread() > mCapacity - 4096; }));
        lReader.close();
        lWrite.get();
        EXPECT_FALSE(isRead());
        EXPECT_EQ(unread(), 0);
        write("next");
        const ZTCDescriptor lNext(openOther(O_RDONLY));
        expectNothingElseIn(lNext, "next");
    }
}

TEST_F(WrittenPipe, DropsWhatIsLeftOfAMessageThatWasWholeInThePipe) {
    for (const bool lSettles : {true, false}) {
        write("abcdef");
        {
            const ZTCDescriptor lReader(openOther(O_RDONLY));
            EXPECT_EQ(readBytes(lReader, 2), "ab");
            mPipe.settle();
            EXPECT_EQ(unread(), 4);  // its reader is there: it may go on
        }
        pollfd lChange{mPipe.getChangeDescriptor(), POLLIN, 0};
        EXPECT_EQ(poll(&lChange, 1, 0), 1);
        if (lSettles) {
            mPipe.settle();
            EXPECT_FALSE(isRead());
            EXPECT_EQ(unread(), 0);
            mPipe.settle();
            EXPECT_EQ(poll(&lChange, 1, 0), 0);
        }
        write("next");
        const ZTCDescriptor lNext(openOther(O_RDONLY));
        expectNothingElseIn(lNext, "next");
    }
}

// Bytes that somebody else has put into the pipe stand nobody knows where: all that is in it goes, once.
TEST_F(WrittenPipe, DropsWhatSomebodyElseHasWritten) {
    for (int lUnread = 0; lUnread < 3; ++lUnread) {
        SCOPED_TRACE(lUnread);
        for (int lAt = 0; lAt < lUnread; ++lAt) {
            write("answer");
        }
        writeAll(openOther(O_RDWR), "foreign");
        mPipe.settle();
        EXPECT_EQ(unread(), 0);
        mPipe.settle();
        pollfd lChange{mPipe.getChangeDescriptor(), POLLIN, 0};
        EXPECT_EQ(poll(&lChange, 1, 0), 0);
        write("next");
        expectNothingElseIn(openOther(O_RDONLY), "next");
    }
    writeAll(openOther(O_RDWR), std::string(static_cast<std::size_t>(mCapacity), 'f'));
    write("next");
    expectNothingElseIn(openOther(O_RDONLY), "next");
}

// Of the messages that a reader has taken nothing stays known, however long it stays; it is always one
// behind.
TEST_F(WrittenPipe, KeepsTheWholeMessagesBehindOneThatWasLeftHalfRead) {
    const auto lAllocated = [] { return mallinfo2().uordblks; };
    ZTCDescriptor lReader(openOther(O_RDONLY));
    write("read");
    const std::size_t lBefore = lAllocated();
    for (std::size_t lAt = 0; lAt < 100000; ++lAt) {
        write("read");
        readBytes(lReader, 4);
        ASSERT_LT(lAllocated(), lBefore + 16 * 1024) << lAt;
    }
    write("second");
    write("third");
    EXPECT_EQ(readBytes(lReader, 6), "readse");
    lReader.close();
    mPipe.settle();
    write("fourth");
    expectNothingElseIn(openOther(O_RDONLY), "thirdfourth");
}

// Its reader goes when there is no room yet for the message behind it.
TEST_F(WrittenPipe, KeepsTheMessageThatWaitsBehindOneThatWasLeftHalfRead) {
    write(sNumbered(static_cast<std::size_t>(mCapacity)));
    ZTCDescriptor lReader(openOther(O_RDONLY));
    EXPECT_EQ(readBytes(lReader, 1).size(), 1U);
    const std::string lNext = "next";
    std::future<void> lWrite = writeMeanwhile(lNext);
    EXPECT_EQ(lWrite.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    lReader.close();
    lWrite.get();
    expectNothingElseIn(openOther(O_RDONLY), lNext);
}

TEST_F(WrittenPipe, RemovesNothingButItself) {
    const std::string lOther = mDirectory / "other";
    for (const bool lIsPipe : {true, false}) {
        EXPECT_EQ(lIsPipe ? mkfifo(lOther.c_str(), 0600) : mknod(lOther.c_str(), S_IFREG | 0600, 0), 0);
        mPipe.create(0);
        std::filesystem::rename(lOther, mPath);
        mPipe.destroy(0);
        EXPECT_TRUE(std::filesystem::exists(mPath));
        std::filesystem::remove(mPath);
    }
    mPipe.create(0);
    mPipe.destroy(0);
    EXPECT_TRUE(mDirectory.isEmpty());
}

// As a thread may that was left behind.
TEST_F(WrittenPipe, GoesOnWhereItIsOpenWhenItIsRemoved) {
    write("abcdef");
    {
        const ZTCDescriptor lReader(openOther(O_RDONLY));
        mPipe.destroy(0);
        EXPECT_EQ(readBytes(lReader, 2), "ab");
    }
    mPipe.settle();
    EXPECT_EQ(unread(), 0);
    write("next");
    EXPECT_EQ(unread(), 4);
    EXPECT_TRUE(mDirectory.isEmpty());
}

TEST_F(WrittenPipe, KeepsWhatAnAgentBeforeItHasLeft) {
    write("before");
    chmod(mPath.c_str(), 0666);
    ZTCNamedPipe lNext(mPath.c_str(), ZTNPD_Write, 1, 1);
    lNext.create(0);
    EXPECT_EQ(std::filesystem::status(mPath).permissions(), std::filesystem::perms{0600});
    lNext.open(0);
    char lText[] = "after";
    const iovec lPiece{lText, 5};
    lNext.write(&lPiece, 1);
    openOther(O_RDONLY);  // looks, and takes nothing
    lNext.settle();
    EXPECT_EQ(readBytes(openOther(O_RDONLY), 4), "befo");
    lNext.settle();
    expectNothingElseIn(openOther(O_RDONLY), "after");
}

class ReadPipe : public Pipes {
  protected:
    ReadPipe() : Pipes(ZTNPD_Read) {}

    bool wait(unsigned int aSeconds, int aWatched = -1) {
        return mPipe.waitForActivity({OsDeadlineIn(aSeconds), aWatched});
    }
    std::string read(unsigned int aLength) {
        std::string lBytes(aLength, '\0');
        mPipe.read(lBytes.data(), aLength);
        return lBytes;
    }
};

TEST_F(ReadPipe, TakesTheMessagesOfWritersThatComeAndGo) {
    std::string lBytes;
    std::future<void> lRead = std::async(std::launch::async, [&] {
        while (lBytes.size() < 4000) {
            lBytes += wait(60) ? read(4) : "gone";
        }
    });
    for (unsigned int lAt = 0; lAt < 1000; ++lAt) {
        writeAll(openOther(O_WRONLY), wordOf(4 * lAt));
    }
    lRead.get();
    EXPECT_TRUE(lBytes == sNumbered(4000));
}

TEST_F(ReadPipe, EndsAWaitAndAReadThatCannotGoOn) {
    EXPECT_THROW(wait(0), ZTCTimeOutEx);
    EXPECT_FALSE(wait(60, openPipe("/dev/zero", O_RDONLY).get()));
    {
        const ZTCDescriptor lWriter(openOther(O_WRONLY));
        EXPECT_THROW(wait(0), ZTCTimeOutEx);
        writeAll(lWriter, "abc");
    }
    EXPECT_TRUE(wait(60));
    EXPECT_THROW(read(4), ZTCOpsException);

    const ZTCDescriptor lWriter(openOther(O_WRONLY));
    writeAll(lWriter, "abc");
    std::future<std::string> lRead = std::async(std::launch::async, [this] { return read(4); });
    EXPECT_TRUE(waitUntil([&] { return unreadIn(lWriter) == 0; }));
    mPipe.cancel();
    EXPECT_THROW(lRead.get(), ZTCHaltEx);
    EXPECT_FALSE(wait(60));
}

}  // namespace
