// Paths left of all, by LUN and what stands on it: the worst first.

import {el, fill, fillRows} from './dom.js';
import {ageOf, factList, headOf, openingRow, pathPips, portOf, smallTable, timeOf, wellMark} from './widgets.js';
import {count} from './words.js';

const labels = [{label: 'Paths left', class: 'left'}, 'On it', 'LUN', 'Trouble'];
const pathLabels = ['Path', 'State', 'From', 'To', 'Fabric', 'LUN'];
const mostWhole = 12; // so many LUNs that are well, and that are gone, are shown until one asks for all

export function mountPaths() {
    const table = el('table', {class: 'cards'}, headOf(labels));
    const more = el('p');
    const others = el('ul', {class: 'small'});
    let last = null;
    let all = false;

    function show(paths) {
        last = paths ?? last;
        if (!last) {
            return;
        }
        const shown = all ? last.luns : foremost(last.luns);
        const left = last.luns.length - shown.length;
        table.hidden = shown.length === 0;
        fillRows(table, shown, (lun) => lun.wwid ?? lun.map ?? lun.disk, lunRow);
        fill(
            more, last.luns.length === 0 && el('span', {class: 'note'}, 'No LUN is known.'),
            left > 0 && el('button', {type: 'button', onclick: showAll}, `Show ${count(left, 'more LUN')}`));
        fillRows(others, last.stalls, (stall) => stall.id, (stall) => el('li', {}, stallText(stall)));
    }
    function showAll() {
        all = true;
        show(last);
    }
    return {node: el('div', {}, table, more, others), show};
}

/** All that have trouble, and some of the others. */
function foremost(luns) {
    const kinds = {trouble: [], well: [], gone: []};
    for (const lun of luns) {
        const isWell = lun.usable >= lun.total && lun.stalls.length === 0;
        kinds[!lun.here ? 'gone' : isWell ? 'well' : 'trouble'].push(lun);
    }
    return [...kinds.trouble, ...kinds.well.slice(0, mostWhole), ...kinds.gone.slice(0, mostWhole)];
}

const stallText = (stall) =>
    el('span', {class: 'bad'}, `${stall.name ?? stall.disk} stands still for `, ageOf(stall.first),
       `: ${count(stall.in_flight, 'command')} wait`);

function troubleOf(lun) {
    if (!lun.here) {
        return el('span', {class: 'note'}, 'gone', lun.seen && [', last seen ', timeOf(lun.seen)]);
    }
    const lines = [];
    if (lun.usable < lun.total) {
        lines.push(
            el('div', {class: 'bad'},
               lun.usable === 0 ? 'no path left' : `${count(lun.total - lun.usable, 'path')} missing`,
               lun.since && [' for ', ageOf(lun.since)], lun.inferred && ', as its ports say'));
        const whys = [...new Set(lun.paths.filter((path) => !path.usable && path.why).map((path) => path.why))];
        lines.push(whys.length > 0 && el('div', {class: 'small note'}, whys.slice(0, 3).join('; ')));
    }
    lines.push(...lun.stalls.map((stall) => el('div', {}, stallText(stall))));
    return lines.length > 0 ? lines : el('span', {class: 'note'}, 'none');
}

function lunRow(lun, old) {
    const name = lun.map ?? lun.former_map ?? lun.disk ?? lun.wwid;
    return openingRow(
        [
            [
                pathPips(lun.usable, lun.total),
                el('strong', {class: lun.usable < lun.total ? 'bad' : null}, ` ${lun.usable} of ${lun.total}`)
            ],
            lun.mounts.length > 0 ? lun.mounts.join(', ') : lun.volumes.join(', ') || '–',
            [name, lun.disk && lun.disk !== name && el('span', {class: 'note small'}, ` ${lun.disk}`)],
            troubleOf(lun),
        ],
        labels, () => lunDetails(lun), old, {name, properties: {'data-lun': name}});
}

function lunDetails(lun) {
    const facts = factList([
        ['WWID', lun.wwid],
        ['Serial', lun.serial],
        ['What it is', [lun.vendor, lun.model].filter(Boolean).join(' ')],
        ['Volumes', lun.volumes.join(', ')],
        ['As many paths since', lun.since && timeOf(lun.since)],
    ]);
    return el('div', {class: 'details'}, facts, smallTable(pathLabels, lun.paths.map(pathRow)));
}

function pathRow(path) {
    const address = path.address && el('span', {class: 'note'}, ` ${path.address}`);
    return [
        [el('strong', {}, path.disk ?? '–'), address], pathState(path), portOf(path.initiator), portOf(path.target),
        path.fabric ?? '–', path.lun ?? '–',
    ];
}

function pathState(path) {
    if (!path.here) {
        return wellMark(false, 'gone');
    }
    if (path.usable === null) {
        return wellMark(true, 'not known');
    }
    return wellMark(path.usable, path.usable ? path.access ?? 'usable' : path.why ?? path.state ?? 'not usable');
}
