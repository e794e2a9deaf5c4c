// Records, newest first: a line each in words, its fields and bytes one click below, and all of them as a file.

import {ask} from './api.js';
import {el, fill, fillRows} from './dom.js';
import {mountFilter} from './filter.js';
import {byteLines, recordFields, recordLine} from './record-words.js';
import {during, markPaint, throttled} from './rest.js';
import {saveRecords} from './save.js';
import {bothZones, spanText, toMs} from './times.js';
import {headOf, linkTo, openingRow, portOf, timeOf} from './widgets.js';
import {count, kindMeaning, kindName} from './words.js';

export const styles = ['style-records.css'];
const pageSize = 100;
const mostShown = 1000; // what comes in while one looks on replaces more than that
const labels = ['Time', 'Kind', {label: 'Events', class: 'number'}, 'From', 'To', 'What', 'Incident'];

export function mount(root, site) {
    const filter = mountFilter((params) => site.go('records', {params, replace: true}));
    const summary = el('p', {class: 'note', 'data-summary': true});
    const table = el('table', {class: 'cards', hidden: true}, headOf(labels));
    const more = el('button', {type: 'button', 'data-more': true, hidden: true, onclick: () => during(loadMore()).catch(fail)}, 'Older ones');
    const saving = el('p', {class: 'small note', 'aria-live': 'polite'});
    const save = (format, text) => el('button', {type: 'button', 'data-export': format, onclick: (event) => saveAs(event.target, format)}, text);
    root.append(
        el('div', {class: 'lead'}, el('h1', {}, 'Records'), el('div', {class: 'saves'}, saving, save('csv', 'CSV'), save('ndjson', 'NDJSON'))),
        filter.node, summary, el('div', {class: 'panel'}, table), el('p', {class: 'more'}, more));

    let params = new URLSearchParams();
    let stop = new AbortController();
    let known = {records: [], next: null, isThere: false};

    function draw() {
        fillRows(table, known.records, (record) => record.id, recordRow);
        table.hidden = known.records.length === 0;
        more.hidden = !known.next;
        summary.textContent = !known.isThere ? '' : known.records.length === 0 ? 'None is like that.'
            : known.next ? `The newest ${count(known.records.length, 'record')}` : `All ${count(known.records.length, 'record')}`;
        markPaint();
    }

    const askPage = (cursor) => ask('records', new URLSearchParams([...params, ['limit', pageSize], ...(cursor ? [['cursor', cursor]] : [])]), stop);

    /** The newest ones, with those that are there already behind them. */
    async function loadNewest() {
        const page = await askPage(null);
        const ids = new Set(page.records.map((record) => record.id));
        const rest = known.records.filter((record) => !ids.has(record.id));
        const joins = known.isThere && rest.length < known.records.length && known.records.length < mostShown;
        known = joins && rest.length > 0 ? {...known, records: [...page.records, ...rest]} : {records: page.records, next: page.next, isThere: true};
        draw();
    }

    async function loadMore() {
        const page = await askPage(known.next);
        const ids = new Set(known.records.map((record) => record.id));
        known = {records: [...known.records, ...page.records.filter((record) => !ids.has(record.id))], next: page.next, isThere: true};
        draw();
    }

    function fail(error) {
        if (!stop.signal.aborted) {
            summary.textContent = `${error.message}.`;
        }
    }

    async function saveAs(button, format) {
        button.disabled = true;
        try {
            await saveRecords(format, params, (text) => (saving.textContent = text));
        } catch (error) {
            saving.textContent = `${error.message}.`;
        }
        button.disabled = false;
    }

    const reload = throttled(700, () => loadNewest().catch(() => {})); // what fails is told by the state of the whole
    async function offerPorts() {
        try {
            filter.offer((await ask('ports')).ports);
        } catch {
            // names can still stand in the address
        }
    }
    offerPorts();

    return {
        async show(address) {
            const isSame = known.isThere && address.params.toString() === params.toString();
            params = address.params;
            filter.show(params);
            if (!isSame) {
                stop.abort();
                stop = new AbortController();
                known = {records: [], next: null, isThere: false};
                table.classList.add('stale');
            }
            const mine = stop;
            try {
                await loadNewest();
            } catch (error) {
                if (mine === stop && error.status === 400) {
                    draw();
                }
                throw error;
            }
            table.classList.remove('stale');
        },
        onNews({records}) {
            if (!params.has('until') && records.some((record) => fits(record, params))) {
                reload();
            }
        },
        refresh: () => known.isThere && !params.has('until') && reload(),
        unmount() {
            stop.abort();
            reload.cancel();
        },
    };
}

/** Whether a new record is one of those that are shown: as far as it can be told here. */
function fits(record, params) {
    const oneOf = (name, ...values) => !params.has(name) || params.getAll(name).some((wanted) => values.includes(wanted));
    return oneOf('kind', record.kind) && oneOf('fabric', record.fabric) && oneOf('initiator', record.initiator.port_name, record.names?.initiator) &&
        oneOf('target', record.remote_port_name, record.names?.target);
}

const sideOf = (record, side, wwn) => portOf({name: record.names?.[side] ?? null, port_name: wwn, switch_port: record.names?.[`${side}_switch_port`],
    array: side === 'target' ? record.names?.array : null, controller: record.names?.controller});

function recordRow(record, old) {
    const length = toMs(record.last) - toMs(record.first);
    return openingRow([
        [timeOf(record.first, {digits: 3}), length >= 1000 && el('span', {class: 'small note'}, ` for ${spanText(length)}`), record.open && el('span', {class: 'small note'}, ', goes on')],
        el('span', {title: kindMeaning(record.kind)}, record.kind ? kindName(record.kind) : `kind ${record.category}/${record.subcategory}`),
        record.occurrences.toLocaleString('en'), sideOf(record, 'initiator', record.initiator.port_name),
        record.remote_port_name ? sideOf(record, 'target', record.remote_port_name) : el('span', {class: 'unknown'}, '–'),
        recordLine(record) || el('span', {class: 'note'}, kindMeaning(record.kind)), record.incident ? linkTo('incident', {}, record.incident, `${record.incident}`) : null,
    ], labels, () => recordDetails(record), old, {name: `record ${record.id}`, properties: {'data-record': record.id}});
}

function recordDetails(record) {
    const place = (name, wwn, ...parts) => [name, wwn, ...parts].filter(Boolean).join(', ');
    const {names} = record;
    const facts = [
        ['record', `${record.id}${record.open ? ', which may still grow' : ''}`],
        ['first', bothZones(toMs(record.first), 3)], ['last', bothZones(toMs(record.last), 3)],
        ['from', place(names?.initiator, record.initiator.port_name, names?.initiator_switch_port)],
        ['to', place(names?.target, record.remote_port_name, names?.array && `${names.array}/${names.controller ?? '?'}`, names?.target_switch_port)],
        ['registered target', record.target && record.target.port_name !== record.remote_port_name ? record.target.port_name : null],
        ['fabric', record.fabric], ['host', record.host], ['maintenance', record.window],
        ...recordFields(record),
    ];
    const bytes = el('div', {class: 'raw', 'data-raw': true, hidden: true, tabindex: '0', role: 'region', 'aria-label': 'raw bytes'});
    const button = el('button', {type: 'button', class: 'small', 'aria-expanded': 'false', onclick: () => {
        bytes.hidden = !bytes.hidden;
        button.setAttribute('aria-expanded', String(!bytes.hidden));
        fill(bytes, byteLines(record.data).map(([offset, text]) => el('div', {}, el('span', {class: 'note'}, offset), '  ', text)));
    }}, `Raw bytes (${record.data.length / 2})`);
    return el('div', {class: 'details'},
        kindMeaning(record.kind) && el('p', {}, `${kindMeaning(record.kind)}${record.occurrences > 1 ? `, ${count(record.occurrences, 'time')} in this record` : ''}.`),
        el('dl', {class: 'pairs small'}, facts.filter(([, value]) => value).map(([name, value]) => [el('dt', {}, name), el('dd', {}, value)])),
        el('p', {}, button), bytes);
}
