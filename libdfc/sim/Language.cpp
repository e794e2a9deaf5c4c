#include "Language.h"

#include <iterator>

#include "Scenario.h"
#include "libdfc_provider.h"

namespace {

using Key = ZTSSimKey;
using Value = ZTESimValue;
using Form = ZTESimForm;

constexpr uint64_t sMaxTimes = 1'000'000'000'000'000;
constexpr uint64_t sMaxRate = 1'000'000'000;
constexpr uint32_t sMaxBoards = 64;

constexpr Key sName(const char* apName, uint32_t aOffset, uint64_t aDefault = 0x500601603b200001) {
    return {.mpName = apName,
            .mValue = Value::Name,
            .mHasDefault = true,
            .mDefault = aDefault,
            .mOffset = aOffset};
}
constexpr Key sWord(const char* apName, uint32_t aOffset) {
    return {.mpName = apName, .mHasDefault = true, .mOffset = aOffset};
}
constexpr Key sLunAt(uint32_t aOffset) {
    return {.mpName = "lun", .mHasDefault = true, .mpNames = "all", .mOffset = aOffset};
}
constexpr Key sNumber(const char* apName, uint64_t aDefault, uint64_t aLeast = 0,
                      uint64_t aMost = UINT32_MAX) {
    return {.mpName = apName, .mHasDefault = true, .mDefault = aDefault, .mLeast = aLeast, .mMost = aMost};
}
constexpr Key sOptional(const char* apName, uint64_t aLeast = 0, uint64_t aMost = UINT32_MAX) {
    return {.mpName = apName, .mLeast = aLeast, .mMost = aMost};
}
constexpr Key sValue(const char* apName, Value aValue, Form aForm = Form::Pair) {
    return {.mpName = apName, .mValue = aValue, .mForm = aForm};
}
constexpr Key sFlag(const char* apName) {
    return sValue(apName, Value::Flag, Form::KeyAlone);
}
constexpr Key sChoice(const char* apName, const char* apNames, Form aForm = Form::Pair,
                      bool aIsRequired = false) {
    return {.mpName = apName,
            .mValue = Value::Choice,
            .mForm = aForm,
            .mIsRequired = aIsRequired,
            .mpNames = apNames};
}

constexpr Key sFromTo[] = {sName("from", 4), sName("to", 12, 0x50060160bb200001)};
constexpr Key sFrom[] = {sName("from", 4)};
constexpr Key sReject[] = {sName("from", 4), sWord("command", 12), sWord("reason", 16),
                           sWord("explanation", 20)};
constexpr Key sPort[] = {sName("port", 4)};
constexpr Key sReadCheck[] = {sName("port", 4), sLunAt(12), sWord("command", 16), sWord("residual", 20)};
constexpr Key sPortLun[] = {sName("port", 4), sLunAt(12)};
constexpr Key sCheckCondition[] = {
    sName("port", 4),
    sLunAt(12),
    sWord("command", 16),
    {.mpName = "sense", .mValue = Value::Sense, .mHasDefault = true, .mOffset = 20},
    sWord("queue-tag", 28)};
constexpr Key sDepth[] = {sName("port", 4), sLunAt(12), sWord("old", 16), sWord("new", 20)};
constexpr Key sPages[] = {
    {.mpName = "pages", .mValue = Value::Pages, .mHasDefault = true, .mDefault = 0x010203}};

constexpr ZTSSimKind sKinds[] = {
    {"plogi", {0, 1, 1}, 20, sFromTo, "plogi from=50:06:01:60:3b:20:11:0c", "a port logs in"},
    {"adisc", {0, 1, 4}, 20, sFromTo, "adisc to=10:00:00:25:b5:01:00:00", "a port is asked for its address"},
    {"logo", {0, 1, 16}, 20, sFromTo, "logo board=1 times=3 every=250ms", "a port logs out"},
    {"prlo", {0, 1, 2}, 12, sFrom, "prlo from=500601603b20110c", "a process logs out"},
    {"ls-rjt", {0, 1, 8}, 24, sReject, "ls-rjt command=0x03 reason=9 explanation=0x29", "an ELS is rejected"},
    {"fabric-busy", {0, 2, 1}, 0, {}, "fabric-busy times=10", "the fabric is busy"},
    {"port-busy", {0, 2, 2}, 12, sPort, "port-busy port=50:06:01:60:3b:20:11:0c", "a port is busy"},
    {"fcp-read-check-error",
     {0, 2, 4},
     24,
     sReadCheck,
     "fcp-read-check-error lun=3 command=0x28 residual=512",
     "a read came short"},
    {"queue-full", {0, 4, 1}, 16, sPortLun, "queue-full lun=3", "a logical unit's queue is full"},
    {"device-busy", {0, 4, 2}, 16, sPortLun, "device-busy lun=3", "a logical unit is busy"},
    {"check-condition",
     {0, 4, 4},
     32,
     sCheckCondition,
     "check-condition lun=3 command=0x2a sense=6/29/00",
     "a command ends with sense data, KEY/ASC/ASCQ"},
    {"lun-reset", {0, 4, 8}, 16, sPortLun, "lun-reset lun=3", "a logical unit is reset"},
    {"target-reset", {0, 4, 16}, 16, sPortLun, "target-reset lun=all", "a target is reset"},
    {"bus-reset", {0, 4, 32}, 0, {}, "bus-reset", "a bus is reset"},
    {"queue-depth-change",
     {0, 4, 64},
     24,
     sDepth,
     "queue-depth-change lun=3 old=32 new=16",
     "the driver changes a queue's depth"},
    {"port-interrupt-error", {0, 8, 1}, 0, {}, "port-interrupt-error", "an adapter's port has an error"},
    {"adapter-arrival", {0, 16, 1}, 0, {}, "adapter-arrival", "an adapter has come"},
    {"link", {ZT_DFC_LINK, 0, 0}, ZT_DFC_LINK_CONTEXT, {}, "link board=1", "a port's link changes"},
    {"rscn", {ZT_DFC_RSCN, 0, 0}, 0, sPages, "rscn pages=0x010203,0x03000000", "the fabric's state changes"},
    {"temperature",
     {ZT_DFC_TEMPERATURE, 0, 0},
     0,
     {},
     "temperature",
     "an adapter's temperature passes a limit"},
};

const char* sCheckRaw(const ZTSSimStatement& acrStatement) {
    const bool lGeneric = acrStatement.has("category") && acrStatement.has("subcategory");
    const bool lEither = acrStatement.has("category") || acrStatement.has("subcategory") ||
                         acrStatement.has("total-length") || acrStatement.has("no-descriptor");
    const bool lByMask = acrStatement.has("mask") || acrStatement.has("length");
    return lEither ? (lGeneric && !lByMask ? nullptr : "category= and subcategory= without mask= and length=")
                   : (acrStatement.has("mask") ? nullptr : "category= and subcategory=, or mask=");
}

const char* sCheckStorm(const ZTSSimStatement& acrStatement) {
    if (acrStatement.has("board") && acrStatement.has("boards")) {
        return "board= or boards=, not both";
    }
    return acrStatement.has("for") || acrStatement.has("times") ? nullptr : "for= or times=, or both";
}

const char* sCheckWait(const ZTSSimStatement& acrStatement) {
    return acrStatement.mValues.size() == 1 ? nullptr : "one of for=, registrations, storms";
}

const char* sCheckFault(const ZTSSimStatement& acrStatement) {
    const uint64_t lFault = acrStatement.getNumber("name");
    const bool lTakesTime = lFault == ZTSF_CallbacksAfterClose || lFault == ZTSF_SlowClose;
    return acrStatement.has("for") == lTakesTime ? nullptr
           : lTakesTime                          ? "for= with this fault"
                                                 : "no for= with this fault";
}

const char* sCheckNothing(const ZTSSimStatement& /*acrStatement*/) {
    return nullptr;
}

constexpr Key sEventKeys[] = {sNumber("board", 0),
                              sNumber("times", 1, 1, sMaxTimes),
                              {.mpName = "every", .mValue = Value::Duration, .mHasDefault = true}};
constexpr Key sAdaptersKeys[] = {{.mpName = "count", .mIsRequired = true, .mMost = sMaxBoards},
                                 sValue("node", Value::Name),
                                 sValue("port", Value::Name),
                                 sChoice("fail", "init|info"),
                                 sFlag("old-driver")};
constexpr Key sRawKeys[] = {sOptional("category"),
                            sOptional("subcategory"),
                            sOptional("mask", 1),
                            sValue("bytes", Value::Bytes),
                            sOptional("total-length"),
                            sOptional("length"),
                            sFlag("no-descriptor"),
                            sEventKeys[0],
                            sEventKeys[1],
                            sEventKeys[2]};
constexpr Key sStormKeys[] = {
    {.mpName = "kind", .mValue = Value::Kind, .mForm = Form::Word, .mIsRequired = true},
    {.mpName = "rate",
     .mHasDefault = true,
     .mDefault = sMaxRate,
     .mLeast = 1,
     .mMost = sMaxRate,
     .mpNames = "max"},
    sValue("for", Value::Duration),
    sOptional("times", 1, sMaxTimes),
    sNumber("threads", 1, 1, 64),
    sOptional("board"),
    sOptional("boards", 1, sMaxBoards)};
constexpr Key sWaitKeys[] = {sValue("for", Value::Duration, Form::Word),
                             {.mpName = "registrations", .mForm = Form::KeyAlone, .mLeast = 1},
                             sFlag("storms")};
constexpr Key sRuleKeys[] = {{.mpName = "status", .mIsRequired = true},
                             sValue("kind", Value::Kind),
                             sOptional("board"),
                             sNumber("times", sMaxTimes, 1, sMaxTimes)};
constexpr Key sFaultKeys[] = {
    sChoice("name", "late-callbacks|callbacks-during-close|callbacks-after-close|stuck-callback|slow-close",
            Form::Word, true),
    sValue("for", Value::Duration)};

constexpr ZTSSimVerb sVerbs[] = {
    {ZTESimVerb::Event, "KIND", sEventKeys, sCheckNothing, "plogi board=1 times=3 every=1.5s",
     "plays an event of a kind"},
    {ZTESimVerb::Adapters, "adapters", sAdaptersKeys, sCheckNothing,
     "adapters count=2 node=20:00:00:25:b5:01:00:00 port=10:00:00:25:b5:01:00:00",
     "the adapters; a file's first such line holds from the start. 2 if there is none"},
    {ZTESimVerb::Raw, "raw", sRawKeys, sCheckRaw,
     "raw category=1 subcategory=1 bytes=01000000 total-length=4096", "plays any event, sound or not"},
    {ZTESimVerb::Storm, "storm", sStormKeys, sCheckStorm,
     "storm queue-full lun=3 rate=5000 for=10s threads=4 boards=2",
     "plays many events in the background; takes the keys of its kind too. rate is in events a second"},
    {ZTESimVerb::Wait, "wait", sWaitKeys, sCheckWait, "wait registrations",
     "waits for a time, for registrations (of each kind and adapter, or so many), or for the storms' ends"},
    {ZTESimVerb::OnRegister, "on-register", sRuleKeys, sCheckNothing,
     "on-register status=5 kind=plogi times=2", "what later registrations return; status=0 takes it back"},
    {ZTESimVerb::OnUnregister, "on-unregister", sRuleKeys, sCheckNothing, "on-unregister status=1 board=1",
     "what later unregistrations return; status=0 takes it back"},
    {ZTESimVerb::Fault, "fault", sFaultKeys, sCheckFault, "fault slow-close for=2s",
     "the library misbehaves from here on"},
    {ZTESimVerb::Report,
     "report",
     {},
     sCheckNothing,
     "report",
     "what was sent, which storms run, and what is registered"},
    {ZTESimVerb::Host,
     "host",
     {},
     sCheckNothing,
     "host link-down host1 after=5s",
     "what follows is for a made-up host, if ZT_VRX_HOSTSIM names one's socket (vrx-hostsim language)"},
};
constexpr bool sAreInOrder() {
    for (unsigned int lVerb = 0; lVerb < std::size(sVerbs); ++lVerb) {
        if (sVerbs[lVerb].mVerb != static_cast<ZTESimVerb>(lVerb)) {
            return false;
        }
    }
    return std::size(sVerbs) == static_cast<unsigned int>(ZTESimVerb::Count);
}
static_assert(sAreInOrder(), "one row a verb, at its place");

}  // namespace

std::span<const ZTSSimKind> getSimKinds() {
    return sKinds;
}

std::span<const ZTSSimVerb> getSimVerbs() {
    return sVerbs;
}
