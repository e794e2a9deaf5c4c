// Changes in words: what came, went, or became something else.

import {el} from './dom.js';
import {timeOf} from './widgets.js';
import {asWords, portName} from './words.js';

const things = {
    agent: '',
    sensor: '',
    store: 'the history',
    host: 'the host',
    port: 'port',
    remote_port: 'remote port',
    lun: 'LUN',
    map: 'map',
    volume: 'volume',
    mount: 'mount',
};

/** The name with what the names file says instead of world wide names. */
function nameOf(change) {
    return change.ports.reduce((text, port) => text.replaceAll(port.port_name, portName(port)), change.name);
}

/** What else a LUN's name says is the attribute's alone: "array1-A0 LUN 3 seen from hba0" */
function subjectOf(change) {
    const thing = things[change.what] ?? asWords(change.what);
    const name = nameOf(change);
    return thing && !name.includes(thing) ? `${thing} ${name}`.trim() : name;
}

/** "map mpatha: paths 8 of 8 → 4 of 8" */
export function changeText(change) {
    if (change.what === 'note') {
        return `note of ${change.name}${change.attribute ? ' on ' + change.attribute : ''}: ${change.after ?? ''}`;
    }
    const subject = subjectOf(change);
    if (change.event === 'changed') {
        const attribute = asWords(change.attribute ?? 'it');
        return change.before === null && change.after === null ?
            `${subject}: ${attribute} changed` :
            `${subject}: ${attribute} ${change.before ?? 'none'} → ${change.after ?? 'none'}`;
    }
    return `${subject} ${asWords(change.event)}${change.after ? `: ${change.after}` : ''}`;
}

/** A line of a list. */
export function changeItem(change) {
    return el(
        'li', {'data-change': change.time}, timeOf(change.time), ' ', el('span', {}, changeText(change)),
        change.window && el('span', {class: 'note'}, ` (maintenance: ${change.window})`));
}
