// The ports of the host, each with its state, its events a second, and the ports that it sees.

import {el, fillRows} from './dom.js';
import {ageOf, factList, headOf, openingRow, smallTable, sparkline, timeOf, wellMark} from './widgets.js';
import {asWords, count, rateText} from './words.js';

const labels =
    ['Port', 'State', {label: 'Speed', class: 'speed'}, 'Fabric', 'Sees', 'Errors, 1 h', 'Events a second, 1 h'];
const remoteLabels = ['Remote port', 'World wide name', 'State', 'Switch port', 'Address', 'Errors, 1 h'];
// Commands, which are counted beside errors.
const ordinary = ['iorequest', 'iodone'];

export function mountPorts() {
    const table = el('table', {class: 'cards'}, headOf(labels));
    return {
        node: table,
        show(ports, timeline) {
            if (ports) {
                fillRows(
                    table, ports.ports.map((port) => ({port, rates: ratesOf(port, timeline)})),
                    ({port}) => port.port_name, portRow);
            }
        },
    };
}

function ratesOf(port, timeline) {
    const lane = timeline?.lanes.find((one) => one.name === port.port_name);
    return lane ? lane.counts.map((number) => number / timeline.bin_seconds) : [0, 0];
}

/** Online, or what it is else, in the word of the kernel. */
const stateOf = (port) =>
    wellMark(port.here && port.state === 'Online', port.here ? port.state ?? 'not known' : 'gone');

function portRow({port, rates}, old) {
    const most = Math.max(0, ...rates);
    const name = port.name ?? port.host ?? port.port_name;
    const since = port.here ? port.since && [' for ', ageOf(port.since)] : port.seen && [' since ', timeOf(port.seen)];
    const well = port.remote_ports.filter((remote) => remote.here && remote.state === 'Online').length;
    const all = port.remote_ports.length;
    return openingRow(
        [
            [el('strong', {}, name), ' ', el('span', {class: 'wwn small note'}, port.port_name)],
            [stateOf(port), el('span', {class: 'small note'}, since)],
            port.speed ?? '–',
            port.fabric ?? '–',
            el('span', {class: well < all ? 'bad' : null},
               well < all ? `${well} of ${count(all, 'port')}` : count(all, 'port')),
            errorsOf(port.errors_last_hour),
            el('div', {class: 'events', 'data-curve': port.port_name},
               sparkline(rates, {width: 120, label: `events a second, ${rateText(most)} at most`}),
               el('span', {class: 'small note'}, most > 0 ? `max ${rateText(most)}` : 'none')),
        ],
        labels, () => portDetails(port), old, {name, properties: {'data-port': port.port_name}});
}

function errorsOf(errors) {
    const counted = Object.entries(errors ?? {}).filter(([name]) => !ordinary.includes(name));
    if (counted.length === 0) {
        return el('span', {class: 'note'}, 'none');
    }
    return el(
        'span', {class: 'bad'},
        counted.map(([name, number]) => `${number.toLocaleString('en')} ${asWords(name)}`).join(', '));
}

function portDetails(port) {
    const facts = factList([
        ['Model', port.model],
        ['Firmware', port.firmware],
        ['Driver', port.driver],
        ['Node name', port.node_name],
        ['Address', port.port_id],
        ['Switch port', port.switch_port],
        ['Type', port.type],
        ['Symbolic name', port.symbolic_name],
        ['In the kernel', port.host],
    ]);
    const sees = port.remote_ports.length > 0 ? smallTable(remoteLabels, port.remote_ports.map(remoteRow)) :
                                                el('p', {class: 'note'}, 'It sees no ports.');
    return el('div', {class: 'details'}, facts, sees);
}

function remoteRow(remote) {
    const controller = remote.array && el('span', {class: 'note'}, ` ${remote.array}/${remote.controller ?? '?'}`);
    return [
        [el('strong', {}, remote.name ?? '–'), controller], el('span', {class: 'wwn'}, remote.port_name),
        stateOf(remote), remote.switch_port ?? '–', remote.port_id ?? '–', errorsOf(remote.errors_last_hour)
    ];
}
