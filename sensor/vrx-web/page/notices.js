// What stands over every view: what is wrong, whether news come, and incidents that begin while one looks elsewhere.

import {el, fill} from './dom.js';
import {toText} from './times.js';
import {ageOf, linkTo, stateMark, timeOf} from './widgets.js';

const notices = new Map(); // by name: what is shown
const pulse = {
    isLive: false,
    isWell: true,
    lastFetch: null
};
let told = null; // ids of incidents; null: it is not known yet which there are

function show() {
    fill(document.getElementById('trouble'), [...notices.values()]);
}

const since = (health) => health.since && [' since ', timeOf(health.since)];

/** By status; noAgent: all else is well. */
const sentences = {
    noAgent: () => ['The agent vrx-sca does not run, or does not answer: what happens now is not known.'],
    silent: (health) =>
        ['The collector has been silent', since(health), ': ', health.reason,
         '. What has happened since is not known.'],
    unwritten: (health) =>
        ['The history has not been written', since(health), ': ', health.reason,
         '. What is newest may be missing; it comes when it can be written again.'],
    unreadable: (health) =>
        ['The history cannot be read', since(health), ': ', health.reason,
         '. What is shown is as it was then. It is tried again by itself.'],
    unreachable: (health) =>
        ['vrx-web does not answer', since({since: health.missedSince && toText(health.missedSince)}),
         '. What is shown is as it was then. It is tried again by itself.'],
};

/**
 * Above the view, until something else is said under that name.
 * @param {'health'|'view'} name
 * @param {object|string|null} what health, or why a view cannot be shown; null: nothing is wrong
 * @param {() => void} [again]
 */
export function showTrouble(name, what, again) {
    const status = what?.status === 'ok' && what.agent_up === false ? 'noAgent' : what?.status ?? 'view';
    const text = typeof what === 'string' ? [what, '.'] : what && sentences[status]?.(what);
    const said = text && JSON.stringify([status, what.reason ?? what, what.since, what.missedSince]);
    if (notices.get(name)?.said === said) {
        return;
    }
    notices.delete(name);
    if (text) {
        const isGrave = status === 'unreadable' || status === 'unreachable';
        const node =
            el('div', {class: `notice ${isGrave ? 'grave' : 'warn'}`, 'data-trouble': status, 'data-banner': true},
               el('span', {class: 'shape', 'aria-hidden': 'true'}, '▲'), el('p', {}, text),
               again && el('button', {type: 'button', onclick: again}, 'Try again'));
        node.said = said;
        notices.set(name, node);
    }
    show();
}

/** Incidents that are known to go on: they are no news. */
export function noteIncidents(incidents) {
    told ??= new Set();
    incidents.forEach((incident) => told.add(incident.id));
}

/** Incidents that have just begun, where the view does not show them. */
export function showNews(incidents, view, site) {
    for (const {id, state, title} of told ? incidents : []) {
        if (state === 'closed') {
            told.delete(id); // should it open again, that is news
        } else if (!told.has(id)) {
            told.add(id);
            site.announce(`Incident ${id}: ${title}`);
            if (view !== 'now') {
                showIncident(id, title);
            }
        }
    }
}

function showIncident(id, title) {
    notices.set(
        'news',
        el('div', {class: 'notice news'}, stateMark('open'), el('p', {}, linkTo('incident', {}, id, title)),
           el('button', {type: 'button', onclick: dismissNews}, 'Close')));
    show();
}

/** What has just begun is shown elsewhere now. */
export function dismissNews() {
    notices.delete('news');
    show();
}

/** @param {{isLive?: boolean, isWell?: boolean, lastFetch?: string|null}} news */
export function showPulse(news) {
    const changed = Object.entries(news).some(([name, value]) => pulse[name] !== value);
    Object.assign(pulse, news);
    const node = document.getElementById('pulse');
    if (!changed && node.firstChild) {
        return;
    }
    const isLive = pulse.isLive && pulse.isWell;
    node.className = isLive ? 'pulse live' : 'pulse';
    fill(
        node, el('span', {class: 'shape', 'aria-hidden': 'true'}, isLive ? '●' : '○'),
        isLive           ? 'live' :
            pulse.isLive ? 'no news' :
                           'connecting',
        pulse.lastFetch && el('span', {class: 'fetched'}, 'collected ', ageOf(pulse.lastFetch), ' ago'));
}
