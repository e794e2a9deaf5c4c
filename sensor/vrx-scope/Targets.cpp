#include "Targets.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>

#include "Failure.h"

namespace {

constexpr std::size_t sWords = 3;
constexpr std::size_t sAddressDigits = 6;

ZTSWwn sReadName(const std::string& acrWord) {
    if (const auto lName = ZTSWwn::fromText(acrWord)) {
        return *lName;
    }
    throw ZTCScopeUsage(fmt::format(
        "'{}' is not a world wide name: 8 hex pairs with colons, or 16 hex digits (20:00:00:25:b5:01:00:0a)",
        acrWord));
}

std::uint32_t sReadAddress(const std::string& acrWord) {
    const std::string lDigits = acrWord.starts_with("0x") ? acrWord.substr(2) : acrWord;
    std::uint32_t lAddress = 0;
    const char* const lpEnd = lDigits.data() + lDigits.size();
    const auto lParsed = std::from_chars(lDigits.data(), lpEnd, lAddress, 16);
    if (lDigits.size() != sAddressDigits || lParsed.ec != std::errc() || lParsed.ptr != lpEnd) {
        throw ZTCScopeUsage(
            fmt::format("'{}' is not a Fibre Channel address: six hex digits (0x010203)", acrWord));
    }
    return lAddress;
}

ZTSSensorTarget sReadTarget(const std::string* apWords) {
    return {{sReadName(apWords[0]), sReadName(apWords[1])}, sReadAddress(apWords[2])};
}

// "1", "1 and 2", "1, 2 and 3".
template <class Values, class ToText>
std::string sJoined(const Values& acrValues, const ToText& acrToText) {
    std::string lText;
    for (std::size_t lAt = 0; lAt < acrValues.size(); ++lAt) {
        lText += lAt == 0 ? "" : lAt + 1 < acrValues.size() ? ", " : " and ";
        lText += acrToText(acrValues[lAt]);
    }
    return lText;
}

}  // namespace

std::vector<ZTSSensorTarget> readTargets(const std::vector<std::string>& acrWords) {
    if (acrWords.empty() || acrWords.size() % sWords != 0) {
        throw ZTCScopeUsage("targets come as NODE PORT ADDRESS");
    }
    std::vector<ZTSSensorTarget> lTargets;
    for (std::size_t lAt = 0; lAt < acrWords.size(); lAt += sWords) {
        lTargets.push_back(sReadTarget(&acrWords[lAt]));
    }
    return lTargets;
}

std::vector<ZTSSensorTarget> loadTargets(const std::string& acrFile) {
    std::ifstream lFile;
    if (acrFile != "-") {
        lFile.open(acrFile);
        if (!lFile) {
            throw ZTCScopeFailure(fmt::format("cannot read {}: {}", acrFile, strerror(errno)));
        }
    }
    std::istream& lrInput = acrFile == "-" ? std::cin : lFile;
    std::vector<ZTSSensorTarget> lTargets;
    std::size_t lNumber = 0;
    for (std::string lLine; std::getline(lrInput, lLine);) {
        ++lNumber;
        std::istringstream lText(lLine.substr(0, lLine.find('#')));
        const std::vector<std::string> lWords(std::istream_iterator<std::string>(lText), {});
        if (lWords.empty()) {
            continue;
        }
        try {
            if (lWords.size() != sWords) {
                throw ZTCScopeUsage("a target is NODE PORT ADDRESS");
            }
            lTargets.push_back(sReadTarget(lWords.data()));
        } catch (const ZTCScopeUsage& lrError) {
            throw ZTCScopeFailure(fmt::format("{}:{}: {}", acrFile, lNumber, lrError.what()));
        }
    }
    if (lrInput.bad()) {
        throw ZTCScopeFailure(fmt::format("cannot read {}", acrFile));
    }
    if (lTargets.empty()) {
        throw ZTCScopeFailure(fmt::format("{} holds no targets", acrFile));
    }
    return lTargets;
}

std::string addressText(std::uint32_t aAddress) {
    return fmt::format("{:06x}", aAddress);
}

ZTSHiddenTargets findHiddenTargets(const std::vector<ZTSSensorTarget>& acrTargets) {
    std::map<std::uint32_t, std::vector<ZTSWwn>> lPorts;
    std::map<ZTSWwn, std::vector<std::uint32_t>> lAddresses;
    for (const ZTSSensorTarget& lrTarget : acrTargets) {
        std::vector<std::uint32_t>& lrOfPort = lAddresses[lrTarget.mNames.mPort];
        if (std::find(lrOfPort.begin(), lrOfPort.end(), lrTarget.mAddress) == lrOfPort.end()) {
            lPorts[lrTarget.mAddress].push_back(lrTarget.mNames.mPort);
        }
        lrOfPort.push_back(lrTarget.mAddress);
    }
    ZTSHiddenTargets lHidden;
    for (auto& [lrAddress, lrPorts] : lPorts) {
        if (lrPorts.size() > 1) {
            lHidden.mByAddress.push_back({lrAddress, std::move(lrPorts)});
        }
    }
    for (auto& [lrPort, lrAddresses] : lAddresses) {
        if (lrAddresses.size() > 1) {
            lHidden.mByPort.push_back({lrPort, std::move(lrAddresses)});
        }
    }
    return lHidden;
}

std::vector<std::string> hiddenTargetsText(const ZTSHiddenTargets& acrHidden) {
    std::vector<std::string> lLines;
    for (const ZTSSameAddress& lrSame : acrHidden.mByAddress) {
        lLines.push_back(fmt::format(
            "{} is the address of {}: in each fabric it is another port, and an RSCN of it will name the first",
            addressText(lrSame.mAddress),
            sJoined(lrSame.mPorts, [](const ZTSWwn& acrPort) { return acrPort.toText(); })));
    }
    for (const ZTSSamePort& lrSame : acrHidden.mByPort) {
        lLines.push_back(fmt::format("{} is there {} times, at {}: its events will name the first",
                                     lrSame.mPort.toText(), lrSame.mAddresses.size(),
                                     sJoined(lrSame.mAddresses, addressText)));
    }
    return lLines;
}
