// vrx-scope: drives the agent from a command line, and shows what it has collected.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <ctime>

#include "Commands.h"
#include "Failure.h"

namespace {

constexpr double sLongest = 86400;  // seconds

// With commands of commands, which --help-all leaves out by itself.
class WholeHelp : public CLI::Formatter {
    std::string make_expanded(const CLI::App* apCommand) const override {
        std::string lText = CLI::Formatter::make_expanded(apCommand);
        for (const CLI::App* const lpOwn : apCommand->get_subcommands([](const CLI::App*) { return true; })) {
            lText += make_expanded(lpOwn);
        }
        return lText;
    }
};

// A command: what it is called and does, which function does it, and what it takes.
using Run = int (*)(const ZTSScopeOptions&);
CLI::App* sAddCommand(CLI::App& arParent, const char* apName, const char* apText, Run aRun, Run& arChosen) {
    CLI::App* const lpCommand = arParent.add_subcommand(apName, apText);
    lpCommand->callback([&arChosen, aRun] { arChosen = aRun; });
    return lpCommand;
}

void sAddCeiling(CLI::App& arCommand, ZTSScopeOptions& arOptions) {
    arCommand.add_option("--ceiling", arOptions.mCeiling, "up to so many bytes a record's data grows (4096)")
        ->type_name("BYTES");
}

void sAddEvery(CLI::App& arCommand, ZTSScopeOptions& arOptions, const char* apText) {
    arCommand.add_option("--every", arOptions.mEvery, apText)
        ->type_name("SECONDS")
        ->check(CLI::Range(0.05, sLongest));
}

void sAddFor(CLI::App& arCommand, ZTSScopeOptions& arOptions) {
    arCommand.add_option("--for", arOptions.mFor, "ends by itself after that time")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.05, sLongest * 366));
}

void sAddStore(CLI::App& arCommand, ZTSHistoryOptions& arOptions) {
    arCommand.add_option("--store", arOptions.mStore, "the history's file (/var/lib/vrx-sn/history.db)")
        ->type_name("FILE");
}

void sAddTimes(CLI::App& arCommand, ZTSHistoryOptions& arOptions) {
    arCommand
        .add_option("--since", arOptions.mSince,
                    "what ended then or later: today, '2 hours ago', '2026-11-21 08:00'")
        ->type_name("TIME");
    arCommand.add_option("--until", arOptions.mUntil, "what began then or earlier")->type_name("TIME");
}

void sAddLimit(CLI::App& arCommand, ZTSHistoryOptions& arOptions, const char* apText) {
    arCommand.add_option("--limit", arOptions.mLimit, apText)
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000'000));
}

// An option that may be there again.
void sAddList(CLI::App& arCommand, const char* apName, std::vector<std::string>& arValues, const char* apText,
              const char* apType) {
    arCommand.add_option(apName, arValues, apText)->type_name(apType)->allow_extra_args(false);
}

// What is asked for by ports.
void sAddPorts(CLI::App& arCommand, ZTSHistoryOptions& arOptions, const char* apInitiator,
               const char* apTarget) {
    sAddList(arCommand, "--initiator", arOptions.mInitiators, apInitiator, "PORT");
    sAddList(arCommand, "--target", arOptions.mTargets, apTarget, "PORT");
}

void sAddFabric(CLI::App& arCommand, ZTSHistoryOptions& arOptions, const char* apText) {
    arCommand.add_option("--fabric", arOptions.mFabric, apText)->type_name("FABRIC");
}

void sDescribeHistory(CLI::App& arCommand, ZTSHistoryOptions& arOptions) {
    sAddStore(arCommand, arOptions);
    sAddTimes(arCommand, arOptions);
    sAddList(arCommand, "--kind", arOptions.mKinds,
             "events of this kind, or fpin, or stall; may be there again", "KIND");
    sAddPorts(arCommand, arOptions, "what this port of the host saw",
              "what concerns this port beyond the fabric");
    sAddFabric(arCommand, arOptions, "what happened on this fabric");
    arCommand.add_option("--host", arOptions.mHost, "of this host, which must be the store's")
        ->type_name("HOST");
    arCommand.add_option("--incident", arOptions.mIncident, "the records of this incident")->type_name("ID");
    sAddLimit(arCommand, arOptions, "the newest N records");
    arCommand.add_flag("--follow", arOptions.mFollows, "goes on with what comes, until interrupted");
    arCommand.add_flag("--summary", arOptions.mIsSummary, "sums by kind and port in place of records");
}

void sDescribePaths(CLI::App& arCommand, ZTSHistoryOptions& arOptions) {
    sAddStore(arCommand, arOptions);
    sAddList(arCommand, "--map", arOptions.mMaps,
             "the LUN of this map, mount point, volume, disk, WWID or serial", "NAME");
    sAddPorts(arCommand, arOptions, "LUNs with a path through this port of the host",
              "LUNs with a path to this port, array or controller");
    sAddFabric(arCommand, arOptions, "LUNs with a path on this fabric");
    arCommand.add_flag("--full", arOptions.mIsFull, "each path of each LUN");
}

void sDescribeChanges(CLI::App& arCommand, ZTSHistoryOptions& arOptions) {
    sAddStore(arCommand, arOptions);
    sAddTimes(arCommand, arOptions);
    sAddList(arCommand, "--what", arOptions.mWhats,
             "changes of such a thing: port, lun, note; may be there again", "WHAT");
    sAddPorts(arCommand, arOptions, "changes of this port of the host, and of what it sees",
              "changes of this port beyond the fabric, and of what it shows");
    sAddLimit(arCommand, arOptions, "the newest N changes");
}

void sDescribeNote(CLI::App& arCommand, ZTSHistoryOptions& arOptions) {
    sAddStore(arCommand, arOptions);
    arCommand.add_option("text", arOptions.mNote, "what somebody did, 1000 bytes at most")
        ->type_name("TEXT")
        ->required();
    arCommand.add_option("--about", arOptions.mAbout, "what it is about: a port, a map, an array")
        ->type_name("SUBJECT");
}

// What is asked of one incident.
CLI::App* sAddIncidentCommand(CLI::App& arParent, const char* apName, const char* apText, Run aRun,
                              ZTSIncidentOptions& arOptions, Run& arChosen) {
    CLI::App* const lpCommand = sAddCommand(arParent, apName, apText, aRun, arChosen);
    lpCommand->add_option("id", arOptions.mId, "its id")->type_name("ID")->required();
    return lpCommand;
}

void sDescribeIncidents(CLI::App& arCommand, ZTSScopeOptions& arOptions, Run& arChosen) {
    ZTSIncidentOptions& lrIncident = arOptions.mIncident;
    arCommand.fallthrough();
    // It runs behind what its own commands have chosen.
    arCommand.callback([&arCommand, &arChosen] {
        arChosen = arCommand.get_subcommands().empty() ? runIncidents : arChosen;
    });
    sAddStore(arCommand, arOptions.mHistory);
    sAddTimes(arCommand, arOptions.mHistory);
    sAddLimit(arCommand, arOptions.mHistory, "the first N of them");
    arCommand.add_option("id", lrIncident.mShown, "the one of this id, in full")->type_name("ID");
    sAddList(arCommand, "--state", lrIncident.mStates, "open, quiet or closed; may be there again", "STATE");
    sAddList(arCommand, "--class", lrIncident.mClasses, "of this class; may be there again", "CLASS");
    arCommand.add_flag("--all", lrIncident.mIsAll, "also what was closed more than seven days ago");
    sAddIncidentCommand(arCommand, "acknowledge", "says that somebody looks after it, as root",
                        runAcknowledge, lrIncident, arChosen)
        ->add_option("--note", lrIncident.mNote, "what there is to say of it, 1000 bytes at most")
        ->type_name("TEXT");
    sAddIncidentCommand(arCommand, "keep", "keeps it and its records for good, as root", runKeep, lrIncident,
                        arChosen);
    sAddIncidentCommand(arCommand, "accept", "has the paths that are left be all that there are, as root",
                        runAccept, lrIncident, arChosen);
    CLI::App* const lpExport =
        sAddIncidentCommand(arCommand, "export", "all that there is of it in one file, for a ticket",
                            runExport, lrIncident, arChosen);
    lpExport->add_flag("--pseudonyms", lrIncident.mHasPseudonyms,
                       "other names in place of hosts, ports, arrays, volumes and people");
    lpExport->add_option("--out", lrIncident.mOut, "the file, which must not be there yet")
        ->type_name("FILE");
}

// The commands that read the history, or write into it.
void sDescribeStore(CLI::App& arProgram, ZTSScopeOptions& arOptions, Run& arChosen) {
    ZTSHistoryOptions& lrOptions = arOptions.mHistory;
    sDescribeHistory(*sAddCommand(arProgram, "history", "shows what vrx-sn has stored", runHistory, arChosen),
                     lrOptions);
    sAddStore(*sAddCommand(arProgram, "ports",
                           "shows the host's ports, those that they see, and what the host cannot see",
                           runPorts, arChosen),
              lrOptions);
    sDescribePaths(
        *sAddCommand(arProgram, "paths",
                     "shows the host's LUNs, what stands on them, and which of their paths are left",
                     runPaths, arChosen),
        lrOptions);
    sDescribeChanges(*sAddCommand(arProgram, "changes", "shows what came, went and changed, and notes",
                                  runChanges, arChosen),
                     lrOptions);
    sDescribeNote(
        *sAddCommand(arProgram, "note", "writes down what somebody did, as root", runNote, arChosen),
        lrOptions);
    sDescribeIncidents(
        *sAddCommand(arProgram, "incidents", "shows what vrx-sn takes for one problem each, or one of them",
                     runIncidents, arChosen),
        arOptions, arChosen);
}

void sDescribe(CLI::App& arProgram, ZTSScopeOptions& arOptions, Run& arChosen) {
    arProgram.require_subcommand(1)->fallthrough();
    arProgram.formatter(std::make_shared<WholeHelp>());
    arProgram.set_help_all_flag("--help-all", "the help of every command");
    arProgram.set_version_flag("--version", "vrx-scope v" ZT_SCOPE_VERSION, "the version");
    arProgram.add_option("--dir", arOptions.mDirectory, "the agent's runtime directory")
        ->type_name("DIR")
        ->envname("ZT_VRX_SENSOR_DIR");
    arProgram.add_option("--timeout", arOptions.mTimeout, "how long an answer may take (10)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, sLongest));
    arProgram
        .add_option("--wait", arOptions.mWait, "how long to wait while another client has the pipes (0)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, sLongest));
    CLI::Option* const lpJson = arProgram.add_flag("--json", arOptions.mAsJson, "one JSON document");
    arProgram.add_flag("--ndjson", arOptions.mAsJsonLines, "a line of JSON a record")->excludes(lpJson);
    arProgram.add_flag("--utc", arOptions.mInUtc, "times in UTC, not in the local zone");

    CLI::App* const lpStart = sAddCommand(
        arProgram, "start", "starts the collection, anew if one is under way", runStart, arChosen);
    sAddCeiling(*lpStart, arOptions);
    sAddCommand(arProgram, "stop", "ends the collection", runStop, arChosen);
    CLI::App* const lpTargets =
        arProgram.add_subcommand("targets", "registers ports that records are to name");
    lpTargets->require_subcommand(1)->fallthrough();
    sAddCommand(*lpTargets, "add", "those that are named", runAddTargets, arChosen)
        ->add_option("target", arOptions.mTargets, "node name, port name and address of each")
        ->type_name("NODE PORT ADDRESS")
        ->required();
    sAddCommand(*lpTargets, "load", "those of a file: NODE PORT ADDRESS a line, # begins a comment",
                runAddLoadedTargets, arChosen)
        ->add_option("file", arOptions.mFile, "- for standard input")
        ->type_name("FILE")
        ->required();
    sAddCommand(arProgram, "period", "tells the agent how often it is fetched from", runSetPeriod, arChosen)
        ->add_option("seconds", arOptions.mPeriod, "not 0")
        ->type_name("SECONDS")
        ->required();
    sAddCommand(arProgram, "fetch", "takes what has been collected, and shows it", runFetch, arChosen);
    CLI::App* const lpWatch =
        sAddCommand(arProgram, "watch", "fetches again and again, as the agent's sensor", runWatch, arChosen);
    sAddEvery(*lpWatch, arOptions, "from fetch to fetch (5)");
    sAddFor(*lpWatch, arOptions);
    lpWatch->add_option("--save", arOptions.mFile, "adds the raw answers to a file")->type_name("FILE");
    lpWatch->add_flag("--start", arOptions.mStarts, "starts the collection of each agent that comes");
    sAddCeiling(*lpWatch, arOptions);
    sAddCommand(arProgram, "shutdown", "ends the agent", runShutDown, arChosen);
    sAddStore(*sAddCommand(arProgram, "status", "whether an agent runs; status 1 if none does", runShowStatus,
                           arChosen),
              arOptions.mHistory);
    CLI::App* const lpStatistics =
        sAddCommand(arProgram, "stats", "what the agent counts about itself", runShowStatistics, arChosen);
    sAddEvery(*lpStatistics, arOptions, "again and again, with what has grown a second");
    sAddFor(*lpStatistics, arOptions);
    sAddCommand(arProgram, "decode", "shows a file of raw answers", runDecode, arChosen)
        ->add_option("file", arOptions.mFile, "- for standard input")
        ->type_name("FILE")
        ->required();
    CLI::App* const lpRecord =
        sAddCommand(arProgram, "record", "adds raw answers to a file: one, or with --every or --for many",
                    runRecord, arChosen);
    lpRecord->add_option("file", arOptions.mFile, "what it is added to")->type_name("FILE")->required();
    sAddEvery(*lpRecord, arOptions, "from fetch to fetch (5)");
    sAddFor(*lpRecord, arOptions);
    CLI::App* const lpReplay = sAddCommand(
        arProgram, "replay", "shows a file of raw answers as watch would have", runReplay, arChosen);
    lpReplay->add_option("file", arOptions.mFile, "- for standard input")->type_name("FILE")->required();
    sAddEvery(*lpReplay, arOptions, "from answer to answer (0)");
    sDescribeStore(arProgram, arOptions, arChosen);
}

int sRun(int argc, char** argv) {
    tzset();
    ZTSScopeOptions lOptions;
    Run lRun = nullptr;
    CLI::App lProgram("Drives vrx-sca and shows the events that it has collected.", "vrx-scope");
    sDescribe(lProgram, lOptions, lRun);
    try {
        lProgram.parse(argc, argv);
        return lRun(lOptions);
    } catch (const CLI::Success& lrHelp) {
        return lProgram.exit(lrHelp);
    } catch (const CLI::RequiredError& lrError) {
        const auto lRest = lProgram.remaining(true);
        return refuse(lRest.empty() ? lrError.what() : "there is no command '" + lRest.front() + "'",
                      ZTScopeWrongUsage);
    } catch (const CLI::ParseError& lrError) {
        return refuse(lrError.what(), ZTScopeWrongUsage);
    } catch (const ZTCScopeUsage& lrError) {
        return refuse(lrError.what(), ZTScopeWrongUsage);
    } catch (const ZTCViewUsage& lrError) {
        return refuse(lrError.what(), ZTScopeWrongUsage);
    } catch (const ZTCUnsavedAnswer& lrError) {
        return rescue(lrError, lOptions);
    } catch (const std::exception& lrError) {
        return refuse(lrError.what(), ZTScopeFailed);
    }
}

}  // namespace

int main(int argc, char** argv) {
    // What is opened must not get the number of a standard stream that somebody has closed.
    for (const int lStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(lStream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {
            return ZTScopeFailed;
        }
    }
    // Output that nobody reads, or that a limit forbids, is an error like others.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    try {
        return sRun(argc, argv);
    } catch (...) {
        return ZTScopeFailed;  // there is not even memory, or a stream, to say so
    }
}
