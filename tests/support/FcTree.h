// A tree as the kernel's Fibre Channel transport has it in sysfs.
#pragma once

#include <sys/stat.h>

#include <map>

#include "TestSupport.h"

inline std::string fcDigits(std::uint64_t aNumber) {
    char lDigits[32];
    snprintf(lDigits, sizeof lDigits, "0x%llx", static_cast<unsigned long long>(aNumber));
    return lDigits;
}

/// What may stand in the place of an attribute, each told nothing by.
inline const std::vector<std::function<void(const std::string&)>>& fcBadWays() {
    static const std::vector<std::function<void(const std::string&)>> sWays{
        [](const std::string&) {},
        [](const std::string& acrPath) { std::filesystem::create_directory(acrPath); },
        [](const std::string& acrPath) { mkfifo(acrPath.c_str(), 0644); },
        [](const std::string& acrPath) { writeFile(acrPath, std::string(1 << 20, '7')); },
        [](const std::string& acrPath) { std::filesystem::create_symlink("/dev/zero", acrPath); },
        [](const std::string& acrPath) { writeFile(acrPath, ""); },
        [](const std::string& acrPath) { writeFile(acrPath, " \t \nOnline\n"); },
        [](const std::string& acrPath) { writeFile(acrPath, "\x1b[1m\n"); },
        [](const std::string& acrPath) { writeFile(acrPath, "Unknown\n"); }};
    return sWays;
}

/// Hosts and remote ports come and go whole, and an attribute is never there by half.
class ZTCFcTestTree {
  public:
    /// acrClasses: where they lie below the root.
    explicit ZTCFcTestTree(const std::string& acrClasses = "class/") : mClasses(acrClasses) {
        std::filesystem::create_directories(pathOf("fc_host"));
        std::filesystem::create_directories(pathOf("fc_remote_ports"));
    }
    const std::string& getPath() const { return mDirectory.getPath(); }
    std::string pathOf(const std::string& acrBelow) const { return mDirectory / (mClasses + acrBelow); }

    /// What is there says something else from now on, to those who have it open too; empty lines behind it
    /// cover what was longer.
    void set(const std::string& acrBelow, const std::string& acrText) const {
        const std::string lPath = pathOf(acrBelow);
        if (const ZTCDescriptor lFile(open(lPath.c_str(), O_WRONLY | O_CLOEXEC)); lFile.isOpen()) {
            const std::size_t lSize =
                std::max<std::size_t>(acrText.size(), std::filesystem::file_size(lPath));
            const std::string lLines = acrText + std::string(lSize - acrText.size(), '\n');
            EXPECT_EQ(pwrite(lFile.get(), lLines.data(), lSize, 0), static_cast<ssize_t>(lSize));
            return;
        }
        writeFile(mDirectory / "new", acrText);
        std::filesystem::rename(mDirectory / "new", lPath);
    }
    /// What is there already is made anew.
    void add(const std::string& acrBelow, const std::map<std::string, std::string>& acrAttributes) const {
        const std::filesystem::path lMade(mDirectory / "made");
        std::filesystem::create_directories(lMade);
        std::filesystem::create_directories(std::filesystem::path(pathOf(acrBelow)).parent_path());
        for (const auto& [lrName, lrText] : acrAttributes) {
            std::filesystem::create_directories((lMade / lrName).parent_path());
            writeFile(lMade / lrName, lrText + "\n");
        }
        std::error_code lNotThere;
        std::filesystem::rename(pathOf(acrBelow), mDirectory / "gone", lNotThere);
        std::filesystem::rename(lMade, pathOf(acrBelow));
        std::filesystem::remove_all(mDirectory / "gone");
    }
    void addHost(unsigned int aHost) const {
        add("fc_host/host" + std::to_string(aHost), {{"port_state", "Online"},
                                                     {"node_name", fcDigits(0x1000000000000000 + aHost)},
                                                     {"port_name", fcDigits(0x2000000000000000 + aHost)},
                                                     {"statistics/link_failure_count", "0x5"}});
    }
    void remove(const std::string& acrBelow) const {
        std::error_code lNotThere;
        std::filesystem::rename(pathOf(acrBelow), mDirectory / "gone", lNotThere);
        std::filesystem::remove_all(mDirectory / "gone");
    }

  private:
    const std::string mClasses;
    ZTCTestDirectory mDirectory;
};
