// A record as a row, and below it all that it says.

import {el, fill} from './dom.js';
import {byteLines, recordFields, recordLine} from './recordWords.js';
import {bothZones, spanText, toMs} from './times.js';
import {factList, linkTo, openingRow, portOf, timeOf} from './widgets.js';
import {count, kindMeaning, kindName} from './words.js';

export const labels = ['Time', 'Kind', {label: 'Events', class: 'number'}, 'Initiator', 'Target', 'What', 'Incident'];

function sideOf(record, side, wwn) {
    if (!wwn) {
        return portOf(null);
    }
    const {names} = record;
    const ofTarget = side === 'target' ? {array: names?.array, controller: names?.controller} : {};
    return portOf(
        {name: names?.[side] ?? null, port_name: wwn, switch_port: names?.[`${side}_switch_port`], ...ofTarget});
}

/** @param {object} record of docs/json.md */
export function recordRow(record, old) {
    const length = toMs(record.last) - toMs(record.first);
    const small = (text) => el('span', {class: 'small note'}, text);
    const kind = record.kind ? kindName(record.kind) : `kind ${record.category}/${record.subcategory}`;
    return openingRow(
        [
            [timeOf(record.first, {digits: 3}), length >= 1000 && small(` for ${spanText(length)}`)],
            el('span', {title: kindMeaning(record.kind)}, kind),
            record.occurrences.toLocaleString('en'),
            sideOf(record, 'initiator', record.initiator.port_name),
            sideOf(record, 'target', record.remote_port_name),
            recordLine(record) || el('span', {class: 'note'}, kindMeaning(record.kind)),
            record.incident && linkTo('incident', {}, record.incident, `${record.incident}`),
        ],
        labels, () => recordDetails(record), old,
        {name: `record ${record.id}`, properties: {'data-record': record.id}});
}

function recordDetails(record) {
    const meaning = kindMeaning(record.kind);
    const times = record.occurrences > 1 ? `, ${count(record.occurrences, 'time')} in this record` : '';
    return el(
        'div', {class: 'details'}, meaning && el('p', {}, `${meaning}${times}.`),
        factList([...placesOf(record), ...recordFields(record)]), rawBytes(record.data));
}

function placesOf({id, open, first, last, initiator, remote_port_name: remote, target, names, ...record}) {
    const list = (...parts) => parts.filter(Boolean).join(', ');
    const controller = names?.array && `${names.array}/${names.controller ?? '?'}`;
    return [
        ['record', `${id}${open ? ', which may still grow' : ''}`],
        ['first', bothZones(toMs(first), 3)],
        ['last', bothZones(toMs(last), 3)],
        ['initiator', list(names?.initiator, initiator.port_name, names?.initiator_switch_port)],
        ['target', list(names?.target, remote, controller, names?.target_switch_port)],
        ['registered target', target && target.port_name !== remote ? target.port_name : null],
        ['fabric', record.fabric],
        ['host', record.host],
        ['maintenance', record.window],
    ];
}

function rawBytes(data) {
    const bytes =
        el('div',
           {class: 'raw', 'data-raw': true, hidden: true, tabindex: '0', role: 'region', 'aria-label': 'raw bytes'});
    const button =
        el('button', {
            type: 'button',
            class: 'small',
            'aria-expanded': 'false',
            onclick: () => {
                bytes.hidden = !bytes.hidden;
                button.setAttribute('aria-expanded', String(!bytes.hidden));
            }
        },
           `Raw bytes (${data.length / 2})`);
    fill(
        bytes, byteLines(data).map(([offset, text]) => el('div', {}, el('span', {class: 'note'}, offset), '  ', text)));
    return [el('p', {}, button), bytes];
}
