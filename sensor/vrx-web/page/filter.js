// The form over the records: what it says is what stands in the address.

import {el, fill} from './dom.js';
import {pick} from './pick.js';
import {readTime, toText, writeTime} from './times.js';
import {kindName, kinds} from './words.js';

const spans = [
    ['', 'all that is kept'],
    ['-15min', 'last 15 minutes'],
    ['-1h', 'last hour'],
    ['-1d', 'last day'],
    ['-7d', 'last 7 days'],
    ['-30d', 'last 30 days'],
    ['own', 'from … to …'],
];
const names = ['since', 'until', 'kind', 'initiator', 'target', 'fabric', 'host', 'incident'];
const titles = {
    kind: 'Kind',
    initiator: 'Initiator',
    target: 'Target',
    fabric: 'Fabric'
};

/** Those of an address that choose records. */
export const choosing = (params) =>
    new URLSearchParams([...params].filter(([name, value]) => names.includes(name) && value));

/**
 * @param {(params: URLSearchParams) => void} onChange
 * @returns {{node: HTMLElement, show: (params: URLSearchParams) => void, offer: (ports: object[]) => void}} offer: the
 *     ports of the host are what can be chosen
 */
export function mountFilter(onChange) {
    let params = new URLSearchParams();
    let offered = {...offersOf([]), kind: new Map([...kinds.keys()].map((kind) => [kind, kindName(kind)]))};

    /** @param {object} changed lists by name */
    const change = (changed) => onChange(new URLSearchParams(
        names.flatMap((name) => (changed[name] ?? params.getAll(name)).map((value) => [name, value]))));
    const span = mountSpan(change);
    const picks = Object.entries(titles).map(([name, title]) => {
        const made = pick(name, title, (values) => change({[name]: values}), {isSingle: name === 'fabric'});
        return {name, ...made};
    });
    const others = el('span', {class: 'others'});
    const clear = el('button', {type: 'button', onclick: () => onChange(new URLSearchParams())}, 'Clear');
    const node =
        el('form', {class: 'filter', 'data-filter': true, 'aria-label': 'Which records'}, span.nodes,
           picks.map((one) => one.node), others, clear);
    node.addEventListener('submit', (event) => event.preventDefault());

    const leaveOut = (name) => el(
        'button',
        {type: 'button', 'aria-pressed': 'true', title: 'Press to leave it out', onclick: () => change({[name]: []})},
        `${name} ${params.get(name)} ✕`);

    function show(next) {
        params = new URLSearchParams(next);
        span.show(params);
        picks.forEach((one) => one.show(offered[one.name], params.getAll(one.name)));
        fill(others, ['host', 'incident'].filter((name) => params.has(name)).map(leaveOut));
        clear.hidden = params.size === 0;
    }
    function offer(ports) {
        offered = {...offered, ...offersOf(ports)};
        show(params);
    }
    return {node, show, offer};
}

/** What ports there are to choose from: names by what the address says. */
function offersOf(ports) {
    const called = (port) => [port.port_name, port.name ?? port.port_name];
    const byName = (one, other) => one[1].localeCompare(other[1]);
    return {
        initiator: new Map(ports.map(called)),
        target: new Map(ports.flatMap((port) => port.remote_ports.map(called)).sort(byName)),
        fabric: new Map(ports.filter((port) => port.fabric).map((port) => [port.fabric, port.fabric])),
    };
}

/** What is written in the zone that is shown is sent in UTC; "-2h" and "today" are the host's to understand. */
function timeParameter(text) {
    const ms = readTime(text);
    return Number.isNaN(ms) ? text : toText(ms);
}

/** From when to when: one of some, or two fields. */
function mountSpan(change) {
    const select =
        el('select', {
            id: 'span',
            onchange: () => {
                if (select.value === 'own') {
                    own.hidden = false;
                    since.focus();
                } else {
                    change({since: select.value ? [select.value] : [], until: []});
                }
            }
        },
           spans.map(([value, text]) => el('option', {value}, text)));
    const field = (name, example) => {
        const node =
            el('input', {name, id: name, size: 22, placeholder: example, spellcheck: 'false', autocomplete: 'off'});
        node.addEventListener(
            'change', () => change({[name]: node.value.trim() ? [timeParameter(node.value.trim())] : []}));
        return node;
    };
    const since = field('since', '2026-11-22 08:00');
    const until = field('until', 'now, -2h, today');
    const own =
        el('span', {class: 'own'}, el('label', {'for': 'since'}, 'from '), since, el('label', {'for': 'until'}, ' to '),
           until);

    function show(params) {
        const begin = params.get('since') ?? '';
        const isOwn = params.has('until') || !spans.some(([value]) => value === begin);
        select.value = isOwn ? 'own' : begin;
        own.hidden = !isOwn;
        since.value = writeTime(begin);
        until.value = writeTime(params.get('until') ?? '');
    }
    return {nodes: [el('label', {'for': 'span', class: 'unseen'}, 'When'), select, own], show};
}
