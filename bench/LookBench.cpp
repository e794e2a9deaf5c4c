// What a look at the Fibre Channel hosts costs, beside as many reads of open files and nothing else. The
// hosts are made up, in memory; the last rows say by how much a read of the real sysfs is slower than one
// there.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "Bench.h"
#include "Boards.h"

namespace {

constexpr rlim_t sMargin = 200;
constexpr rlim_t sLeastDescriptors = 18000;
constexpr rlim_t sDescriptors = 32768;  // with which each file is open twice: the floor's and the look's

// Hosts with one remote port each, behind links as in sysfs.
class Tree {
  public:
    explicit Tree(unsigned int aHosts) : mHosts(aHosts) {
        if (mkdtemp(mPath.data()) == nullptr) {
            throw std::runtime_error("cannot make a folder in /dev/shm");
        }
        for (unsigned int lHost = 0; lHost < aHosts; ++lHost) {
            const std::string lName = std::to_string(lHost);
            const std::string lDevice = "devices/pci0000:00/0000:00:01.0/0000:01:00.0/host" + lName;
            const std::string lPort = "rport-" + lName + ":0-1";
            const std::string lHostFolder = add("fc_host", "host" + lName, lDevice);
            write(lHostFolder + "port_state", "Online");
            write(lHostFolder + "node_name", fmt::format("0x{:x}", 0x1000000000000000 + lHost));
            write(lHostFolder + "port_name", fmt::format("0x{:x}", 0x2000000000000000 + lHost));
            for (const char* const lpCounter : ZTFcCounters) {
                write(lHostFolder + lpCounter, "0x5");
            }
            const std::string lPortFolder =
                add("fc_remote_ports", lPort, fmt::format("{}/{}", lDevice, lPort));
            write(lPortFolder + "port_id", "0x010203");
            write(lPortFolder + "port_state", "Online");
        }
    }
    ~Tree() { std::filesystem::remove_all(mPath); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    const std::string& getPath() const { return mPath; }
    unsigned int countHosts() const { return mHosts; }
    const std::vector<std::string>& getFiles() const { return mFiles; }

  private:
    std::string add(const std::string& acrClass, const std::string& acrName, const std::string& acrDevice) {
        const std::string lFolder = acrDevice + "/" + acrClass + "/" + acrName;
        std::filesystem::create_directories(mPath + "/" + lFolder + "/statistics");
        const std::string lClass = fmt::format("{}/class/{}/", mPath, acrClass);
        std::filesystem::create_directories(lClass);
        std::filesystem::create_symlink("../../" + lFolder, lClass + acrName);
        return mPath + "/" + lFolder + "/";
    }
    void write(const std::string& acrPath, const std::string& acrText) {
        std::ofstream(acrPath) << acrText << '\n';
        mFiles.push_back(acrPath);
    }

    std::string mPath = "/dev/shm/zt-bench-XXXXXX";
    const unsigned int mHosts;
    std::vector<std::string> mFiles;
};

// Open files, and as many reads of them as there are paths: if there are too few descriptors for all, some
// are read more than once.
class Files {
  public:
    explicit Files(const std::vector<std::string>& acrPaths) : mReads(acrPaths.size()) {
        rlimit lLimit{};
        getrlimit(RLIMIT_NOFILE, &lLimit);
        const std::size_t lMost = std::max<std::size_t>(1, lLimit.rlim_cur - sMargin - mReads);
        while (mFiles.size() < std::min(mReads, lMost)) {
            const std::string& lrPath = acrPaths[mFiles.size()];
            mFiles.push_back(open(lrPath.c_str(), O_RDONLY | O_CLOEXEC));
            if (mFiles.back() < 0) {
                throw std::runtime_error("cannot open " + lrPath);
            }
        }
    }
    ~Files() {
        for (const int lFile : mFiles) {
            close(lFile);
        }
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    void read() const {
        char lBytes[4096];
        for (std::size_t lAt = 0; lAt < mReads; ++lAt) {
            ztbench::keep(pread(mFiles[lAt % mFiles.size()], lBytes, sizeof lBytes, 0));
        }
    }

  private:
    const std::size_t mReads;
    std::vector<int> mFiles;
};

void sOpenAndRead(const std::string& acrPath) {
    char lBytes[4096];
    const int lFile = open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    ztbench::keep(read(lFile, lBytes, sizeof lBytes));
    close(lFile);
}

void sAllowDescriptors() {
    rlimit lLimit{};
    getrlimit(RLIMIT_NOFILE, &lLimit);
    lLimit.rlim_cur = std::min(lLimit.rlim_max, sDescriptors);
    if (lLimit.rlim_cur < sLeastDescriptors || setrlimit(RLIMIT_NOFILE, &lLimit) != 0) {
        throw std::runtime_error(fmt::format("looks at 1024 hosts need {} descriptors", sLeastDescriptors));
    }
}

double sProcessorTime() {
    timespec lTime{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lTime);
    return static_cast<double>(lTime.tv_sec) + static_cast<double>(lTime.tv_nsec) / 1e9;
}

// A load of looks. Says what the processor has had to do, whoever else had it meanwhile.
ZTSBenchLoad sLooks(const char* apName, const Tree& acrTree, const std::function<void()>& acrLook) {
    const auto lpSum = std::make_shared<std::pair<double, unsigned int>>();
    const unsigned int lHosts = acrTree.countHosts();
    return {.mName = apName,
            .mMake =
                [=] {
                    return [=](unsigned int) {
                        const double lBefore = sProcessorTime();
                        acrLook();
                        lpSum->first += sProcessorTime() - lBefore;
                        ++lpSum->second;
                    };
                },
            .mCalls = lHosts < 100 ? 200U : 2U,
            .mEach = lHosts,
            .mMore =
                [=] {
                    const double lLook = lpSum->first / lpSum->second;
                    return fmt::format(
                        "{:.1f} us of the processor, {:.2f} % of it for {} hosts at a period of 1 s",
                        lLook * 1e6 / lHosts, lLook * 100, lHosts);
                }};
}

void sMeasure(unsigned int aHosts) {
    const Tree lTree(aHosts);
    const Files lFiles(lTree.getFiles());
    const ZTCBenchGroup lGroup(fmt::format("look, a host of {}", aHosts),
                               sLooks("13 reads", lTree, [&] { lFiles.read(); }));
    ZTCFcSysfs lKept(lTree.getPath(), INT_MAX);
    lGroup.measure(sLooks("sysfs", lTree, [&] { ztbench::keep(lKept.look()->size()); }));
    ZTCFcSysfs lClosed(lTree.getPath(), 0);
    lGroup.measure(sLooks("sysfs, nothing kept open", lTree, [&] { ztbench::keep(lClosed.look()->size()); }));
    ZTCFcWatcher lWatcher(*lKept.look(), {});
    ZTCFcBoards lBoards;
    ZTFcEvents lEvents;
    lGroup.measure(sLooks("sysfs, compared, boards", lTree, [&] {
        lWatcher.look(*lKept.look(), {}, lEvents);
        lBoards.update(lWatcher);
        ztbench::keep(lEvents.size());
    }));
}

}  // namespace

void ztbench::look() {
    sAllowDescriptors();
    for (const unsigned int lHosts : {4U, 1024U}) {
        sMeasure(lHosts);
    }
    const Tree lTree(1);
    const std::vector<std::string> lPaths = {lTree.getFiles().front(), "/sys/class/net/lo/mtu",
                                             "/sys/class/net/lo/statistics/rx_bytes"};
    const auto lRead = [](const std::string& acrPath) {
        return ZTSBenchLoad{acrPath.substr(0, acrPath.find("zt-bench")) + ", open", [=] {
                                const auto lpFile = std::make_shared<Files>(std::vector{acrPath});
                                return [=](unsigned int) { lpFile->read(); };
                            }};
    };
    const ZTCBenchGroup lGroup("look, a read", lRead(lPaths.front()));
    for (const std::string& lrPath : lPaths) {
        if (&lrPath != &lPaths.front()) {
            lGroup.measure(lRead(lrPath));
        }
        lGroup.measure({lRead(lrPath).mName + "ed and closed",
                        [=] { return [=](unsigned int) { sOpenAndRead(lrPath); }; }});
    }
}
