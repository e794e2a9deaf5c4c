// Paths left of all, by LUN and what stands on it: the worst first.

import {el, fill, fillRows} from './dom.js';
import {ageOf, cellsOf, headOf, openingRow, pathPips, portOf, timeOf} from './widgets.js';
import {count} from './words.js';

const labels = [{label: 'Paths left', class: 'left'}, 'On it', 'LUN', 'Trouble'];
const pathLabels = ['Path', 'State', 'From', 'To', 'Fabric', 'LUN'];
const mostWhole = 12; // LUNs that are well are shown until one asks for all

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
        const isWell = (lun) => lun.here && lun.usable >= lun.total && lun.stalls.length === 0;
        const well = last.luns.filter(isWell);
        const shown = all ? last.luns : [...last.luns.filter((lun) => !isWell(lun) && lun.here), ...well.slice(0, mostWhole), ...last.luns.filter((lun) => !lun.here).slice(0, mostWhole)];
        table.hidden = shown.length === 0;
        fillRows(table, shown, (lun) => lun.wwid ?? lun.map ?? lun.disk, lunRow);
        const left = last.luns.length - shown.length;
        fill(more, last.luns.length === 0 && el('span', {class: 'note'}, 'No LUN is known.'), left > 0 && el('button', {type: 'button', onclick: () => {
            all = true;
            show(last);
        }}, `Show ${count(left, 'more LUN')}`));
        fillRows(others, last.stalls, (stall) => stall.id, (stall) => el('li', {}, stallText(stall)));
    }
    return {node: el('div', {}, table, more, others), show};
}

const stallText = (stall) => el('span', {class: 'bad'}, `${stall.name ?? stall.disk} stands still for `, ageOf(stall.first), `: ${count(stall.in_flight, 'command')} wait`);

function troubleOf(lun) {
    if (!lun.here) {
        return el('span', {class: 'note'}, 'gone', lun.seen && [', last seen ', timeOf(lun.seen)]);
    }
    const lines = [];
    if (lun.usable < lun.total) {
        lines.push(el('div', {class: 'bad'}, lun.usable === 0 ? 'no path left' : `${count(lun.total - lun.usable, 'path')} missing`, lun.since && [' for ', ageOf(lun.since)], lun.inferred && ', as its ports say'));
        const whys = [...new Set(lun.paths.filter((path) => !path.usable && path.why).map((path) => path.why))];
        lines.push(whys.length > 0 && el('div', {class: 'small note'}, whys.slice(0, 3).join('; ')));
    }
    lines.push(...lun.stalls.map((stall) => el('div', {}, stallText(stall))));
    return lines.length > 0 ? lines : el('span', {class: 'note'}, 'none');
}

function lunRow(lun, old) {
    const name = lun.map ?? lun.former_map ?? lun.disk ?? lun.wwid;
    return openingRow([
        [pathPips(lun.usable, lun.total), el('strong', {class: lun.usable < lun.total ? 'bad' : null}, ` ${lun.usable} of ${lun.total}`)],
        lun.mounts.length > 0 ? lun.mounts.join(', ') : lun.volumes.join(', ') || '–',
        [name, lun.disk && lun.disk !== name && el('span', {class: 'note small'}, ` ${lun.disk}`)], troubleOf(lun),
    ], labels, () => lunDetails(lun), old, {name, properties: {'data-lun': name}});
}

function lunDetails(lun) {
    const facts = [['WWID', lun.wwid], ['Serial', lun.serial], ['What it is', [lun.vendor, lun.model].filter(Boolean).join(' ')],
                   ['Volumes', lun.volumes.join(', ')], ['As many paths since', lun.since && timeOf(lun.since)]];
    return el('div', {class: 'details'},
        el('dl', {class: 'pairs small'}, facts.filter(([, value]) => value).map(([name, value]) => [el('dt', {}, name), el('dd', {}, value)])),
        el('table', {class: 'cards small'}, headOf(pathLabels), el('tbody', {}, lun.paths.map((path) => el('tr', {}, cellsOf(
            [[el('strong', {}, path.disk ?? '–'), path.address && el('span', {class: 'note'}, ` ${path.address}`)], pathState(path),
             portOf(path.initiator), portOf(path.target), path.fabric ?? '–', path.lun ?? '–'], pathLabels))))));
}

function pathState(path) {
    const isWell = path.here && path.usable !== false;
    const word = !path.here ? 'gone' : path.usable === null ? 'not known' : path.usable ? path.access ?? 'usable' : path.why ?? path.state ?? 'not usable';
    return el('span', {class: isWell ? 'good' : 'bad'}, el('span', {class: 'shape', 'aria-hidden': 'true'}, isWell ? '● ' : '▲ '), word);
}
