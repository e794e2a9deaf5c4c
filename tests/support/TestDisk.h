// A directory on a disk that can be made to stand still for a program that is started with its environment.
#pragma once

#include "TestSupport.h"

class ZTCTestDisk {
  public:
    ZTCTestDisk() { std::filesystem::create_directory(getPath()); }

    std::string getPath() const { return mOuter / "disk"; }
    std::string operator/(const std::string& acrName) const { return getPath() + "/" + acrName; }

    void stand() const { writeFile(getPath() + ".stands", ""); }
    void move() const { std::filesystem::remove(getPath() + ".stands"); }

    std::vector<std::string> getEnvironment() const {
        return {"LD_PRELOAD=" ZT_STANDING_DISK, "ZT_TEST_DISK=" + getPath()};
    }

  private:
    ZTCTestDirectory mOuter;
};
