// Finds incidents: which signs belong together, what state they are in, and when somebody is to be told.
#pragma once

#include <chrono>
#include <map>
#include <memory>

#include "Incident.h"
#include "Sign.h"
#include "Storage.h"
#include "Windows.h"

/// What somebody asks for, of one incident.
struct ZTSIncidentAsk {
    enum class What : unsigned char { Acknowledge, Keep, Accept };  ///< Accept: the paths that are left
    What mWhat = What::Acknowledge;
    std::uint64_t mId = 0;
    ZTNanoseconds mTime = 0;
    std::string mWho;
    std::string mNote;
};

/// Somebody is to be told of it.
struct ZTSIncidentTelling {
    enum class Why : unsigned char { Opened, Reopened, Worse, Closed };
    Why mWhy = Why::Opened;
    ZTSIncident mIncident;       ///< as it is now
    bool mIsForCommand = false;  ///< also --on-incident's: the first of a series, and whatever gets worse
};

/// A function of all that it takes: the same signs and rows give the same incidents, in whatever portions
/// they come, and in whatever order within ZTSIncidentTimes::mSettle. Its memory is bounded by what is open.
/// It reads no clock. One thread. Throws std::bad_alloc: what was taken last may be missing then.
class ZTCIncidentFinder {
  public:
    explicit ZTCIncidentFinder(ZTSIncidentRules aRules);
    ~ZTCIncidentFinder();
    ZTCIncidentFinder(const ZTCIncidentFinder&) = delete;
    ZTCIncidentFinder& operator=(const ZTCIncidentFinder&) = delete;

    // ---- What stands; before signs that need it ----

    /// What was known when the history was last written. Signs from mTo on are to be given again, and those
    /// of a time before it (getLookBack()): these are known, and only remind it of what may belong together.
    void setStart(const ZTSIncidentStart& acrStart);
    std::chrono::seconds getLookBack() const;
    void setRules(ZTSIncidentRules aRules);
    void takeLabels(const ZTPortLabels& acrLabels);
    void takeStorage(const ZTSHostStorage& acrStorage, ZTNanoseconds aTime);
    void takeWindows(std::vector<ZTSWindow> aWindows);
    void takeChange(const ZTSChange& acrChange);  ///< to be told beside incidents

    // ---- What happens ----

    void take(const ZTSSign& acrSign);
    /// False: there is no such incident, or it was closed too long ago to be known.
    bool ask(const ZTSIncidentAsk& acrAsk);

    /// All that happened up to a time, but the last seconds of it (ZTSIncidentTimes::mSettle).
    void advance(ZTNanoseconds aNow);
    /// The same without a rest: nothing more comes.
    void finish(ZTNanoseconds aNow);
    /// When advance() decides something next, unless something is taken before; in the far future: never.
    ZTNanoseconds getDue() const;

    // ---- What came of it, since the last call ----

    ZTSIncidentNews takeNews();
    std::vector<ZTSIncidentTelling> takeTellings();
    /// Those that are not closed, by class: how many.
    std::map<ZTEIncidentClass, std::size_t> countOpen() const;
    /// About.
    std::size_t getBytes() const;

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
