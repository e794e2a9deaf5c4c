// A log that children of a test have written, and what has to be in it. The log is the process's: every case
// that writes one does so in a child.
#pragma once

#include <cctype>
#include <cstdio>
#include <map>
#include <sstream>

#include "Log.h"
#include "TestSupport.h"

inline constexpr char ZTTestLogFile[] = "LogTest";

struct ZTSTestLine {
    std::string mTime, mProcess, mThread, mText;
};

/// The lines of a log, each of which has to be whole.
inline std::vector<ZTSTestLine> linesOf(const std::string& acrLog) {
    std::vector<ZTSTestLine> lLines;
    std::istringstream lText(acrLog);
    for (std::string lLine; std::getline(lText, lLine);) {
        char lTime[27]{};
        char lProcess[11]{};
        char lThread[11]{};
        int lLength = 0;
        sscanf(lLine.c_str(), "%26[0-9T:.-]Z %10[0-9].%10[0-9] -%*1[HAEWNIT]- %*[^ :]:%*[0-9] %*[^ :]:%n",
               lTime, lProcess, lThread, &lLength);
        const auto lFrom = static_cast<std::size_t>(lLength);
        if (lLength == 0 || lLine[lFrom] != ' ' || strlen(lTime) != 26 ||
            std::any_of(lLine.begin(), lLine.end(), iscntrl) || lText.eof()) {
            ADD_FAILURE() << "malformed: " << lLine;
            break;
        }
        lLines.push_back({lTime, lProcess, lThread, lLine.substr(lFrom + 1)});
    }
    return lLines;
}

/// The texts of the last so many lines.
inline std::vector<std::string> lastTexts(const std::string& acrLog, std::size_t aCount) {
    std::vector<std::string> lTexts;
    for (const ZTSTestLine& lrLine : linesOf(acrLog)) {
        lTexts.push_back(lrLine.mText);
    }
    return {lTexts.end() - static_cast<std::ptrdiff_t>(std::min(aCount, lTexts.size())), lTexts.end()};
}

inline void logNumber(unsigned int aThread, unsigned int aNumber) {
    Log(ZTLL_Notice, ZTTestLogFile, "thread %u number %u of %s", aThread, aNumber, "many");
}

/// Not more at once than a ring holds.
inline void logNumbers(unsigned int aThread, unsigned int aCount) {
    constexpr unsigned int lAtOnce = 1000;
    for (unsigned int lNumber = 0; lNumber < aCount; ++lNumber) {
        logNumber(aThread, lNumber);
        if (lNumber % lAtOnce == lAtOnce - 1) {
            flushLog();
        }
    }
}

/// What the log says that it has lost.
inline unsigned long lostIn(const std::string& acrLog) {
    unsigned long lLost = 0;
    for (const ZTSTestLine& lrLine : linesOf(acrLog)) {
        unsigned long lNumber = 0;
        sscanf(lrLine.mText.c_str(), "%lu log records were lost", &lNumber);
        lLost += lNumber;
    }
    return lLost;
}

/// How many records of each thread there are. They are in order, with times that do not go back; nor do they
/// in the whole file, but for a thread that was stopped in the middle of a record, which is waited for only
/// so long.
inline std::map<unsigned int, unsigned int> numbersIn(const std::string& acrLog) {
    const std::vector<ZTSTestLine> lLines = linesOf(acrLog);
    std::map<unsigned int, unsigned int> lCounts;
    std::map<unsigned int, std::pair<unsigned int, std::string>> lLast;
    std::string lLatest;
    std::size_t lBack = 0;
    for (const ZTSTestLine& lrLine : lLines) {
        lBack += lrLine.mTime < lLatest ? 1 : 0;
        lLatest = lrLine.mTime;
        unsigned int lThread = 0;
        unsigned int lNumber = 0;
        if (sscanf(lrLine.mText.c_str(), "thread %u number %u of many", &lThread, &lNumber) == 2) {
            auto& [lrNext, lrTime] = lLast[lThread];
            if (lNumber < lrNext || lrLine.mTime < lrTime) {
                ADD_FAILURE() << "out of order: thread " << lThread << ", number " << lNumber;
                break;
            }
            lrNext = lNumber + 1;
            lrTime = lrLine.mTime;
            ++lCounts[lThread];
        }
    }
    EXPECT_LE(lBack, 2 + lLines.size() / 1000);
    return lCounts;
}

/// Of so many threads every record is there, once.
inline void expectNumbers(const std::string& acrLog, std::size_t aThreads, unsigned int aCount) {
    const std::map<unsigned int, unsigned int> lCounts = numbersIn(acrLog);
    EXPECT_EQ(lCounts.size(), aThreads);
    for (const auto& [lThread, lCount] : lCounts) {
        EXPECT_EQ(lCount, aCount) << "thread " << lThread;
    }
}

inline void openLogAt(const std::string& acrPath) {
    setLogFilePath(acrPath.c_str());
    openLog();
}

/// A directory with a log, and children that write it.
class ZTCTestLog : public ::testing::Test {
  protected:
    std::string log() const { return readFile(mPath); }
    bool isLogged(const std::string& acrText) const { return contains(log(), acrText + "\n"); }

    // Runs the work with the log open in a child, which has to end well.
    void inChild(const std::function<void()>& acrWork) const {
        const ZTSTestEnd lEnd = runChild([&] {
            const ZTCTestPeriod lFlush(ZTP_LogFlush, 30000);  // on a busy machine
            openLogAt(mPath);
            acrWork();
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "log";
};
