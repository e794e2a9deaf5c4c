#include "IncidentRules.h"

#include <algorithm>
#include <stdexcept>

namespace {

using Sign = ZTESign;
using Weight = ZTEWeight;
using Class = ZTEIncidentClass;

// In the order of ZTESign. A command that timed out was sent half a minute to a minute before it is told.
constexpr ZTSSignRow sSigns[] = {
    // sign                 name               weight          rank before behind text
    {Sign::AgentGone, "agent_gone", Weight::State, 5, 0, 0, "the agent is gone"},
    {Sign::SensorGone, "sensor_gone", Weight::Strong, 5, 0, 0, "vrx-sn was not there"},
    {Sign::LinkDown, "link_down", Weight::State, 10, 5, 120, "the link went down"},
    {Sign::LinkUp, "link_up", Weight::Weak, 90, 0, 60, "the link came up"},
    {Sign::LinkEvent, "link", Weight::Strong, 11, 5, 120, "the link changed"},
    {Sign::PortGone, "port_gone", Weight::State, 10, 5, 120, "the port went away"},
    {Sign::PortBack, "port_back", Weight::Weak, 90, 0, 60, "the port came back"},
    {Sign::PortError, "port_interrupt_error", Weight::Strong, 11, 5, 120, "the port reported an error"},
    {Sign::Temperature, "temperature", Weight::Weak, 12, 0, 0, "the adapter is too hot"},
    {Sign::AdapterArrival, "adapter_arrival", Weight::Weak, 12, 0, 60, "an adapter arrived"},
    {Sign::LinkErrors, "link_errors", Weight::Strong, 12, 60, 120, "errors on the link"},
    {Sign::FpinLink, "fpin_link_integrity", Weight::Strong, 12, 10, 120,
     "the fabric told of errors on a link"},
    {Sign::FpinDelivery, "fpin_delivery", Weight::Strong, 22, 10, 60, "the fabric told of frames it dropped"},
    {Sign::FpinCongestion, "fpin_congestion", Weight::Strong, 22, 10, 120, "the fabric told of congestion"},
    {Sign::CreditLoss, "credit_loss", Weight::Strong, 22, 60, 120, "credits were lost"},
    {Sign::FabricChanged, "fabric_changed", Weight::Strong, 20, 5, 120, "the fabric or the address changed"},
    {Sign::Rscn, "rscn", Weight::Weak, 20, 5, 60, "the fabric told of a change"},
    {Sign::NotReady, "not_ready", Weight::Strong, 30, 5, 120, "the target was not ready"},
    {Sign::Logo, "logo", Weight::Weak, 31, 5, 120, "the target logged out"},
    {Sign::LoginReject, "login_reject", Weight::Strong, 32, 5, 120, "a login was rejected"},
    {Sign::TargetLost, "target_lost", Weight::State, 33, 5, 120, "the target was lost"},
    {Sign::TargetBack, "target_back", Weight::Weak, 90, 0, 60, "the target was back"},
    {Sign::Timeout, "timeout", Weight::Strong, 40, 60, 60, "commands timed out"},
    {Sign::Reset, "reset", Weight::Strong, 41, 60, 60, "it was reset"},
    {Sign::ReadCheck, "fcp_read_check_error", Weight::Strong, 42, 5, 60, "reads came back short"},
    {Sign::QueueFull, "queue_full", Weight::Weak, 50, 5, 60, "its queue was full"},
    {Sign::Busy, "busy", Weight::Weak, 50, 5, 60, "it was busy"},
    {Sign::Aborted, "aborted_command", Weight::Strong, 60, 5, 60, "commands were aborted"},
    {Sign::HardwareError, "hardware_error", Weight::Strong, 34, 5, 60, "hardware errors"},
    {Sign::MediumError, "medium_error", Weight::Strong, 34, 5, 60, "medium errors"},
    {Sign::Illegal, "check_condition", Weight::Weak, 91, 0, 0, "check conditions"},
    {Sign::UnitAttention, "unit_attention", Weight::Weak, 91, 0, 0, "unit attentions"},
    {Sign::Recovered, "recovered_error", Weight::Weak, 91, 0, 0, "recovered errors"},
    {Sign::LunState, "lun_state", Weight::Weak, 65, 5, 60, "LUNs were blocked"},
    {Sign::AccessChanged, "access_changed", Weight::Weak, 65, 5, 60, "LUNs changed their controller"},
    {Sign::PathLost, "path_lost", Weight::State, 70, 120, 60, "paths were lost"},
    {Sign::PathBack, "path_back", Weight::Weak, 92, 0, 60, "paths came back"},
    {Sign::Stall, "stall", Weight::State, 75, 120, 60, "it stood still"},
    {Sign::StallOver, "stall_over", Weight::Weak, 92, 0, 60, "it went on"},
    {Sign::QueueDepth, "queue_depth_change", Weight::Weak, 91, 0, 0, "the queue depth changed"},
    {Sign::Login, "login", Weight::Weak, 90, 0, 60, "it logged in"},
    {Sign::Lost, "events_lost", Weight::Weak, 93, 0, 0, "events were lost"},
    {Sign::AgentBack, "agent_back", Weight::Weak, 90, 0, 60, "the agent was back"},
};
static_assert(std::size(sSigns) == static_cast<std::size_t>(Sign::Count));

const ZTSIncidentRules sRules{
    {
        {Class::CollectorSilent,
         true,
         {{{Sign::AgentGone}, {Sign::SensorGone}}},
         ZTERestored::Agent,
         60,
         false,
         "Nothing was collected on this host: {what}",
         "Look at the state of vrx-sca and vrx-sn, and at their journal."},
        {Class::PortDown,
         true,
         {{{Sign::LinkDown}, {Sign::PortGone}}},
         ZTERestored::Ports,
         0,
         true,
         "{where} is down{hits}",
         "Look at the cable, the transceiver and the switch port of {port}."},
        {Class::RedundancyLost,
         true,
         {{{Sign::PathLost}}},
         ZTERestored::Paths,
         600,
         false,
         "{paths}{since}{causes}",
         "See what became of the ports that are missing: vrx-scope paths."},
        {Class::LinkFlap,
         true,
         {{{Sign::LinkDown}, {Sign::LinkEvent, 2}, {Sign::PortError, 3}}},
         ZTERestored::Links,
         0,
         true,
         "The link of {where} went down {count}{hits}",
         "Exchange the cable or the transceiver of {port}, or look at its switch port."},
        {Class::LinkDegraded,
         true,
         {{{Sign::FpinLink}, {Sign::LinkErrors, 100}}},
         ZTERestored::Silence,
         0,
         false,
         "Errors on the link of {where}{hits}",
         "Clean or exchange the cable and the transceiver of {port}."},
        {Class::SlowDrain,
         true,
         {{{Sign::FpinCongestion},
           {Sign::FpinDelivery},
           {Sign::CreditLoss},
           {Sign::ReadCheck, 5, 60, Sign::Count, Sign::QueueFull}}},
         ZTERestored::Silence,
         0,
         true,
         "{where} is congested{hits}",
         "Look for the device that takes its frames too slowly at {port}."},
        {Class::FabricChange,
         true,
         {{{Sign::FabricChanged}, {Sign::TargetLost, 1, 60, Sign::Rscn, Sign::NotReady}, {Sign::Rscn, 100}}},
         ZTERestored::Targets,
         0,
         true,
         "Fabric {fabric} changed: {where} left it{hits}",
         "Look at what was changed in the zoning of fabric {fabric}."},
        {Class::TargetErrors,
         true,
         {{{Sign::NotReady, 3},
           {Sign::HardwareError, 3},
           {Sign::Aborted, 10},
           {Sign::TargetLost},
           {Sign::Logo, 6}}},
         ZTERestored::Targets,
         0,
         true,
         "{where} is in trouble{hits}",
         "Look at the log of {where}."},
        {Class::DeviceErrors,
         true,
         {{{Sign::MediumError}}},
         ZTERestored::Silence,
         0,
         true,
         "{where} reports medium errors{hits}",
         "Look at the array's disks behind the LUN."},
        {Class::LoginRejected,
         true,
         {{{Sign::LoginReject, 3}}},
         ZTERestored::Silence,
         0,
         true,
         "{where} rejects logins{hits}",
         "Look at the host's registration and access rights at {where}."},
        {Class::Overload,
         true,
         {{{Sign::QueueFull, 20}, {Sign::Busy, 20}}},
         ZTERestored::Silence,
         0,
         true,
         "{where} gets more than it can hold{hits}",
         "Look at who else uses {where}, and at the queue depths."},
        {Class::Resets,
         true,
         {{{Sign::Reset, 2}}},
         ZTERestored::Silence,
         0,
         true,
         "{where} was reset{hits}",
         "Find out who resets: the kernel's log of this host and of others."},
        {Class::IoStall,
         true,
         {{{Sign::Stall}, {Sign::Timeout, 3, 300}}},
         ZTERestored::Stalls,
         0,
         false,
         "{hits} stands still",
         "Look at the array behind it, and at the kernel's log."},
    },
    {}};

}  // namespace

const ZTSSignRow& rowOf(ZTESign aSign) {
    return sSigns[static_cast<std::size_t>(aSign)];
}

std::optional<ZTESign> findSign(std::string_view aName) {
    const auto* const lpRow = std::ranges::find(sSigns, aName, &ZTSSignRow::mpName);
    return lpRow != std::end(sSigns) ? std::optional(lpRow->mSign) : std::nullopt;
}

const ZTSClassRow& ZTSIncidentRules::operator[](ZTEIncidentClass aClass) const {
    return *std::ranges::find(mClasses, aClass, &ZTSClassRow::mClass);
}

const ZTSIncidentRules& getDefaultRules() {
    return sRules;
}

void applyRule(ZTSIncidentRules& /*arRules*/, std::string_view /*aLine*/) {}
