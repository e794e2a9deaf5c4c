// Other names in place of those of a site: the same for the same name, and none of them says anything.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Wwn.h"

/// What is named.
enum class ZTENamed : unsigned char {
    Host,
    Port,
    Array,
    Controller,
    Fabric,
    SwitchPort,
    Map,
    Volume,
    Mount,
    Lun,
    User,
    Text,  ///< whatever else somebody may have written
    Count
};

/// Of one file. One thread.
class ZTCPseudonyms {
  public:
    /// What is a world wide name gets one as of(). What says nothing is left alone: "", "/".
    std::string of(ZTENamed aWhat, const std::string& acrName);
    /// Zeros stay zeros.
    ZTSWwn of(const ZTSWwn& acrName);
    /// Gives a port's own name the number of its world wide name, and other names for the same the same.
    void learnPort(const ZTSWwn& acrPort, const std::string& acrName);
    void learnAlias(const std::string& acrAlias, const std::string& acrPseudonym);

    bool knows(const std::string& acrName) const { return mNames.contains(acrName); }
    /// In place of each name that is known, and of what looks like a world wide name or a longer number of
    /// hex digits.
    std::string inText(std::string_view aText);
    /// In place of the world wide names that are known, wherever they stand.
    void inBytes(std::vector<std::uint8_t>& arBytes) const;

  private:
    std::string makeName(ZTENamed aWhat);
    std::size_t findName(std::string_view aText, std::size_t aAt, std::string& arPseudonym) const;
    std::size_t findNumber(std::string_view aText, std::size_t aAt, std::string& arPseudonym);

    std::map<std::string, std::string, std::less<>> mNames;
    std::map<ZTSWwn, ZTSWwn> mPorts;
    std::map<ZTENamed, unsigned int> mMade;
};
