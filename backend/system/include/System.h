// The base of a process's one system object: its life, threads, conditionals, readers and writers, queues and
// lists, settings and command line. SystemMain.h drives it.
//
// The operations from preInit to destroyThreads stand in the order of the interface's slots. The lifecycle
// operations run on the main thread; what threads use (ids, signal, wait, timedWait, queues, lists, settings,
// readers and writers) is safe from any thread.
#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <vector>

#include "Assert.h"
#include "BufferManager.h"
#include "Conditional.h"
#include "Daemon.h"
#include "Event.h"
#include "ForeignCall.h"
#include "IdTable.h"
#include "MultiType.h"
#include "ProcessInstanceManager.h"
#include "ProtocolHelper.h"
#include "QueueTable.h"
#include "SystemInterface.h"
#include "SystemWatch.h"
#include "ThreadComponent.h"
#include "Version.h"
#include "ZTMap.h"

inline constexpr char ZTSystemFile[] = "backend/system/include/System";

/// One option of the command line.
struct ZTCCmdLineArgDesc {
    unsigned char mKind;  ///< 1: a flag; 2: a value follows
    char mOption[128];    ///< the text with its dash, the rest zero
};

class ZTCSystem : public ZTCSystemInterface {
  public:
    using Queueable = ZTCPointer<ZTCQueueable>;
    using QueueableList = ZTCQueueTable::Sequence;

    /// Throws ZTCNoMemoryEx, ZTCOsException.
    explicit ZTCSystem(const ZTCString& acrName);
    ~ZTCSystem() override;

    void getBuffer(unsigned int aSize, ZTCPointer<ZTCBuffer>& arBuffer) override {
        mBuffers.get(aSize, arBuffer);
    }
    void reuseBuffer(ZTCPointer<ZTCBuffer>& arBuffer) override { mBuffers.reuse(arBuffer); }
    void clearBuffer(ZTCPointer<ZTCBuffer>& arBuffer) override { arBuffer->clear(); }
    void generateNumericId(unsigned int& arId) override;
    void signal(unsigned int aConditionalId) override;
    ZTCPointer<ZTCIpAddress> getAddress() override {
        const ZTCScopedLock lLock(mMutex);
        return mAddress;
    }
    bool isSetForExit() const override { return mIsSetForExit.load(); }
    void setAddress(const ZTCPointer<ZTCIpAddress>& acrAddress) override {
        const ZTCScopedLock lLock(mMutex);
        mAddress = acrAddress;
    }
    ZTCString getHostName() override { return mHostName; }
    void setForExit() override { mIsSetForExit.store(true); }
    ZTCString getOs() override { return ZTCString("Linux"); }
    ZTCString getOsVariant() override { return ZTCString(""); }
    ZTCPointer<ZTCVersion>& getVersion() override { return mVersion; }
    ZTCPointer<ZTCReader>& getReader(unsigned int acReaderNo) override {
        ZT_ASSERT(acReaderNo < this->mReaders.numberOfElements(), __LINE__, ZTSystemFile);
        return mReaders[acReaderNo];
    }
    ZTCPointer<ZTCWriter>& getWriter(unsigned int acWriterNo) override {
        ZT_ASSERT(acWriterNo < this->mWriters.numberOfElements(), __LINE__, ZTSystemFile);
        return mWriters[acWriterNo];
    }
    ZTCPointer<ZTCProtocolHelper>& getProtocolHelper() override { return mProtocolHelper; }

    // The life, in order: preInit, the command line, init, the threads, destroy, postDestroy.

    virtual void preInit();
    virtual void init();
    /// Gives up being the running instance.
    virtual void postDestroy();
    virtual void destroy();

    /// Reads the options that setCmdLineArgDescs registered. Help and version end the process with status 0
    /// at once; a bad option prints one line on standard error and ends it with status 1.
    virtual void processCommandLine(int argc, char** argv);
    virtual void setCmdLineArgDescs();
    /// Reads the file that `-c` named.
    virtual void processConfigFile();
    /// "NAME vVERSION" without a line end.
    virtual void displayVersionAndExit();
    virtual void displayHelpAndExit();
    virtual void displayHelp();

    virtual bool isAnInstanceRunning() { return mInstanceManager->isAnInstanceRunning(); }
    virtual void markAsRunning() { mInstanceManager->markAsRunning(); }
    virtual void killRunningInstance() { mInstanceManager->killRunningInstance(); }
    virtual void exitInstanceManagement() { mInstanceManager->exitInstanceManagement(); }
    virtual void getProcStatus(ZTCString aPidFile) { mInstanceManager->getProcStatus(aPidFile); }

    /// Gives an id of generateNumericId back; one that is not in use is ZTCInvalidEx.
    virtual void returnNumericId(const unsigned int& acrId);

    /// Makes one thread a component, all waiting to be started. Throws ZTCOsException; those that were made
    /// then end by themselves.
    virtual void createThreads();
    virtual void startThreads();
    virtual void startThread(unsigned int aThreadId);
    /// Called once the threads run.
    virtual void postThreadsInit() {}
    /// Returns when all threads have ended, or have been waited for long enough since they were to exit: one
    /// that hangs is left behind, with a record. An exception that ended one thread makes the others exit.
    virtual void waitForThreads();
    /// Marks the system and every thread for exit and wakes whoever waits here. Any thread, any number of
    /// times.
    virtual void makeThreadsToExit();
    /// Whether a component's thread has been started.
    virtual bool isInited(unsigned int aThreadId) const;

    /// Waits for the next signal of a conditional; returns at once when the system is set for exit. Throws
    /// ZTCInvalidEx for an id that is not there; timedWait: ZTCTimeOutEx.
    virtual void wait(unsigned int aConditionalId);
    virtual void timedWait(unsigned int aConditionalId, unsigned int aSeconds);

    /// Writes all of a buffer, without framing.
    virtual void send(unsigned int aWriterId, const ZTCPointer<ZTCBuffer>& acrBuffer, unsigned int& arSent);
    /// Fills the buffer's length with bytes, without framing.
    virtual void receive(unsigned int aReaderId, ZTCPointer<ZTCBuffer>& arBuffer, unsigned int& arReceived);
    /// Returns when the reader has something or the system is set for exit. Throws ZTCTimeOutEx.
    virtual void waitForActivity(unsigned int aReaderId, unsigned int aSeconds);

    // Queues and lists, made with addQueue and addList. An id that is not there is ZTCInvalidEx, taking from
    // an empty one ZTCNotFoundEx; the waits return when there is an element or the system is set for exit,
    // and throw ZTCTimeOutEx.

    virtual void waitOnEmptyQueue(unsigned int aId, unsigned int aSeconds) {
        mQueues.waitOnEmpty(aId, aSeconds, mIsSetForExit);
    }
    virtual void enqueue(unsigned int aId, const Queueable& acrElement) {
        mQueues.put(aId, acrElement, Back);
    }
    virtual Queueable dequeue(unsigned int aId) { return mQueues.take(aId, Front); }
    virtual Queueable queueFront(unsigned int aId) { return mQueues.front(aId); }
    virtual void queueClear(unsigned int aId) { mQueues.clear(aId); }
    virtual bool isQueueEmpty(unsigned int aId) { return mQueues.size(aId) == 0; }

    virtual void waitOnEmptyList(unsigned int aId, unsigned int aSeconds) {
        mLists.waitOnEmpty(aId, aSeconds, mIsSetForExit);
    }
    virtual void enlist(unsigned int aId, const Queueable& acrElement) { mLists.put(aId, acrElement, Back); }
    virtual void enlistFront(unsigned int aId, const Queueable& acrElement) {
        mLists.put(aId, acrElement, Front);
    }
    virtual Queueable delist(unsigned int aId) { return mLists.take(aId, Front); }
    virtual Queueable delistBack(unsigned int aId) { return mLists.take(aId, Back); }
    virtual Queueable listFront(unsigned int aId) { return mLists.front(aId); }
    virtual void listClear(unsigned int aId) { mLists.clear(aId); }
    virtual unsigned int listSize(unsigned int aId) { return mLists.size(aId); }
    virtual bool isListEmpty(unsigned int aId) { return mLists.size(aId) == 0; }
    /// Takes the element out and moves the iterator to the one behind it.
    virtual void listErase(unsigned int aId, QueueableList::iterator& arAt) { mLists.erase(aId, arAt); }
    // Whoever walks a list sees to it that nobody takes away the element it stands on.
    virtual QueueableList::const_iterator listBegin(unsigned int aId) const { return mLists.begin(aId); }
    virtual QueueableList::const_iterator listEnd(unsigned int aId) const { return mLists.end(aId); }
    virtual QueueableList::iterator listBegin(unsigned int aId) { return mLists.begin(aId); }
    virtual QueueableList::iterator listEnd(unsigned int aId) { return mLists.end(aId); }

    /// Makes what the options set the process-wide settings: log code, log file, heartbeat time-out,
    /// configuration file.
    virtual void applySettings();
    /// A setting by its name; for an option's value, the option ("-d"). Throws ZTCNotFoundEx.
    virtual void getSetting(const ZTCString& acrName, ZTCPointer<ZTCMultiType>& arValue) {
        const ZTCScopedLock lLock(mMutex);
        arValue = mSettings.get(acrName);
    }
    /// Throws ZTCExistsEx.
    virtual void addSetting(const ZTCString& acrName, const ZTCPointer<ZTCMultiType>& acrValue) {
        const ZTCScopedLock lLock(mMutex);
        mSettings.insert(acrName, acrValue);
    }
    /// Acts on the options that ask for something: `-s` stops the running instance and ends the process, `-c`
    /// reads the configuration file.
    virtual void processCommandLineArguments();
    /// Called when the system is ready, and when its threads have ended.
    virtual void createStartUpEvent() {}
    virtual void createShutDownEvent() {}
    /// Detaches from the terminal (Daemon.h). The names replace the standard streams once the system is
    /// ready.
    virtual void systemDaemonize(ZTCString aDirectory, ZTCString aInput, ZTCString aOutput, ZTCString aError);
    /// Forgets the thread components, whose threads have ended. Where one was left behind, all stay.
    virtual void destroyThreads();

    /// The call into code that is not ours which has lasted longest. Any thread, at any time.
    virtual ZTSForeignCall getLongestCall() const { return {}; }
    /// The process ends without the threads that are inside such code: none of them is to come back.
    virtual void keepForeignCallers(bool /*aOn*/) {}
    /// The main thread does not come back from the library while it starts: removes what it has made so far.
    virtual void abandonStart() { exitInstanceManagement(); }

    // For SystemMain and the watch.

    const ZTCString& getName() const { return mName; }
    /// Starts the thread that takes the process's signals and watches: before any other, behind a daemon's
    /// fork. Until then a signal ends the process at once, which has made nothing yet. Throws ZTCOsException.
    void startWatch();
    /// Whether the system is not ready yet.
    bool isStarting() const { return mIsStarting.load(); }
    /// The end has begun: from here on its time is measured. Any thread, any number of times.
    void beginEnd();
    bool isEnding() const { return mEndBegun.load() != 0; }
    std::chrono::steady_clock::time_point getEndBegun() const {
        return std::chrono::steady_clock::time_point(std::chrono::steady_clock::duration(mEndBegun.load()));
    }
    /// Begins the end, and makes the threads exit if that is allowed now, else when it will be. Any thread.
    void requestExit();
    /// Between the threads' start and their end, others than these may make them exit.
    void letExit(bool aOn);
    /// Tells of a call into foreign code that does not return, and keeps its thread there; false: there is
    /// none.
    bool leaveForeignCode();
    /// Has the main thread, where it waits for the others, take a turn; and how many it has taken.
    void turn() { mThreadEnded.set(); }
    unsigned int getTurns() const { return mTurns.load(); }
    /// Whether the process is to run detached (`-D`).
    bool isDaemonWanted();
    bool isStopWanted();
    /// What -s asks for: ends the running instance, and this process, with status 0 when it has ended.
    [[noreturn]] void stopRunningInstanceAndExit();
    /// The system runs: tells the process that started it, or the service manager.
    void reportReady();
    /// It has ended, or will not run, and has said why: tells the process that started it.
    void reportEnd() { mDaemon.end(); }

  protected:
    static constexpr unsigned int MaxArgDescs = 10;

    void addArgDesc(unsigned char aKind, const char* apOption);

    /// Makes an empty queue or list and returns its id. Before the threads are started.
    unsigned int addQueue() { return mQueues.add(); }
    unsigned int addList() { return mLists.add(); }

    /// Whether threads run that nobody waits for any more: what they use must stay.
    bool hasLeftThreads() const { return mHasLeftThreads; }

    ZTCPointer<ZTCProcessInstanceManager> mInstanceManager;
    ZTCPointer<ZTCVersion> mVersion;
    std::vector<ZTCCmdLineArgDesc> mArgDescs;

    // Filled by init, before the threads are started; the lists themselves do not change afterwards.
    ZTCIdTable<ZTCThreadComponent> mThreadComponents;
    ZTCIdTable<ZTCConditional> mConditionals;
    ZTCIdTable<ZTCReader> mReaders;
    ZTCIdTable<ZTCWriter> mWriters;

  private:
    static constexpr ZTCQueueTable::End Front = ZTCQueueTable::End::Front;
    static constexpr ZTCQueueTable::End Back = ZTCQueueTable::End::Back;

    void setSetting(const char* apName, const ZTCPointer<ZTCMultiType>& acrValue);
    /// The value of an option that was given, else null.
    const ZTCMultiType* findSetting(const char* apName);
    void takeOption(char aLetter, const char* apValue);
    [[noreturn]] void exitOnBadOption(const char* apText);
    void waitForSignal(unsigned int aConditionalId, const timespec* apDeadline);
    int timeForThreads() const;
    void leaveThreads();
    void wakeWatch();
    int settleWriters();

    const ZTCString mName;
    const ZTCString mHostName{"localhost"};
    ZTCBufferManager mBuffers;
    ZTCPointer<ZTCProtocolHelper> mProtocolHelper;
    std::optional<ZTCSystemWatch> mWatch;
    ZTCEvent mThreadEnded;
    std::atomic<bool> mIsSetForExit{false};
    std::atomic<bool> mIsStarting{true};
    std::atomic<long> mEndBegun{0};  // by the steady clock
    std::atomic<unsigned int> mTurns{0};
    bool mHasLeftThreads = false;
    ZTCMutex mExitMutex;
    bool mMayExit ZT_GUARDED_BY(mExitMutex) = false;
    ZTCDaemon mDaemon;
    std::vector<ZTCString> mDaemonStreams;

    ZTCMutex mMutex;
    ZTCPointer<ZTCIpAddress> mAddress ZT_GUARDED_BY(mMutex);
    ZTMap<ZTCString, ZTCPointer<ZTCMultiType>> mSettings ZT_GUARDED_BY(mMutex);
    std::set<unsigned int> mIds ZT_GUARDED_BY(mMutex);

    mutable ZTCQueueTable mQueues;
    mutable ZTCQueueTable mLists;
};
