// vrx-hostsim: a host that is made up below a folder, for vrx-sn to look at.
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "HostLoop.h"

namespace {

constexpr int sFailed = 1;
constexpr int sWrongUsage = 2;

struct Options {
    std::string mRoot;
    std::string mSite;
    std::string mSocket;
    std::vector<std::string> mLines;
};

ZTSSite sReadSite(const std::string& acrFile) {
    if (acrFile.empty()) {
        return readHostSite(getDefaultHostSite(), "site");
    }
    std::ifstream lFile(acrFile, std::ios::binary);
    std::ostringstream lText;
    lText << lFile.rdbuf();
    if (!lFile) {
        throw ZTCHostSimError(acrFile + ": cannot be read, expected a site");
    }
    return readHostSite(lText.str(), acrFile);
}

int sRun(const Options& acrOptions) {
    if (acrOptions.mRoot.empty()) {
        fputs("vrx-hostsim: no folder, expected --root DIR (vrx-hostsim --help shows the usage)\n", stderr);
        return sWrongUsage;
    }
    sigset_t lSignals;
    sigemptyset(&lSignals);
    sigaddset(&lSignals, SIGTERM);
    sigaddset(&lSignals, SIGINT);
    sigprocmask(SIG_BLOCK, &lSignals, nullptr);
    const int lEnd = signalfd(-1, &lSignals, SFD_CLOEXEC);
    ZTCHostLoop lLoop(acrOptions.mRoot, sReadSite(acrOptions.mSite), STDIN_FILENO);
    lLoop.run(lEnd);
    close(lEnd);
    return 0;
}

int sSend(const Options& acrOptions) {
    int lStatus = 0;
    for (const std::string& lrLine : acrOptions.mLines) {
        const std::string lAnswer = askHost(acrOptions.mSocket, lrLine);
        const bool lIsError = lAnswer.starts_with("error: ");
        fputs(lAnswer.c_str(), lIsError ? stderr : stdout);
        lStatus = lIsError ? sFailed : lStatus;
    }
    return lStatus;
}

int sShowLanguage() {
    puts("A line is a verb and its words; what has blanks stands in double quotes; # begins a comment.\n");
    for (const ZTSHostVerb& lrVerb : getHostVerbs()) {
        printf("  %s %s\n      %s\n      example: %s\n", lrVerb.mpName, lrVerb.mpForm, lrVerb.mpHelp,
               lrVerb.mpExample);
    }
    return 0;
}

int sPlay(int argc, char** argv) {
    Options lOptions;
    CLI::App lProgram(
        "a host that is made up: its folders below DIR, its kernel's messages, and its multipathd");
    lProgram.set_help_all_flag("--help-all", "the help of every command");
    lProgram.set_version_flag("--version", "vrx-hostsim v" ZT_SENSOR_VERSION, "the version");
    lProgram.add_option("--root", lOptions.mRoot, "where it is made")->type_name("DIR");
    lProgram.add_option("--site", lOptions.mSite, "what it consists of, in place of its own")
        ->type_name("FILE");
    CLI::App* const lpSend = lProgram.add_subcommand("send", "has a host play lines, and prints its answers");
    lpSend->add_option("-s", lOptions.mSocket, "its socket, DIR/run/hostsim.socket")
        ->type_name("SOCKET")
        ->envname("ZT_VRX_HOSTSIM")
        ->required();
    lpSend->add_option("line", lOptions.mLines, "each is played on its own")->type_name("LINE")->required();
    CLI::App* const lpLanguage = lProgram.add_subcommand("language", "lists what a line may be");
    CLI::App* const lpSite = lProgram.add_subcommand("site", "prints its own site");
    lProgram.require_subcommand(0, 1);
    try {
        lProgram.parse(argc, argv);
    } catch (const CLI::Success& lrHelp) {
        return lProgram.exit(lrHelp);
    } catch (const CLI::Error& lrError) {
        fprintf(stderr, "vrx-hostsim: %s (vrx-hostsim --help shows the usage)\n", lrError.what());
        return sWrongUsage;
    }
    if (lpSend->parsed()) {
        return sSend(lOptions);
    }
    if (lpLanguage->parsed()) {
        return sShowLanguage();
    }
    return lpSite->parsed() ? (fputs(getDefaultHostSite(), stdout), 0) : sRun(lOptions);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return sPlay(argc, argv);
    } catch (const std::exception& lrException) {
        fprintf(stderr, "vrx-hostsim: %s\n", lrException.what());
        return sFailed;
    }
}
