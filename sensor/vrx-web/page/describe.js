// What the mouse or the keyboard is at on the timeline, in words and with ways on from there.

import {changeItem, changeText} from './changes.js';
import {el} from './dom.js';
import {axes} from './timelineData.js';
import {bothZones, clockText, dateText, isUtc, now, shortTime, spanText, toText, zoneText} from './times.js';
import {linkTo, stateMark} from './widgets.js';
import {count, kindName} from './words.js';

const mostChanges = 8;

const unnamed = {
    target: 'about no port',
    fabric: 'fabric not known'
};

/** @returns {{text: string, more: string|null, opens: boolean}} what a lane is called */
export function laneLabel(row) {
    if (!row.name) {
        return {text: row.name === '' ? 'all others' : unnamed[row.by] ?? 'not known', more: null, opens: false};
    }
    const text = row.label ?? (row.by === 'kind' ? kindName(row.name) : row.name);
    return {text, more: row.array, opens: true};
}

function fullLabel(row) {
    const {text} = laneLabel(row);
    return row.parent ? `${laneLabel(row.parent).text} › ${text}` : text;
}

/** "2026-11-21 14:38:20 to 14:38:30 UTC" */
export function rangeText(first, last, {seconds = true} = {}) {
    const utc = isUtc();
    const begin = `${dateText(first, utc)} ${clockText(first, {seconds})}`;
    const end = dateText(first, utc) === dateText(last, utc) ? clockText(last, {seconds}) :
                                                               `${dateText(last, utc)} ${clockText(last, {seconds})}`;
    return `${begin} to ${end} ${zoneText(last, utc)}`;
}

/** What asks for a bin's records: its time, and the lanes that it is in. */
export function recordsOf(thing) {
    const params = {since: toText(thing.first), until: toText(thing.last - 1)};
    for (let row = thing.row; row; row = row.parent) {
        const filter = axes[row.by].filter;
        if (row.name && filter !== 'host') {
            params[filter] = row.name;
        }
    }
    return params;
}

const describers = {
    bin: ({row, first, last, count: events}, model) => {
        const bands = model.bands.filter((band) => band.concerns(row) && band.first < last && band.last > first);
        return [
            el('p', {}, el('strong', {}, fullLabel(row)), row.label && el('span', {class: 'wwn note'}, ' ', row.name)),
            el('p', {}, count(events, 'event'), ', ', el('span', {title: bothZones(first)}, rangeText(first, last))),
            bands.slice(0, 4).map(
                (band) => el('p', {class: 'small'}, stateMark(band.state), ` ${band.id} ${band.title}`)),
        ];
    },
    band: ({band}) =>
        [el('p', {}, stateMark(band.state), ` incident ${band.id}, ${spanText(band.last - band.first)}`,
            ` since ${shortTime(band.first)}`),
         el('p', {}, el('strong', {}, band.title)),
],
    mark: ({changes}) =>
        [el('p', {}, count(changes.length, 'change')),
         el('ul', {class: 'small changes'}, changes.slice(0, mostChanges).map(changeItem)),
         changes.length > mostChanges &&
             el('p', {class: 'note small'}, `and ${changes.length - mostChanges} more: zoom in`),
],
    hole: ({hole}) =>
        [el('p', {}, el('strong', {}, 'Not all is known here')),
         el('p', {}, hole.text),
         el('p', {class: 'small'}, rangeText(hole.first, Math.min(hole.last, now()))),
],
};

/** @param {import('./chart.js').Thing} thing */
export const describe = (thing, model) => describers[thing.kind](thing, model);

/** The same in one line, for those who hear it. */
export function sayThing(thing) {
    switch (thing.kind) {
        case 'bin':
            return `${fullLabel(thing.row)}, ${rangeText(thing.first, thing.last)}, ${count(thing.count, 'event')}`;
        case 'mark': return thing.changes.slice(0, 3).map(changeText).join('; ');
        case 'hole': return thing.hole.text;
        default: return thing.band.title;
    }
}

/** Links that lead on. */
export function waysOn(thing, zoomTo) {
    const ways = [];
    if (thing.kind === 'bin' && thing.count > 0) {
        ways.push(linkTo('records', recordsOf(thing), null, 'Its records'));
    }
    const times = {bin: thing, hole: thing.hole}[thing.kind];
    if (times) {
        ways.push(
            el('button', {type: 'button', 'data-zoom-in': '', onclick: () => zoomTo(times.first, times.last)},
               'Zoom to it'));
    }
    return ways;
}
