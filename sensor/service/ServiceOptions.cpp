#include "ServiceOptions.h"

#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "ConfigFile.h"
#include "ServiceUsage.h"

namespace {

std::string_view sTrimmed(std::string_view aText) {
    constexpr std::string_view lBlanks = " \t\r";
    aText.remove_prefix(std::min(aText.find_first_not_of(lBlanks), aText.size()));
    return aText.substr(0, aText.find_last_not_of(lBlanks) + 1);
}

// What a line of the configuration says of an option. Nothing: it says something of another.
std::optional<std::string> sValueOf(std::string_view aLine, std::string_view aOption) {
    const std::size_t lEquals = std::min(aLine.find('='), aLine.size());
    if (lEquals == aLine.size() || sTrimmed(aLine.substr(0, lEquals)) != aOption) {
        return std::nullopt;
    }
    std::string_view lValue = sTrimmed(aLine.substr(lEquals + 1));
    if (lValue.size() > 1 && lValue.front() == lValue.back() && (lValue[0] == '"' || lValue[0] == '\'')) {
        lValue = lValue.substr(1, lValue.size() - 2);
    }
    return std::string(lValue);
}

// CLI11 takes the first of several lines for one option, and says nothing. What there may be several of is
// read here: it would take off the quotes within one too.
class OnceEach : public CLI::ConfigINI {
  public:
    explicit OnceEach(const std::vector<std::string>& acrMany) : mMany(acrMany) {}

    std::vector<CLI::ConfigItem> from_config(std::istream& arInput) const override {
        std::map<std::string, std::vector<std::string>> lMany;
        std::stringstream lRest;
        for (std::string lLine; std::getline(arInput, lLine); lRest << '\n') {
            takeMany(lLine, lMany) ? void() : void(lRest << lLine);
        }
        std::vector<CLI::ConfigItem> lItems = CLI::ConfigINI::from_config(lRest);
        checkOnce(lItems);
        for (auto& [lrName, lrValues] : lMany) {
            lItems.push_back({{}, lrName, std::move(lrValues)});
        }
        return lItems;
    }

  private:
    bool takeMany(const std::string& acrLine, std::map<std::string, std::vector<std::string>>& arMany) const {
        for (const std::string& lrName : mMany) {
            if (auto lValue = sValueOf(acrLine, lrName)) {
                arMany[lrName].push_back(std::move(*lValue));
                return true;
            }
        }
        return false;
    }
    static void checkOnce(const std::vector<CLI::ConfigItem>& acrItems) {
        std::set<std::string> lNames;
        for (const CLI::ConfigItem& lrItem : acrItems) {
            if (lrItem.inputs.size() > 1 || !lNames.insert(lrItem.fullname()).second) {
                throw CLI::ConfigError(lrItem.fullname() + " has more than one value",
                                       CLI::ExitCodes::ConfigError);
            }
            if (!lrItem.parents.empty()) {
                throw CLI::ConfigError("there is no section " + lrItem.parents.front(),
                                       CLI::ExitCodes::ConfigError);
            }
        }
    }

    const std::vector<std::string> mMany;
};

}  // namespace

std::string parseServiceOptions(CLI::App& arProgram, const ZTSServiceConfig& acrConfig,
                                const std::vector<std::string>& acrWords, const std::string& acrGiven,
                                const std::string* apText) {
    arProgram.config_formatter(std::make_shared<OnceEach>(acrConfig.mMany));
    arProgram.allow_config_extras(false);
    std::string lWhere;
    try {
        arProgram.parse(std::vector<std::string>(acrWords.rbegin(), acrWords.rend()));
        const bool lIsDefault = access(acrConfig.mpDefault, F_OK) == 0;
        lWhere = !acrGiven.empty() ? acrGiven : lIsDefault ? acrConfig.mpDefault : "";
        if (apText != nullptr || !lWhere.empty()) {
            const std::string lConfig = apText != nullptr ? *apText : readConfigFile(lWhere);
            if (lConfig.find('\0') != std::string::npos) {  // would end what is told of it
                throw CLI::ConfigError("it is no text: a byte of it is zero", CLI::ExitCodes::ConfigError);
            }
            std::istringstream lText(lConfig);
            arProgram.parse_from_stream(lText);
        }
    } catch (const CLI::CallForVersion& lrVersion) {
        throw ZTCServiceShown(std::string(lrVersion.what()) + "\n");
    } catch (const CLI::Success&) {
        throw ZTCServiceShown(arProgram.help());
    } catch (const CLI::ParseError& lrError) {
        throw ZTCServiceUsage((lWhere.empty() ? "" : lWhere + ": ") + lrError.what());
    }
    return lWhere;
}

std::string checkNotEmpty(const std::string& acrText) {
    return acrText.empty() ? "it is empty" : "";
}
