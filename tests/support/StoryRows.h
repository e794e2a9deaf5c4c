// What a story's rows are for those who read the history: records, changes, and all else (SignStory.h).
#pragma once

#include <memory>
#include <variant>

#include "HostNews.h"
#include "IncidentFinder.h"
#include "Record.h"
#include "StorySite.h"

/// A line of a story, at its moment.
struct ZTSStoryRow {
    ZTNanoseconds mTime = 0;
    std::size_t mLine = 0;
    ZTSStoryLine mWords;

    const std::string& getVerb() const { return mWords.at(0); }
};

struct ZTSStoryCount {
    ZTNanoseconds mMinute = 0;
    ZTSMeasured mWhose;
    std::string mName;
    std::uint64_t mValue = 0;
};
/// vrx-sn is there no more, or again.
struct ZTSStorySensor {
    bool mIsBack = false;
};
struct ZTSStoryNews {
    ZTNanoseconds mKnown = 0;  ///< when the sensor hears of it
    std::string mVerb;
    std::variant<ZTSRecord, ZTSChange, ZTSFpin, ZTSStall, ZTSLoss, ZTSStoryCount, ZTSIncidentAsk,
                 ZTSStorySensor, std::shared_ptr<const ZTSHostPorts>, std::shared_ptr<const ZTSHostStorage>>
        mWhat;
};

/// What the rows give, in the order in which it becomes known. Throws std::runtime_error with the line.
std::vector<ZTSStoryNews> listStoryNews(const ZTCStorySite& acrSite, const std::vector<ZTSStoryRow>& acrRows,
                                        ZTNanoseconds aEnd);
