// A tree as the kernel has it for storage: SCSI devices, block devices, device mapper, mounts.
#pragma once

#include <map>

#include "FcTree.h"

/// LUN L of target T at host H is "H:0:T:L", with a disk whose number follows from its place.
class ZTCStorageTestTree {
  public:
    using Attributes = std::map<std::string, std::string>;

    ZTCStorageTestTree() {
        for (const char* const lpFolder :
             {"sys/bus/scsi/devices", "sys/block", "sys/class/fc_transport", "proc/1"}) {
            std::filesystem::create_directories(mRoot / lpFolder);
        }
    }
    const std::string& getPath() const { return mRoot.getPath(); }
    std::string operator/(const std::string& acrBelow) const { return mRoot / acrBelow; }
    static std::string lunAt(const std::string& acrAddress) { return "sys/bus/scsi/devices/" + acrAddress; }

    /// Whole and at once; what is there already is made anew. A name that ends with a slash is a folder.
    void add(const std::string& acrBelow, const Attributes& acrAttributes) const {
        const std::string lMade = mRoot / "made/";
        std::filesystem::create_directories(lMade);
        for (const auto& [lrName, lrText] : acrAttributes) {
            std::filesystem::create_directories(std::filesystem::path(lMade + lrName).parent_path());
            if (!lrName.ends_with('/')) {
                writeFile(lMade + lrName, lrText);
            }
        }
        std::filesystem::create_directories(std::filesystem::path(mRoot / acrBelow).parent_path());
        remove(acrBelow);
        std::filesystem::rename(lMade, mRoot / acrBelow);
    }
    void remove(const std::string& acrBelow) const {
        std::error_code lNotThere;
        std::filesystem::rename(mRoot / acrBelow, mRoot / "gone", lNotThere);
        std::filesystem::remove_all(mRoot / "gone");
    }
    void set(const std::string& acrBelow, const std::string& acrText) const {
        std::filesystem::create_directories(std::filesystem::path(mRoot / acrBelow).parent_path());
        writeFile(mRoot / "new", acrText);
        std::filesystem::rename(mRoot / "new", mRoot / acrBelow);
    }

    /// A LUN with its disk, seen through the port 0x5000000000000000 and the target's number.
    void addLun(const std::string& acrAddress, const std::string& acrDisk, const std::string& acrNumber,
                unsigned char aName) const {
        add(lunAt(acrAddress), {{"state", "running\n"},
                                {"access_state", "active/optimized\n"},
                                {"queue_depth", "32\n"},
                                {"type", "0\n"},
                                {"vendor", "ARRAY   \n"},
                                {"model", "DISK            \n"},
                                {"ioerr_cnt", "0x0\n"},
                                {"iotmo_cnt", "0x0\n"},
                                {"iorequest_cnt", "0x10\n"},
                                {"iodone_cnt", "0x10\n"},
                                {"vpd_pg80", page(0x80, "SERIAL" + std::to_string(aName) + " ")},
                                {"vpd_pg83", page(0x83, naa(aName))},
                                {"block/" + acrDisk + "/", ""}});
        addBlock(acrDisk, acrNumber, {});
        const std::string lTarget = acrAddress.substr(0, acrAddress.rfind(':'));
        set("sys/class/fc_transport/target" + lTarget + "/port_name",
            fcDigits(0x5000000000000000 + std::stoul(lTarget.substr(lTarget.rfind(':') + 1))) + "\n");
    }
    void removeLun(const std::string& acrAddress, const std::string& acrDisk) const {
        remove(lunAt(acrAddress));
        remove("sys/block/" + acrDisk);
    }
    void addBlock(const std::string& acrDisk, const std::string& acrNumber, const Attributes& acrMore,
                  const std::vector<std::string>& acrOver = {}) const {
        Attributes lAttributes = acrMore;
        lAttributes["dev"] = acrNumber + "\n";
        for (const std::string& lrDisk : acrOver) {
            lAttributes["slaves/" + lrDisk + "/"];
        }
        add("sys/block/" + acrDisk, lAttributes);
    }
    void addMapped(const std::string& acrDisk, const std::string& acrName, const std::string& acrUuid,
                   const std::vector<std::string>& acrOver) const {
        addBlock(acrDisk, "253:" + acrDisk.substr(3),
                 {{"dm/name", acrName + "\n"}, {"dm/uuid", acrUuid + "\n"}}, acrOver);
    }

    static std::string page(unsigned int aNumber, const std::string& acrContents) {
        const char lHead[] = {0, static_cast<char>(aNumber), static_cast<char>(acrContents.size() >> 8),
                              static_cast<char>(acrContents.size())};
        return std::string(lHead, sizeof lHead) + acrContents;
    }
    static std::string designator(int aCodes, int aKind, const std::string& acrValue) {
        const char lHead[] = {static_cast<char>(aCodes), static_cast<char>(aKind), 0,
                              static_cast<char>(acrValue.size())};
        return std::string(lHead, sizeof lHead) + acrValue;
    }
    static std::string naa(unsigned char aName) {
        return designator(
            1, 3, std::string("\x60\x06\x01\x60", 4) + std::string(11, '\0') + static_cast<char>(aName));
    }

  private:
    ZTCTestDirectory mRoot{"/dev/shm"};  // there are many of them
};
