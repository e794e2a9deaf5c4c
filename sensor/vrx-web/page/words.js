// What kinds, classes, states and signs are called. What has no row here is called as it is, with spaces.

/** Kinds of records: [name, what it is]. In the order in which they are offered. */
export const kinds = new Map(Object.entries({
    link: ['link', 'the link went up or down'],
    port_interrupt_error: ['port interrupt error', 'the adapter port reported an error'],
    temperature: ['temperature', 'the adapter was too hot'],
    adapter_arrival: ['adapter arrival', 'an adapter arrived'],
    rscn: ['RSCN', 'the fabric told of a change'],
    plogi: ['login (PLOGI)', 'a port logged in'],
    adisc: ['address check (ADISC)', 'a port asked whether it is still known'],
    logo: ['logout (LOGO)', 'a port logged out'],
    prlo: ['process logout (PRLO)', 'a port ended its SCSI session'],
    ls_rjt: ['rejected (LS_RJT)', 'a link service was rejected'],
    fabric_busy: ['fabric busy', 'the fabric was busy'],
    port_busy: ['port busy', 'the port was busy'],
    fcp_read_check_error: ['FCP read check error', 'a read came back short'],
    queue_full: ['queue full', 'the LUN had more commands than it can hold'],
    device_busy: ['device busy', 'the LUN was busy'],
    check_condition: ['check condition', 'the LUN reported a condition'],
    lun_reset: ['LUN reset', 'LUNs were reset'],
    target_reset: ['target reset', 'a target was reset'],
    bus_reset: ['bus reset', 'the bus was reset'],
    queue_depth_change: ['queue depth change', 'the queue depth of a LUN was changed'],
}));

/** Classes of incidents. */
const classes = {
    collector_silent: 'collector silent', port_down: 'port down', redundancy_lost: 'redundancy lost',
    link_flap: 'link flap', link_degraded: 'link degraded', fabric_change: 'fabric change', slow_drain: 'slow drain',
    target_errors: 'target errors', device_errors: 'device errors', login_rejected: 'login rejected',
    overload: 'overload', resets: 'resets', io_stall: 'I/O stall',
};

/** Signs of incidents, as vrx-scope tells them. */
const signs = {
    agent_gone: 'the agent was gone', sensor_gone: 'vrx-sn did not run', link_down: 'the link went down',
    link_up: 'the link came up', link: 'the link changed', port_gone: 'the port went away',
    port_back: 'the port came back', port_interrupt_error: 'the port reported an error',
    temperature: 'the adapter was too hot', adapter_arrival: 'an adapter arrived', link_errors: 'the link had errors',
    fpin_link_integrity: 'the fabric told of errors on a link',
    fpin_delivery: 'the fabric told of frames it dropped', fpin_congestion: 'the fabric told of congestion',
    credit_loss: 'credits were lost', fabric_changed: 'the fabric or the address changed',
    rscn: 'the fabric told of a change', not_ready: 'the target was not ready', logo: 'the target logged out',
    login_reject: 'a login was rejected', target_lost: 'the target was lost', target_back: 'the target was back',
    timeout: 'commands timed out', reset: 'there was a reset', fcp_read_check_error: 'reads came back short',
    queue_full: 'a queue was full', busy: 'it was busy', aborted_command: 'commands were aborted',
    hardware_error: 'there were hardware errors', medium_error: 'there were medium errors',
    check_condition: 'there were other check conditions', unit_attention: 'there were unit attentions',
    recovered_error: 'there were recovered errors', lun_state: 'LUNs were blocked or offline',
    access_changed: 'LUNs changed their controller', path_lost: 'paths were lost', path_back: 'paths came back',
    stall: 'a disk stood still', stall_over: 'a disk went on', queue_depth_change: 'a queue depth changed',
    login: 'there was a login', events_lost: 'events were lost', agent_back: 'the agent was back',
};

/** What a host cannot see. */
const blind = {
    scsi_errors: 'SCSI errors', fpins: 'what the fabric tells of congestion and bad links (FPINs)',
    counters: 'error counters', paths: 'the state of paths', stalls: 'disks that stand still',
    names: 'the names of ports', uevents: 'devices that come and go',
};

export const asWords = (name) => String(name ?? 'not known').replaceAll('_', ' ');
export const kindName = (kind) => kinds.get(kind)?.[0] ?? asWords(kind);
export const kindMeaning = (kind) => kinds.get(kind)?.[1] ?? '';
export const className = (name) => classes[name] ?? asWords(name);
export const signText = (kind) => signs[kind] ?? asWords(kind);
export const blindText = (what) => blind[what] ?? asWords(what);

/** "1 path", "8 paths", "12,345 events" */
export const count = (number, word) => `${number.toLocaleString('en')} ${word}${number === 1 ? '' : 's'}`;

/** A port as it is called here: its name, else its world wide name. */
export const portName = (port) => (port ? port.name ?? port.port_name : null);

/** "1, 2, 5-9" of ascending numbers, at most so many pieces. */
export function ranges(numbers, most = 12) {
    const pieces = [];
    for (let at = 0; at < numbers.length;) {
        let end = at;
        while (end + 1 < numbers.length && numbers[end + 1] === numbers[end] + 1) {
            ++end;
        }
        pieces.push(end > at ? `${numbers[at]}–${numbers[end]}` : `${numbers[at]}`);
        at = end + 1;
    }
    return pieces.length > most ? `${pieces.slice(0, most).join(', ')}, … (${numbers.length} in all)` : pieces.join(', ');
}

/** Events a second: "0.4/s" */
export function rateText(rate) {
    if (rate > 0 && rate < 0.1) {
        return '< 0.1/s';
    }
    return `${rate.toLocaleString('en', {maximumFractionDigits: rate < 10 ? 1 : 0})}/s`;
}
