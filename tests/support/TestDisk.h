// Paths on a disk that can be made to stand still, or be full, for a program that is started with its
// environment.
#pragma once

#include "TestSupport.h"

class ZTCTestDisk {
  public:
    /// A directory of its own.
    ZTCTestDisk() : ZTCTestDisk("") { std::filesystem::create_directory(getPath()); }
    /// What has a part of a path in its own.
    explicit ZTCTestDisk(const std::string& acrPath) : mPath(acrPath.empty() ? mOwn / "disk" : acrPath) {}

    const std::string& getPath() const { return mPath; }
    std::string operator/(const std::string& acrName) const { return mPath + "/" + acrName; }

    void stand() const { writeFile(mOwn / "stands", ""); }
    void move() const {
        std::filesystem::remove(mOwn / "still");
        std::filesystem::remove(mOwn / "stands");
    }
    /// Who reads waits, too, until it moves.
    void standWhole() const {
        writeFile(mOwn / "still", "");
        stand();
    }
    void fill() const { writeFile(mOwn / "full", ""); }
    void makeRoom() const { std::filesystem::remove(mOwn / "full"); }

    std::vector<std::string> getEnvironment() const {
        return {"LD_PRELOAD=" ZT_STANDING_DISK, "ZT_TEST_DISK=" + mPath,
                "ZT_TEST_STANDS=" + (mOwn / "stands"), "ZT_TEST_STILL=" + (mOwn / "still"),
                "ZT_TEST_FULL=" + (mOwn / "full")};
    }

  private:
    ZTCTestDirectory mOwn;
    std::string mPath;
};
