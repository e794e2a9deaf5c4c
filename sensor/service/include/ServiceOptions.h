// The options of a program that runs for long: on its command line, and as lines of its configuration.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

struct ZTSServiceConfig {
    const char* mpDefault;           ///< where the configuration lies if nothing is said, and it is there
    std::vector<std::string> mMany;  ///< the options of which there may be several lines
};

/// Has the program take what stands on the command line, else in the environment, else in the configuration.
/// acrWords: behind the program's name. acrGiven: what --config sets. apText: the text of the configuration;
/// null: of the file. Returns where the configuration lies; empty: there is none. Throws ZTCServiceUsage,
/// ZTCServiceShown.
std::string parseServiceOptions(CLI::App& arProgram, const ZTSServiceConfig& acrConfig,
                                const std::vector<std::string>& acrWords, const std::string& acrGiven,
                                const std::string* apText);

/// For CLI::Option::check().
std::string checkNotEmpty(const std::string& acrText);
