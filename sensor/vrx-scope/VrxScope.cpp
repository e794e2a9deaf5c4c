// vrx-scope: drives the agent from a command line, and shows what it has collected.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <iostream>

#include "AgentStatus.h"
#include "Collector.h"
#include "Failure.h"
#include "Json.h"
#include "Lines.h"
#include "ProcessTable.h"
#include "RecordText.h"
#include "Targets.h"
#include "Terminal.h"
#include "TimeText.h"
#include "WatchView.h"

namespace {

constexpr int sFailed = 1;
constexpr int sWrongUsage = 2;
constexpr double sLongest = 86400;  // seconds
constexpr std::uint32_t sCeiling = 4096;

// What the command line says.
struct Options {
    std::string mDirectory;
    double mTimeout = 10;
    double mWait = 0;
    bool mAsJson = false;
    bool mAsJsonLines = false;
    bool mInUtc = false;

    std::uint32_t mCeiling = sCeiling;
    std::vector<std::string> mTargets;
    std::string mFile;
    std::uint32_t mPeriod = 0;
    double mEvery = 0;
    double mFor = 0;
    bool mStarts = false;

    ZTEScopeForm getForm() const {
        return mAsJson ? ZTEScopeForm::Json : mAsJsonLines ? ZTEScopeForm::JsonLines : ZTEScopeForm::Table;
    }
};

std::chrono::milliseconds toDuration(double aSeconds) {
    if (!std::isfinite(aSeconds)) {
        throw ZTCScopeUsage("that is no number of seconds");
    }
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(aSeconds));
}

const std::string& directoryOf(const Options& acrOptions) {
    if (acrOptions.mDirectory.empty()) {
        throw ZTCScopeUsage("which agent? Name its runtime directory: --dir DIR, or ZT_VRX_SENSOR_DIR");
    }
    return acrOptions.mDirectory;
}

ZTSSensorOptions clientOptions(const Options& acrOptions) {
    return {directoryOf(acrOptions), toDuration(acrOptions.mTimeout), toDuration(acrOptions.mWait)};
}

// One line on standard error. Returns the status.
int refuse(const std::string& acrText, int aStatus) {
    std::cerr << "vrx-scope: " << acrText << (aStatus == sWrongUsage ? " (vrx-scope --help-all)" : "")
              << "\n";
    return aStatus;
}

// Says that a command has been carried out.
void putDone(const Options& acrOptions, const std::string& acrCommand, const std::string& acrText) {
    if (acrOptions.getForm() == ZTEScopeForm::Table) {
        put(acrText + "\n");
        return;
    }
    put(doneJson(acrCommand));
}

// ---- Commands ----

int start(const Options& acrOptions) {
    ZTCSensorClient lClient(clientOptions(acrOptions));
    startCollection(lClient, acrOptions.mCeiling);
    putDone(acrOptions, "start",
            fmt::format("started, up to {} bytes of data a record", acrOptions.mCeiling));
    return 0;
}

int stop(const Options& acrOptions) {
    ZTCSensorClient(clientOptions(acrOptions)).stop();
    putDone(acrOptions, "stop", "stopped");
    return 0;
}

int registerTargets(const Options& acrOptions, const std::vector<ZTSSensorTarget>& acrTargets) {
    ZTCSensorClient(clientOptions(acrOptions)).registerTargets(acrTargets);
    putDone(acrOptions, "targets", countText(acrTargets.size(), "target") + " registered");
    return 0;
}

int addTargets(const Options& acrOptions) {
    return registerTargets(acrOptions, readTargets(acrOptions.mTargets));
}

int addLoadedTargets(const Options& acrOptions) {
    return registerTargets(acrOptions, loadTargets(acrOptions.mFile));
}

int setPeriod(const Options& acrOptions) {
    ZTCSensorClient(clientOptions(acrOptions)).setCollectionPeriod(acrOptions.mPeriod);
    putDone(acrOptions, "period", fmt::format("a period of {} s", acrOptions.mPeriod));
    return 0;
}

// One fetch. What the agent no longer has is not to be lost to a signal: those that come meanwhile wait for
// aDo's end.
template <class Do>
void fetchOnce(const Options& acrOptions, const Do& acrDo) {
    ZTCSensorClient lClient(clientOptions(acrOptions));
    const ZTCWaiting lNoSignals;
    try {
        acrDo(lClient.fetch());
    } catch (const ZTCTimedOutError& lrError) {
        throw ZTCScopeFailure(std::string(lrError.what()) + "; what it had collected may be lost");
    }
}

int fetch(const Options& acrOptions) {
    fetchOnce(acrOptions, [&](const ZTSensorBytes& acrMessage) {
        const std::string lText = toText("fetch", readFetched(acrMessage, std::chrono::system_clock::now()),
                                         acrOptions.getForm(), acrOptions.mInUtc);
        try {
            put(lText);
        } catch (const ZTCScopeFailure& lrError) {
            throw ZTCScopeFailure(std::string(lrError.what()) + "; what was fetched:\n" + lText);
        }
    });
    return 0;
}

int shutDown(const Options& acrOptions) {
    ZTCSensorClient lClient(clientOptions(acrOptions));
    const pid_t lAgent = readAgentStatus(acrOptions.mDirectory).mProcess;
    lClient.shutDown();
    if (lAgent == 0) {
        putDone(acrOptions, "shutdown", "the agent ends");
        return 0;
    }
    if (!waitForEnd(lAgent, toDuration(acrOptions.mTimeout))) {
        throw ZTCScopeFailure(
            fmt::format("{} has promised to end, and has not: look at its log", describeProcess(lAgent)));
    }
    putDone(acrOptions, "shutdown", "the agent has ended");
    return 0;
}

// The moment, and how long ago it was.
std::string agoText(const std::optional<ZTSAgentStatus::Time>& acrTime, bool aInUtc) {
    if (!acrTime) {
        return "unknown";
    }
    const ZTSSensorTime lTime = toSensorTime(*acrTime);
    const auto lAgo =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now() - *acrTime).count();
    return fmt::format("{}, {} s ago", plainText(lTime, aInUtc), std::max(lAgo, 0L));
}

std::string textOf(const ZTSAgentStatus& acrStatus, const Options& acrOptions) {
    const bool lInUtc = acrOptions.mInUtc;
    std::string lText = fmt::format("directory  {}\n", acrOptions.mDirectory);
    if (acrStatus.mIsRunning) {
        lText += fmt::format("agent      running, {}\nsince      {}\nlog        {}\nheartbeat  {}\n",
                             describeProcess(acrStatus.mProcess), agoText(acrStatus.mSince, lInUtc),
                             acrStatus.mLog.empty() ? "unknown" : acrStatus.mLog,
                             agoText(acrStatus.mHeartbeat, lInUtc));
    } else {
        lText += "agent      not running\n";
    }
    if (acrStatus.mSensorHeartbeat) {
        lText +=
            fmt::format("sensor     {}process {}, heartbeat {}\n", acrStatus.mIsSensorRunning ? "" : "gone, ",
                        acrStatus.mSensor, agoText(acrStatus.mSensorHeartbeat, lInUtc));
    } else {
        lText += "sensor     none\n";
    }
    return lText;
}

int showStatus(const Options& acrOptions) {
    const ZTSAgentStatus lStatus = readAgentStatus(directoryOf(acrOptions));
    put(acrOptions.getForm() == ZTEScopeForm::Table ? textOf(lStatus, acrOptions)
                                                    : statusJson(acrOptions.mDirectory, lStatus));
    return lStatus.mIsRunning ? 0 : sFailed;
}

// A view of sums, where it is asked for, or a line a record.
std::unique_ptr<ZTCShow> makeShow(const Options& acrOptions, bool aSums) {
    if (acrOptions.mAsJson) {
        throw ZTCScopeUsage("what goes on and on is no single document: use --ndjson");
    }
    if (aSums && acrOptions.getForm() == ZTEScopeForm::Table) {
        return std::make_unique<ZTCWatchView>(acrOptions.mInUtc);
    }
    return std::make_unique<ZTCLines>(acrOptions.getForm(), acrOptions.mInUtc);
}

ZTSCollection collectionOf(const Options& acrOptions) {
    ZTSCollection lCollection;
    lCollection.mEvery = toDuration(acrOptions.mEvery);
    if (acrOptions.mFor > 0) {
        lCollection.mFor = toDuration(acrOptions.mFor);
    }
    if (acrOptions.mStarts) {
        lCollection.mCeiling = acrOptions.mCeiling;
    }
    return lCollection;
}

int watch(const Options& acrOptions) {
    std::unique_ptr<ZTCAnswerFile> lSaved;
    if (!acrOptions.mFile.empty()) {
        lSaved = std::make_unique<ZTCAnswerFile>(acrOptions.mFile);
    }
    const std::unique_ptr<ZTCShow> lShow = makeShow(acrOptions, isTerminal());
    try {
        ZTCCollector(clientOptions(acrOptions), collectionOf(acrOptions), *lShow, lSaved.get()).run();
    } catch (const std::runtime_error&) {
        lShow->finish();
        throw;
    }
    lShow->finish();
    return 0;
}

// Counts what is recorded.
class Counter : public ZTCShow {
  public:
    void add(const ZTSFetched& acrFetched) override {
        ++mAnswers;
        mRecords += acrFetched.countRecords();
        if (isatty(STDERR_FILENO) == 1) {
            std::cerr << "\r" << toText() << std::flush;
        }
    }
    void tell(const std::string& acrText, bool aIsThere) override {
        if (!aIsThere || mIsGone) {
            std::cerr << "vrx-scope: " << acrText << std::endl;
        }
        mIsGone = !aIsThere;
    }
    void finish() override {
        if (isatty(STDERR_FILENO) == 1) {
            std::cerr << "\n";
        }
    }
    std::string toText() const {
        return countText(mAnswers, "answer") + ", " + countText(mRecords, "record");
    }

  private:
    std::uint64_t mAnswers = 0;
    std::uint64_t mRecords = 0;
    bool mIsGone = false;
};

int record(const Options& acrOptions) {
    ZTCAnswerFile lFile(acrOptions.mFile);
    Counter lCounter;
    if (acrOptions.mEvery > 0 || acrOptions.mFor > 0) {
        ZTSCollection lCollection = collectionOf(acrOptions);
        lCollection.mEvery = acrOptions.mEvery > 0 ? lCollection.mEvery : ZTSCollection().mEvery;
        ZTCCollector(clientOptions(acrOptions), lCollection, lCounter, &lFile).run();
    } else {
        fetchOnce(acrOptions, [&](const ZTSensorBytes& acrMessage) {
            lFile.add(acrMessage);
            lCounter.add(readFetched(acrMessage, {}));
        });
    }
    lCounter.finish();
    putDone(acrOptions, "record", fmt::format("added to {}: {}", acrOptions.mFile, lCounter.toText()));
    return 0;
}

// Every answer of a file that can be read, in its order. Those that cannot are told of; false: there were
// some.
bool readAnswers(const std::string& acrFile, const std::function<void(ZTSFetched)>& acrDo) {
    bool lAreGood = true;
    try {
        eachAnswer(acrFile, [&](const ZTSensorBytes& acrMessage, std::uint64_t aOffset) {
            try {
                acrDo(readFetched(acrMessage, {}));
            } catch (const ZTCSensorError& lrError) {
                lAreGood = false;
                refuse(fmt::format("{}: the message at byte {}: {}", acrFile, aOffset, lrError.what()),
                       sFailed);
            }
        });
    } catch (const ZTCScopeFailure& lrError) {
        lAreGood = false;
        refuse(lrError.what(), sFailed);
    }
    return lAreGood;
}

int decode(const Options& acrOptions) {
    ZTSFetched lAll;
    const bool lAreGood = readAnswers(acrOptions.mFile, [&](ZTSFetched aFetched) {
        std::move(aFetched.mData.begin(), aFetched.mData.end(), std::back_inserter(lAll.mData));
    });
    if (lAreGood || !lAll.mData.empty()) {
        put(toText("decode", lAll, acrOptions.getForm(), acrOptions.mInUtc));
    }
    return lAreGood ? 0 : sFailed;
}

// When an answer came, as near as its records tell.
std::optional<ZTSFetched::Time> lastTimeIn(const ZTSFetched& acrFetched) {
    ZTSSensorTime lLast;
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            lLast = std::max(lLast, lrRecord.mLast);
        }
    }
    return lLast == ZTSSensorTime() ? std::nullopt : std::optional(fromSensorTime(lLast));
}

// Shows one answer, until it is time for the next. False: the program is to end.
bool replayOne(ZTCShow& arShow, const ZTSFetched& acrFetched, ZTCWaiting& arWaiting,
               ZTCWaiting::Clock::time_point aNext) {
    arShow.add(acrFetched);
    for (;;) {
        switch (arWaiting.until(aNext)) {
            case ZTCWaiting::End:
                return false;
            case ZTCWaiting::Resize:
                arShow.draw();
                break;
            case ZTCWaiting::Time:
                return true;
        }
    }
}

int replay(const Options& acrOptions) {
    const std::unique_ptr<ZTCShow> lShow = makeShow(acrOptions, true);
    // All of them first: while they are read, any signal may end the program.
    std::vector<ZTSFetched> lAnswers;
    const bool lAreGood = readAnswers(acrOptions.mFile, [&](ZTSFetched aFetched) {
        aFetched.mTime = lastTimeIn(aFetched);
        lAnswers.push_back(std::move(aFetched));
    });
    ZTCWaiting lWaiting;
    auto lNext = ZTCWaiting::Clock::now();
    std::size_t lNumber = 0;
    for (const ZTSFetched& lrAnswer : lAnswers) {
        lNext += toDuration(acrOptions.mEvery);
        lShow->tell(fmt::format("{}, answer {}", acrOptions.mFile, ++lNumber), true);
        if (!replayOne(*lShow, lrAnswer, lWaiting, lNext)) {
            break;
        }
    }
    lShow->finish();
    return lAreGood ? 0 : sFailed;
}

// ---- The command line ----

// A command: what it is called and does, which function does it, and what it takes.
using Run = int (*)(const Options&);
CLI::App* addCommand(CLI::App& arParent, const char* apName, const char* apText, Run aRun, Run& arChosen) {
    CLI::App* const lpCommand = arParent.add_subcommand(apName, apText);
    lpCommand->callback([&arChosen, aRun] { arChosen = aRun; });
    return lpCommand;
}

void addCeiling(CLI::App& arCommand, Options& arOptions) {
    arCommand.add_option("--ceiling", arOptions.mCeiling, "up to so many bytes a record's data grows (4096)")
        ->type_name("BYTES");
}

void addEvery(CLI::App& arCommand, Options& arOptions, const char* apText) {
    arCommand.add_option("--every", arOptions.mEvery, apText)
        ->type_name("SECONDS")
        ->check(CLI::Range(0.05, sLongest));
}

void addFor(CLI::App& arCommand, Options& arOptions) {
    arCommand.add_option("--for", arOptions.mFor, "ends by itself after that time")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.05, sLongest * 366));
}

void describe(CLI::App& arProgram, Options& arOptions, Run& arChosen) {
    arProgram.require_subcommand(1)->fallthrough();
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

    CLI::App* const lpStart =
        addCommand(arProgram, "start", "starts the collection, anew if one is under way", start, arChosen);
    addCeiling(*lpStart, arOptions);
    addCommand(arProgram, "stop", "ends the collection", stop, arChosen);
    CLI::App* const lpTargets =
        arProgram.add_subcommand("targets", "registers ports that records are to name");
    lpTargets->require_subcommand(1)->fallthrough();
    addCommand(*lpTargets, "add", "those that are named", addTargets, arChosen)
        ->add_option("target", arOptions.mTargets, "node name, port name and address of each")
        ->type_name("NODE PORT ADDRESS")
        ->required();
    addCommand(*lpTargets, "load", "those of a file: NODE PORT ADDRESS a line, # begins a comment",
               addLoadedTargets, arChosen)
        ->add_option("file", arOptions.mFile, "- for standard input")
        ->type_name("FILE")
        ->required();
    addCommand(arProgram, "period", "tells the agent how often it is fetched from", setPeriod, arChosen)
        ->add_option("seconds", arOptions.mPeriod, "not 0")
        ->type_name("SECONDS")
        ->required();
    addCommand(arProgram, "fetch", "takes what has been collected, and shows it", fetch, arChosen);
    CLI::App* const lpWatch =
        addCommand(arProgram, "watch", "fetches again and again, as the agent's sensor", watch, arChosen);
    addEvery(*lpWatch, arOptions, "from fetch to fetch (5)");
    addFor(*lpWatch, arOptions);
    lpWatch->add_option("--save", arOptions.mFile, "adds the raw answers to a file")->type_name("FILE");
    lpWatch->add_flag("--start", arOptions.mStarts, "starts the collection of each agent that comes");
    addCeiling(*lpWatch, arOptions);
    addCommand(arProgram, "shutdown", "ends the agent", shutDown, arChosen);
    addCommand(arProgram, "status", "whether an agent runs; status 1 if none does", showStatus, arChosen);
    addCommand(arProgram, "decode", "shows a file of raw answers", decode, arChosen)
        ->add_option("file", arOptions.mFile, "- for standard input")
        ->type_name("FILE")
        ->required();
    CLI::App* const lpRecord =
        addCommand(arProgram, "record", "adds raw answers to a file: one, or with --every or --for many",
                   record, arChosen);
    lpRecord->add_option("file", arOptions.mFile, "what it is added to")->type_name("FILE")->required();
    addEvery(*lpRecord, arOptions, "from fetch to fetch (5)");
    addFor(*lpRecord, arOptions);
    CLI::App* const lpReplay =
        addCommand(arProgram, "replay", "shows a file of raw answers as watch would have", replay, arChosen);
    lpReplay->add_option("file", arOptions.mFile, "- for standard input")->type_name("FILE")->required();
    addEvery(*lpReplay, arOptions, "from answer to answer (0)");
}

// The agent no longer has what could not be saved: it is shown instead.
int rescue(const ZTCUnsavedAnswer& acrError, const Options& acrOptions) {
    refuse(acrError.what(), sFailed);
    try {
        put(toText("rescue", readFetched(acrError.getMessage(), {}), acrOptions.getForm(),
                   acrOptions.mInUtc));
    } catch (const std::runtime_error& lrError) {
        refuse(lrError.what(), sFailed);
    }
    return sFailed;
}

int run(int argc, char** argv) {
    tzset();
    Options lOptions;
    Run lRun = nullptr;
    CLI::App lProgram("Drives vrx-sca and shows the events that it has collected.", "vrx-scope");
    describe(lProgram, lOptions, lRun);
    try {
        lProgram.parse(argc, argv);
        if (lProgram.got_subcommand("watch") && lOptions.mEvery == 0) {
            lOptions.mEvery = std::chrono::duration<double>(ZTSCollection().mEvery).count();
        }
        return lRun(lOptions);
    } catch (const CLI::Success& lrHelp) {
        return lProgram.exit(lrHelp);
    } catch (const CLI::RequiredError& lrError) {
        const auto lRest = lProgram.remaining(true);
        return refuse(lRest.empty() ? lrError.what() : "there is no command '" + lRest.front() + "'",
                      sWrongUsage);
    } catch (const CLI::ParseError& lrError) {
        return refuse(lrError.what(), sWrongUsage);
    } catch (const ZTCScopeUsage& lrError) {
        return refuse(lrError.what(), sWrongUsage);
    } catch (const ZTCUnsavedAnswer& lrError) {
        return rescue(lrError, lOptions);
    } catch (const std::exception& lrError) {
        return refuse(lrError.what(), sFailed);
    }
}

}  // namespace

int main(int argc, char** argv) {
    // What is opened must not get the number of a standard stream that somebody has closed.
    for (const int lStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(lStream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {
            return sFailed;
        }
    }
    // Output that nobody reads, or that a limit forbids, is an error like others.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (...) {
        return sFailed;  // there is not even memory, or a stream, to say so
    }
}
