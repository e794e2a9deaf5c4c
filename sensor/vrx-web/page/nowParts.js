// Parts of the Now view: how it is in one line, events a second, what cannot be seen, what has changed.

import {changeItem} from './changes.js';
import {el, fill, fillRows} from './dom.js';
import {sparkline, timeOf} from './widgets.js';
import {blindText, count, rateText} from './words.js';

/** Rows, or in their place a sentence. */
export function fillList(node, items, keyOf, make, otherwise) {
    fillRows(node, items, keyOf, make);
    node.nextElementSibling?.remove();
    if (items.length === 0) {
        node.after(el('p', {class: 'note'}, otherwise));
    }
}

export function summaryOf(ports, paths) {
    const parts = [];
    if (ports) {
        const here = ports.ports.filter((port) => port.here);
        const online = here.filter((port) => port.state === 'Online').length;
        parts.push(el(
            'span', {class: online < here.length ? 'bad' : null}, `${online} of ${count(here.length, 'port')} online`));
    }
    if (paths) {
        const luns = paths.luns.filter((lun) => lun.here);
        const whole = luns.filter((lun) => lun.usable >= lun.total).length;
        parts.push(el(
            'span', {class: whole < luns.length ? 'bad' : null},
            whole === luns.length ? `${count(luns.length, 'LUN')}${luns.length === 1 ? '' : ', each'} with all paths` :
                                    `${luns.length - whole} of ${count(luns.length, 'LUN')} without all paths`));
        const standing = paths.stalls.length + luns.reduce((sum, lun) => sum + lun.stalls.length, 0);
        if (standing > 0) {
            parts.push(
                el('span', {class: 'bad'}, standing === 1 ? '1 disk stands still' : `${standing} disks stand still`));
        }
        if (!paths.now) {
            parts.push(el('span', {class: 'bad'}, 'vrx-sn does not run: as it was at ', timeOf(paths.written)));
        }
    }
    return parts.flatMap((part, at) => (at ? [' · ', part] : [part]));
}

/** All ports' events a second, as one curve. */
export function showRate(node, timeline) {
    if (!timeline) {
        return;
    }
    const sums = [];
    for (const lane of timeline.lanes) {
        lane.counts.forEach((number, at) => (sums[at] = (sums[at] ?? 0) + number / timeline.bin_seconds));
    }
    const most = Math.max(0, ...sums);
    fill(
        node,
        sparkline(
            sums, {width: 240, height: 34, label: `events a second within the last hour, ${rateText(most)} at most`}),
        el('figcaption', {class: 'small note'}, `events of the last hour, ${rateText(most)} at most`));
}

/** What is the same of several places is one line. */
export function showBlind(node, ports, paths) {
    if (!ports && !paths) {
        return;
    }
    const all = (ports?.ports ?? []).flatMap((port) => [port, ...port.remote_ports]);
    const names = new Map(all.map((port) => [port.port_name, port.name ?? port.port_name]));
    const lines = new Map();
    for (const {what, where, why, sure} of [...(ports?.blind_spots ?? []), ...(paths?.blind_spots ?? [])]) {
        const key = JSON.stringify([what, why, sure]);
        const line = lines.get(key) ?? {key, what, why, sure, places: []};
        lines.set(key, line);
        const place = names.get(where) ?? where;
        if (place && !line.places.includes(place)) {
            line.places.push(place);
        }
    }
    fillList(node, [...lines.values()], (line) => line.key, blindRow, 'Nothing that vrx-sn knows of.');
}

const blindRow = ({what, why, sure, places}) =>
    el('li', {'data-blind-spot': what}, el('strong', {}, blindText(what)),
       places.length > 0 && ` of ${places.join(', ')}`, sure ? ': ' : ', possibly: ', why);

// What comes and goes with a problem itself; its incident tells of that.
const passing = ['state', 'paths', 'missing', 'access', 'speed'];
const mostChanges = 8;

export function showChanges(node, changes) {
    if (changes) {
        const shown = changes.changes.filter((change) => !passing.includes(change.attribute)).slice(0, mostChanges);
        fillList(node, shown, (change) => JSON.stringify(change), changeItem, 'Nothing but what comes and goes.');
    }
}
