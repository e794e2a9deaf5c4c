// What a fetch costs: under the lock, for the response, for freeing what it was made of, and through the
// pipe.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <optional>
#include <thread>

#include "Bench.h"
#include "BenchAgent.h"
#include "NamedPipeWriterServer.h"
#include "ProtocolHelper.h"
#include "ScopeWire.h"

namespace {

constexpr unsigned int sManyRecords =
    65000;  // several threads that pass the limit with an RSCN each get there
constexpr unsigned int sFullRecords = 23000;  // of the smallest, nearly all that fit in the limit
constexpr unsigned int sFewRecords = 20;

// The other end of the output pipe: takes whole messages and tells when it has one.
class Sensor {
  public:
    Sensor() {
        char lName[] = "/tmp/zt-bench-XXXXXX";
        mPath = std::string(mkdtemp(lName) != nullptr ? lName : "/tmp") + "/out.fifo";
        auto* const lpServer = new ZTCNamedPipeWriterServer(ZTCString(mPath.c_str()), 1);
        mServer = ZTCPointer<ZTCWriter>(lpServer, ZTPST_Individual, ZTPMT_New);
        lpServer->create(0);
        lpServer->open(0);
        mThread = std::thread([this, lPipe = open(mPath.c_str(), O_RDONLY | O_CLOEXEC)] { take(lPipe); });
    }
    ~Sensor() {
        ZTCPointer<ZTCWriter>().swap(mServer);
        mThread.join();
        unlink(mPath.c_str());
        rmdir(mPath.substr(0, mPath.rfind('/')).c_str());
    }
    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;

    /// Writes a message and returns when it has been read wholly.
    void pass(const ZTCPointer<ZTCBuffer>& acrMessage) {
        mLeft = acrMessage->getLength() + ZTWireHeaderSize;
        mHelper.write(mServer, acrMessage, 0);
        for (std::size_t lLeft = mLeft; lLeft != 0; lLeft = mLeft) {
            mLeft.wait(lLeft);
        }
    }

  private:
    void take(int aPipe) {
        std::vector<char> lRoom(1 << 20);
        for (ssize_t lRead; (lRead = read(aPipe, lRoom.data(), lRoom.size())) > 0;) {
            mLeft -= static_cast<std::size_t>(lRead);
            mLeft.notify_one();
        }
        close(aPipe);
    }

    std::string mPath;
    ZTCPointer<ZTCWriter> mServer;
    ZTCProtocolHelper mHelper;
    std::atomic<std::size_t> mLeft{0};
    std::thread mThread;
};

void sFillWithMany() {
    ztbench::empty(0);
    ZTCBenchEvent lEvent(1U, 1U, 20U);
    for (unsigned int lAt = 0; lAt < sManyRecords; ++lAt) {
        lEvent.setName(lAt);
        lEvent.deliverAboveLimit();
    }
}

template <class Work>
std::function<ZTBenchCall()> sMakerOf(Work aWork) {
    return [=] { return [=](unsigned int) { aWork(); }; };
}

// Puts so many records into the collection, and copies what the response to a fetch has of them: the floor of
// what makes them bytes, and brings these away.
class CopyGroup {
  public:
    CopyGroup(std::function<void()> aFill, unsigned int aRecords)
        : mFill(std::move(aFill)), mRecords(aRecords) {
        mFill();
        const ZTCPointer<ZTCBuffer> lResponse(ztbench::respond());
        ztbench::release();
        mBytes.assign(lResponse->getBytes(), lResponse->getBytes() + lResponse->getLength());
        mCopy.resize(mBytes.size());
        mGroup.emplace("fetch", ZTSBenchLoad{fmt::format("bare copy of {} bytes", mBytes.size()),
                                             sMakerOf([this] {
                                                 memcpy(mCopy.data(), mBytes.data(), mBytes.size());
                                                 ztbench::keep(mCopy.data());
                                             }),
                                             {},
                                             1});
    }
    CopyGroup(const CopyGroup&) = delete;
    CopyGroup& operator=(const CopyGroup&) = delete;

    // aBehind: what is done, untimed, between the filling and the work.
    template <class Work>
    void measure(
        const char* apName, Work aWork, const std::function<void()>& acrBehind = [] {}) {
        mGroup->measure({fmt::format(fmt::runtime(apName), mRecords), sMakerOf(aWork),
                         [=, this] {
                             mFill();
                             acrBehind();
                         },
                         1});
    }

  private:
    std::function<void()> mFill;
    unsigned int mRecords;
    std::vector<unsigned char> mBytes;
    std::vector<unsigned char> mCopy;
    std::optional<ZTCBenchGroup> mGroup;
};

}  // namespace

void ztbench::fetch() {
    useAgent();
    const auto lFill = [](unsigned int aRecords) {
        empty(0);
        addSmallest(aRecords);
    };
    const ZTCBenchGroup lLock("fetch", eventFloor());
    for (const unsigned int lRecords : {sFewRecords, sFullRecords}) {
        lLock.measure({fmt::format("{} records taken out of the collection", lRecords), sMakerOf(detach),
                       [=] {
                           giveBack();
                           lFill(lRecords);
                       },
                       1});
    }
    giveBack();

    ZTCPointer<ZTCBuffer> lResponse;
    const auto lRespond = [&] { lResponse = respond(); };
    CopyGroup lMany(
        [&] {
            ZTCPointer<ZTCBuffer>().swap(lResponse);
            sFillWithMany();
        },
        sManyRecords);
    lMany.measure("{} records made into a response", lRespond);
    lMany.measure("the same {} records freed", release, lRespond);

    CopyGroup lFull([=] { lFill(sFullRecords); }, sFullRecords);
    Sensor lSensor;
    lFull.measure("{} records, from the lock to the sensor's end of the pipe",
                  [&] { lSensor.pass(respond()); });
}
