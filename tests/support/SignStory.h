// Stories of incidents, written as rows that a person reads, played into the finder of incidents.
//
//     at 2026-11-17 10:02                                          # UTC; what follows counts from here
//     +0s    rscn            host=hba1,hba3 from=array1-B0
//     +1s    logo            host=hba1,hba3 from=array1/B  x3 for=2s
//     +2s    target-lost     host=hba1,hba3 from=array1/B
//     +30s   paths-lost      host=hba1,hba3 from=array1/B
//     at 2026-11-21 03:00
//     +0s    check_condition host=* from=array1/A sense=2/04/0a x12 for=4s
//     +73s   stall           vg1-data
//
// A line is a moment, a verb and words; `#` begins a comment, a word with blanks stands in double quotes.
// Moments and lengths: +250ms, +8s, +4m, +1h30m, +2d. Moments count from the last `at`.
//
// Whom it concerns: host=LIST are the host's ports, from=LIST those beyond the fabric; both are names of the
// site, with commas between. A member of from= may be an array ("array1") or a controller ("array1/B"), and
// `*` is all of them. Each pair of both that is on one fabric has a row of its own; without from= each port
// of the host. Without host= it is `*`.
//
// Records: the verb is the name of a kind (plogi, logo, rscn, check_condition, queue_full, link, ls_rjt, ...)
//     xN         so many events in one record; without: 1
//     for=T      that last so long
//     sense=     of a check condition: key/asc/ascq in hexadecimal digits
//     command=   of an ls_rjt: the number that was rejected; without: 3, PLOGI
//     every=T until=T   again and again: until a moment that counts as the row's does. Of any verb.
// What becomes of ports and paths; the rows are those that the sensor makes of it:
//     port-down, port-up        host=     [state=Linkdown]
//     port-gone, port-back      host=     there is no such port any more
//     target-lost, target-back  host= from=     [state=Blocked]; state=gone: there is no such port any more
//     paths-lost, paths-back    host= from=     [map=LIST]: of all maps; kernel's states, not ports'
//     paths-removed             host= from=     [map=LIST]: the maps have them no more; paths-back brings
//     them luns                      host= from=     [map=LIST] state=blocked or access=standby accept
//     [map=LIST]: totals are what is usable, as vrx-sn has them behind `accept`
// Other rows:
//     fpin DESCRIPTOR EVENT     host= [attached=PORT] [xN] [for=T]      "fpin link_integrity loss_of_signal"
//     count COUNTER VALUE       host= [from=]     in the minute of the moment; it comes at its end
//     stall NAME                of a volume or map; it is told behind ten seconds, and each minute
//     stall-over NAME
//     loss SOURCE/REASON        [xN] [for=T]
//     agent-gone [HOW]          killed, ended, unknown; agent-back
//     sensor-gone [HOW]         the same of vrx-sn: nothing is given to the finder while it is gone, and that
//     sensor-back               is behind it a new one; HOW unknown: it is told when it is back
//     change WHAT NAME ATTRIBUTE BEFORE AFTER     any other, or with event= of another event; NAME may be a
//     port's ask acknowledge|keep|accept ID [who=] [note=] noise RATE                of harmless events a
//     second, over 64 ports: for=T [ports=N] [seed=N] end                       the story ends; without: ten
//     seconds behind its last row
// Before the first `at`:
//     fabric NAME [wwn=]                      more fabrics; one that has a wwn= is known by that alone
//     host NAME fabric=F [wwpn=] [zone=Z]      it sees the targets of its fabric that have the same zone, or
//     none target NAME fabric=F [array=A] [controller=C] [wwpn=] [id=0x010a00] [zone=Z] map NAME array=A
//     [volume=V] [mount=/POINT]      on each path to the array unnamed                                 no
//     names file: labels are not given rule LINE                               as --incident takes it window
//     WHAT FROM UNTIL TEXT
// Without any fabric, host, target and map of its own a story has this site:
//     fabrics A and B with the same addresses; hba0 and hba2 on A, hba1 and hba3 on B;
//     array1 and array2 with the controllers A and B; array1-A0 is its port on fabric A, array1-A1 on B;
//     map mpatha of array1 with vg0-root, mount /; mpathb of array1 with vg1-data, mount /data;
//     mpathc of array2 with vg2-home, mount /home: 8 paths each.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "IncidentFinder.h"
#include "StoryRows.h"

/// How a story is played.
struct ZTSStoryPlay {
    /// What becomes known within so long comes at once, and time passes for the finder at the end of each. 0:
    /// all of it in one go.
    ZTNanoseconds mFetch = ZTSecond;
    unsigned int mShuffle = 0;                    ///< 0: in order; else a seed: shuffled within each fetch
    std::map<std::string, ZTNanoseconds> mShift;  ///< by verb: the clock of such rows is off by that
    ZTNanoseconds mLate = 0;  ///< records become known so much later than what the host tells
    /// Moments at which a new finder goes on from what the history has.
    std::vector<ZTNanoseconds> mColdStarts{};
    /// More lines of a site's configuration.
    std::vector<std::string> mRules{};
};

/// What came of it.
struct ZTSStoryEnd {
    std::vector<ZTSIncident> mIncidents;  ///< all that there ever were, as they were last, by id
    struct Telling {
        ZTNanoseconds mTime = 0;  ///< of the fetch behind which it was told
        ZTSIncidentTelling mTelling;
    };
    std::vector<Telling> mTellings;
    ZTPortLabels mNames;  ///< of the site, whether or not the finder had them
};

/// A story is one text, or several that are played at once on one site.
class ZTCSignStory {
  public:
    /// Throws std::runtime_error: "line 12: there is no port hba9".
    explicit ZTCSignStory(std::string_view aText);

    /// Plays another text at once: its site is left out, and names in it stand for others ("array1" for
    /// "array2", "array1-A0" for "array2-A0", as words of their own or before `-` and `/`). aAt: its first
    /// `at`, by which all others move; 0: as it says.
    void add(std::string_view aText, const std::map<std::string, std::string>& acrInstead = {},
             ZTNanoseconds aAt = 0);

    ZTSStoryEnd play(const ZTSStoryPlay& acrPlay = {}) const;
    /// What its rows give, in the order in which it becomes known.
    std::vector<ZTSStoryNews> listNews() const { return listStoryNews(mSite, mRows, getEnd()); }
    /// Its signs alone, in order.
    std::vector<ZTSSign> listSigns() const;
    const ZTCStorySite& getSite() const { return mSite; }
    ZTNanoseconds getBegin() const;  ///< its first row
    ZTNanoseconds getEnd() const;
    std::size_t countRows() const;

  private:
    ZTCStorySite mSite;
    std::vector<std::string> mRules;
    std::vector<ZTSWindow> mWindows;
    std::vector<ZTSStoryRow> mRows;
    ZTNanoseconds mEnd = 0;
};
