// The site that a story of incidents is about (SignStory.h): its ports and its storage, by names.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Ports.h"
#include "SensorTime.h"
#include "Storage.h"

/// The site of stories that have none of their own.
inline constexpr char ZTUsualSite[] = R"(fabric A
fabric B
host hba0 fabric=A
host hba1 fabric=B
host hba2 fabric=A
host hba3 fabric=B
target array1-A0 array=array1 controller=A fabric=A
target array1-A1 array=array1 controller=A fabric=B
target array1-B0 array=array1 controller=B fabric=A
target array1-B1 array=array1 controller=B fabric=B
target array2-A0 array=array2 controller=A fabric=A
target array2-A1 array=array2 controller=A fabric=B
target array2-B0 array=array2 controller=B fabric=A
target array2-B1 array=array2 controller=B fabric=B
map mpatha array=array1 volume=vg0-root mount=/
map mpathb array=array1 volume=vg1-data mount=/data
map mpathc array=array2 volume=vg2-home mount=/home
)";

/// A line of a story: words, and words with a value. Throws std::runtime_error without a line's number.
struct ZTSStoryLine {
    std::vector<std::string> mWords;
    std::map<std::string, std::string> mValues;  ///< "host" of host=hba1

    /// Blanks between words; what has blanks stands in double quotes; `#` begins a comment.
    explicit ZTSStoryLine(std::string_view aText);
    const std::string& at(std::size_t aWord) const;
    std::string get(const std::string& acrName, const std::string& acrElse = "") const;
    std::vector<std::string> list(const std::string& acrName) const;  ///< nothing: it is not there
    std::uint64_t getTimes() const;                                   ///< 12 of "x12"; 1 where there is none
    ZTNanoseconds getLength() const;                                  ///< of for=5s; 0 where there is none
};

class ZTCStorySite {
  public:
    /// "+1h30m", "250ms": nanoseconds.
    static ZTNanoseconds readLength(std::string_view aText);

    /// A line of a site. False: it is none.
    bool take(const ZTSStoryLine& acrLine);
    /// What stands without any.
    void end();

    struct Port {
        std::string mName;
        std::string mFabric;  ///< its name
        ZTSWwn mWwn;
        std::string mArray;
        std::string mController;
        std::string mZone;
        std::uint32_t mId = 0;

        bool sees(const Port& acrPort) const { return mFabric == acrPort.mFabric && mZone == acrPort.mZone; }
    };
    using Pair = std::pair<const Port*, const Port*>;  ///< of the host, beyond the fabric
    /// Ports of the host; all without names.
    std::vector<const Port*> findHosts(const std::vector<std::string>& acrNames) const;
    /// Each pair on one fabric.
    std::vector<Pair> findPairs(const std::vector<std::string>& acrHosts,
                                const std::vector<std::string>& acrTargets) const;
    /// The number of a port by name; else the text, read as one.
    ZTSWwn findWwn(const std::string& acrName) const;
    std::vector<const Port*> listHosts() const { return findHosts({}); }
    bool isNamed() const { return mIsNamed; }
    ZTPortLabels getLabels() const;
    std::string fabricOf(const Port& acrPort) const;  ///< as rows have it

    /// As all is well.
    ZTSHostPorts makePorts() const;
    ZTSHostStorage makeStorage() const;

  private:
    struct Map {
        std::string mName, mArray, mVolume, mMount;
    };
    void addPort(std::deque<Port>& arPorts, const ZTSStoryLine& acrLine, bool aIsHost);

    std::map<std::string, std::string> mFabrics;  // by name: the number that it is known by; empty: none
    std::deque<Port> mHosts;
    std::deque<Port> mTargets;
    std::vector<Map> mMaps;
    bool mIsNamed = true;
};
