// Incidents as the Now view has them: those that are not over in full, the others in their sentence.

import {el} from './dom.js';
import {toMs, toText} from './times.js';
import {ageOf, linkTo, pathPips, portOf, stateMark, timeOf} from './widgets.js';
import {className, count, signText} from './words.js';

/** The worst first: open before quiet, then those that leave the fewest paths; else as they came. */
export function worstFirst(incidents) {
    const left = ({paths}) => (paths && paths.total > 0 ? paths.left / paths.total : 1);
    return incidents.toSorted((a, b) => (a.state === 'quiet') - (b.state === 'quiet') || left(a) - left(b));
}

/** @param {boolean} isNew it has come while one looks on */
export function incidentCard(incident, isNew) {
    return el(
        'li', {class: `panel incident-card ${incident.state}${isNew ? ' arrived' : ''}`, 'data-incident': incident.id},
        el('p', {class: 'facts'}, factsOf(incident)),
        el('h2', {class: 'title'}, linkTo('incident', {}, incident.id, incident.title)),
        el('dl', {class: 'pairs'},
           pairsOf(incident).map(([name, ...value]) => [el('dt', {}, name), el('dd', {}, value)])));
}

const factsOf = ({state, class: name, opened, acknowledged, window}) =>
    [stateMark(state),
     el('span', {}, className(name)),
     el('span', {}, 'since ', timeOf(opened), ', for ', ageOf(opened)),
     acknowledged && el('span', {}, `${acknowledged.who} looks after it`),
     window && el('span', {}, `maintenance: ${window}`),
];

function pairsOf({first_cause: cause, paths, suggestion, events, id, ...incident}) {
    return [
        cause && ['First cause', causeText(cause)],
        paths &&
            [
                'Paths left', pathPips(paths.left, paths.total),
                ` ${paths.left} of ${paths.total}, where the fewest are left`
            ],
        suggestion && ['Look next', suggestion],
        [
            'Evidence', count(events, 'event'), ': ', linkTo('records', {incident: id}, null, 'its records'), ', ',
            linkTo('timeline', around(incident), null, 'on the timeline')
        ],
    ].filter(Boolean);
}

function causeText({kind, initiator, target, fabric, time, confidence}) {
    const ports = [initiator, target].filter(Boolean).map((port, at) => [at ? ' → ' : ': ', portOf(port)]);
    return [signText(kind), ports, fabric && `, fabric ${fabric}`, ', ', timeOf(time), ` (${confidence})`];
}

/** From some minutes before to some behind, or to now. */
function around({opened, closed}) {
    const margin = 10 * 60000;
    return {since: toText(toMs(opened) - margin), until: closed && toText(toMs(closed) + margin)};
}

export const overRow = ({id, opened, class: name, title}) =>
    el('li', {'data-incident': id},
       el('p', {class: 'facts small'}, timeOf(opened, {seconds: false}), el('span', {}, className(name))),
       el('p', {}, linkTo('incident', {}, id, title)));
