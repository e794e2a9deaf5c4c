// A made-up host that goes on, in a process of its own.
#pragma once

#include "HostLoop.h"
#include "TestSupport.h"

class ZTCTestHost {
  public:
    explicit ZTCTestHost(const std::string& acrSite = "", const std::string& acrParent = "/dev/shm")
        : mRoot(acrParent) {
        if (!acrSite.empty()) {
            writeFile(mRoot / "site", acrSite);
        }
        mChild.emplace(commandOf(acrSite), std::vector<std::string>{});
        EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(getSocket()); })) << mChild->getErr();
    }

    const std::string& getRoot() const { return mRoot.getPath(); }
    std::string operator/(const std::string& acrPath) const { return mRoot / acrPath; }
    std::string getSocket() const { return mRoot / ZTCHostLoop::ControlPath; }
    const ZTCTestChild& getChild() const { return *mChild; }

    std::string ask(const std::string& acrLine) const { return askHost(getSocket(), acrLine); }
    /// Each of the lines.
    void play(const std::string& acrLines) const { EXPECT_EQ(ask(acrLines), "ok\n") << acrLines; }
    /// The first line of an attribute.
    std::string read(const std::string& acrPath) const {
        const std::string lText = readFile(mRoot / acrPath);
        return lText.substr(0, lText.find('\n'));
    }

  private:
    std::vector<std::string> commandOf(const std::string& acrSite) const {
        // Its input never ends, and has nothing.
        std::vector<std::string> lCommand{ZT_VRX_HOSTSIM, "--root", mRoot.getPath()};
        if (!acrSite.empty()) {
            lCommand.insert(lCommand.end(), {"--site", mRoot / "site"});
        }
        return lCommand;
    }

    ZTCTestDirectory mRoot;
    std::optional<ZTCTestChild> mChild;
};
