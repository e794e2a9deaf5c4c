// Looks at what may stand on a disk that stands still: the names file, multipath's configuration; and asks
// multipathd.
#pragma once

#include <mutex>
#include <optional>

#include "HostBook.h"
#include "HostFacts.h"
#include "LookThread.h"
#include "Multipathd.h"

struct ZTSPathsAnswer {
    std::vector<ZTSMultipathdPath> mPaths;
    std::uint64_t mQuestion = 0;
};

/// A look each minute, and when something is asked for.
class ZTCFilesLook : public ZTCLooker {
  public:
    ZTCFilesLook(std::string aRoot, std::shared_ptr<ZTCHostBook> apBook);

    Clock::time_point look() override;
    void tellSlow(unsigned int aSeconds) override;
    void tellFailed(const char* apWhy) override;
    void tellHangs(unsigned int aSeconds) override;

    // Any thread; the look is to be woken behind what asks for something.

    /// The names file is to be read; empty: there is none. One that is being written is read when it is still
    /// for a moment, or behind some seconds.
    void askForNames(const std::string& acrPath);
    bool areNamesRead() const;
    /// multipathd is to be asked; at the start it is, as question 0.
    void askForPaths(std::uint64_t aQuestion);
    /// What it has answered, once.
    std::optional<ZTSPathsAnswer> takePaths();

  private:
    struct Names {
        std::string mPath;
        Clock::time_point mPatience;  // until then it is waited for
    };

    Clock::time_point readNames();
    void takeNames(const std::string& acrPath, const std::string& acrText);
    void refuseNames(const std::string& acrPath, const std::string& acrWhy);
    void askMultipathd();
    void readFacts(Clock::time_point aNow);

    const std::string mRoot;
    const std::shared_ptr<ZTCHostBook> mpBook;

    mutable std::mutex mLock;  // of what follows
    std::optional<Names> mNames;
    std::optional<std::uint64_t> mQuestion{0};
    std::optional<ZTSPathsAnswer> mPaths;

    // The thread's.
    Clock::time_point mFactsDue;
    ZTSHostFacts mFacts;
};
