// What goes on: incidents in their sentences, then ports and paths, and what this host cannot see.

import {ask} from './api.js';
import {changeItem} from './changes.js';
import {el, fill, fillRows} from './dom.js';
import {mountPaths} from './paths.js';
import {mountPorts} from './ports.js';
import {markPaint, throttled} from './rest.js';
import {toMs} from './times.js';
import {ageOf, linkTo, pathPips, portOf, sparkline, stateMark, timeOf} from './widgets.js';
import {blindText, className, count, signText} from './words.js';

export const styles = ['style-now.css'];
const period = 10000; // the state of ports and paths brings no news of its own

export function mount(root, site) {
    const sentence = el('h1', {}, 'How it is …');
    const summary = el('p', {class: 'summary note'});
    const rate = el('figure', {class: 'rate'});
    const going = el('ol', {class: 'incidents', 'aria-label': 'Incidents that are not over'});
    const ports = mountPorts();
    const paths = mountPaths();
    const blind = el('ul', {class: 'blind'});
    const over = el('ol', {class: 'over'});
    const changed = el('ul', {class: 'changed small'});
    root.append(
        el('div', {class: 'lead'}, el('div', {}, sentence, summary), rate), going,
        el('div', {class: 'columns'},
           el('section', {class: 'panel wide'}, el('h2', {}, 'Ports of this host'), ports.node),
           el('section', {class: 'panel wide'}, el('h2', {}, 'Paths'), paths.node),
           el('section', {class: 'panel'}, el('h2', {}, 'Over within seven days'), over),
           el('div', {class: 'pile'}, el('section', {class: 'panel'}, el('h2', {}, 'What this host cannot see'), blind),
              el('section', {class: 'panel'}, el('h2', {}, 'Changed within seven days'), changed))));

    const stop = new AbortController();
    const known = {};
    let hasShown = false;

    function show() {
        const open = known.incidents?.incidents.filter((incident) => incident.state !== 'closed') ?? [];
        const closed =
            known.incidents?.incidents.filter((incident) => incident.state === 'closed' && !incident.merged) ?? [];
        if (known.incidents) {
            sentence.textContent = open.length === 0 ?
                'No incident is open' :
                `${count(open.length, 'incident')} ${open.length === 1 ? 'is' : 'are'} not over`;
            fillRows(
                going, open, (incident) => incident.id, (incident, old) => incidentCard(incident, hasShown && !old));
            fillRows(over, closed.slice(0, 8), (incident) => incident.id, overRow);
            hasShown = true;
            over.nextElementSibling?.remove();
            if (closed.length === 0) {
                over.after(el('p', {class: 'note'}, 'None.'));
            }
        }
        fill(summary, summaryOf(known.ports, known.paths));
        ports.show(known.ports, known.timeline);
        paths.show(known.paths);
        showRate(rate, known.timeline);
        showBlind(blind, known.ports, known.paths);
        showChanges(changed, known.changes);
        markPaint();
    }

    async function load() {
        const questions = {
            incidents: ask('incidents', {since: '-7d', limit: 200}, stop),
            ports: ask('ports', {}, stop),
            paths: ask('paths', {}, stop),
            changes: ask('changes', {since: '-7d', limit: 1000}, stop),
            timeline: ask('timeline', {by: 'initiator', since: '-1h', bins: 360}, stop),
        };
        const names = Object.keys(questions);
        const answers = await Promise.allSettled(Object.values(questions));
        answers.forEach((answer, at) => {
            if (answer.status === 'fulfilled') {
                known[names[at]] = answer.value;
            }
        });
        const failed = answers.find((answer) => answer.status === 'rejected');
        if (!stop.signal.aborted) {
            show();
            if (!known.incidents) {
                sentence.textContent = 'How it is, is not known';
            }
        }
        if (failed) {
            throw failed.reason;
        }
    }

    // What fails here is told by the state of the whole, or with the next question.
    const reload = throttled(500, () => load().catch(() => {}));
    const timer = setInterval(() => document.hidden || reload(), period);
    return {
        show: load,
        onNews: reload,
        refresh: reload,
        unmount() {
            stop.abort();
            clearInterval(timer);
            reload.cancel();
        },
    };
}

function incidentCard(incident, isNew) {
    const cause = incident.first_cause;
    const {paths} = incident;
    return el(
        'li', {class: `panel incident-card ${incident.state}${isNew ? ' arrived' : ''}`, 'data-incident': incident.id},
        el('p', {class: 'facts'}, stateMark(incident.state), el('span', {}, className(incident.class)),
           el('span', {}, 'since ', timeOf(incident.opened), ', for ', ageOf(incident.opened)),
           incident.acknowledged && el('span', {}, `${incident.acknowledged.who} looks after it`),
           incident.window && el('span', {}, `maintenance: ${incident.window}`)),
        el('h2', {class: 'title'}, linkTo('incident', {}, incident.id, incident.title)),
        el('dl', {class: 'pairs'},
           cause &&
               [
                   el('dt', {}, `Began ${cause.confidence === 'likely' ? '' : 'possibly '}with`),
                   el('dd', {}, signText(cause.kind), cause.initiator && [': ', portOf(cause.initiator)],
                      cause.target && [cause.initiator ? ' → ' : ': ', portOf(cause.target)],
                      cause.fabric && `, fabric ${cause.fabric}`, ', ', timeOf(cause.time))
               ],
           paths &&
               [
                   el('dt', {}, 'Paths left'),
                   el('dd', {}, pathPips(paths.left, paths.total),
                      ` ${paths.left} of ${paths.total}, where the fewest are left`)
               ],
           incident.suggestion && [el('dt', {}, 'Look next'), el('dd', {}, incident.suggestion)],
           el('dt', {}, 'Evidence'),
           el('dd', {}, linkTo('records', {incident: incident.id}, null, count(incident.events, 'event')), ', ',
              linkTo('timeline', aroundIt(incident), null, 'on the timeline'))));
}

/** From some minutes before to some behind, or to now. */
function aroundIt(incident) {
    const margin = 10 * 60000;
    const begin = new Date(toMs(incident.opened) - margin).toISOString();
    return {since: begin, until: incident.closed ? new Date(toMs(incident.closed) + margin).toISOString() : null};
}

const overRow = (incident) =>
    el('li', {'data-incident': incident.id},
       el('p', {class: 'facts small'}, timeOf(incident.opened, {seconds: false}),
          el('span', {}, className(incident.class))),
       el('p', {}, linkTo('incident', {}, incident.id, incident.title)));

function summaryOf(ports, paths) {
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
function showRate(node, timeline) {
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

export const rateText = (rate) =>
    (rate === 0     ? '0/s' :
         rate < 0.1 ? '< 0.1/s' :
                      `${rate.toLocaleString('en', {maximumFractionDigits: rate < 10 ? 1 : 0})}/s`);

/** What is the same of several places is one line. */
function showBlind(node, ports, paths) {
    if (!ports && !paths) {
        return;
    }
    const names = new Map((ports?.ports ?? [])
                              .flatMap((port) => [port, ...port.remote_ports])
                              .map((port) => [port.port_name, port.name ?? port.port_name]));
    const lines = new Map();
    for (const spot of [...(ports?.blind_spots ?? []), ...(paths?.blind_spots ?? [])]) {
        const key = JSON.stringify([spot.what, spot.why, spot.sure]);
        const line = lines.get(key) ?? {...spot, places: new Set()};
        lines.set(key, line);
        if (spot.where) {
            line.places.add(names.get(spot.where) ?? spot.where);
        }
    }
    fillRows(
        node, [...lines.entries()], ([key]) => key,
        ([, line]) => el(
            'li', {'data-blind-spot': line.what}, el('strong', {}, blindText(line.what)),
            line.places.size ? ` of ${[...line.places].join(', ')}` : '', line.sure ? ': ' : ', possibly: ', line.why));
    node.nextElementSibling?.remove();
    if (lines.size === 0) {
        node.after(el('p', {class: 'note'}, 'Nothing that vrx-sn knows of.'));
    }
}

// What comes and goes with a problem itself; its incident tells of that.
const passing = ['state', 'paths', 'missing', 'access', 'speed'];

function showChanges(node, changes) {
    if (!changes) {
        return;
    }
    const shown = changes.changes.filter((change) => !passing.includes(change.attribute)).slice(0, 8);
    fillRows(node, shown, (change) => JSON.stringify(change), changeItem);
    node.nextElementSibling?.remove();
    if (shown.length === 0) {
        node.after(el('p', {class: 'note'}, 'Nothing but what comes and goes.'));
    }
}
