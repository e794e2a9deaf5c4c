// Incident: one problem on one sheet. What happened, where it began, what followed, what it hits, and where to look
// next.

import {ApiError, ask} from './api.js';
import {changeItem} from './changes.js';
import {el, fill, svg} from './dom.js';
import {behindText, stepsOf} from './incidentSteps.js';
import {firstOf} from './lists.js';
import {recordLine} from './recordWords.js';
import {throttled} from './rest.js';
import {sentence} from './sentences.js';
import {bothZones, clockText, dateText, now, spanText, toMs, toText, zoneText} from './times.js';
import {copyButton, linkTo, pathPips, portOf, smallTable, stateMark, timeOf} from './widgets.js';
import {className, count, kindName, portName, signText} from './words.js';

export const styles = ['style-incident.css'];

const mostNames = 10;
const mostRecords = 25;
const mostChanges = 25;
const around = 5 * 60 * 1000;
const beginning = 60 * 1000;  // the records of so long are asked for, where there are many

const section = (title, attributes, ...children) =>
    el('section', {class: 'panel', ...attributes}, el('h2', {}, title), ...children);

const names = (list, show = (each) => each) =>
    el('ul', {class: 'names'}, firstOf(list.map((each) => el('li', {}, show(each))), mostNames));

const endOf = (incident) => (incident.closed ? toMs(incident.closed) : now());

const sameZones = () => zoneText(now(), false) === 'UTC';

/** A moment by both clocks: one for who is here, one for who is elsewhere. */
function momentRow(label, text, note = null) {
    const ms = toMs(text);
    const cell = (asUtc) =>
        el('td', {},
           el('time', {datetime: text}, el('span', {}, dateText(ms, asUtc)), ' ',
              el('span', {}, clockText(ms, {asUtc, digits: 3}))));
    return el(
        'tr', {}, el('th', {scope: 'row'}, label, note && el('span', {class: 'note'}, note)),
        sameZones() ? null : cell(false), cell(true));
}

function timesTable(incident) {
    const lasted = spanText(endOf(incident) - toMs(incident.opened));
    const here = `here (${zoneText(toMs(incident.opened), false)})`;
    return el(
        'table', {class: 'times', 'data-times': ''},
        el('thead', {},
           el('tr', {}, el('td', {}), sameZones() ? null : el('th', {scope: 'col'}, here),
              el('th', {scope: 'col'}, 'UTC'))),
        el('tbody', {}, momentRow('Began', incident.opened, incident.closed ? null : `${lasted} ago`),
           momentRow('Last sign', incident.last),
           incident.closed && momentRow('Over', incident.closed, `after ${lasted}`)));
}

/** ": array1-B0 from hba1, fabric B" */
function whereOf({target, initiator, fabric}) {
    return (target || initiator || fabric) && [
        ':', target && [' ', portOf(target)], initiator && [target ? ' from ' : ' ', portOf(initiator)],
        fabric && `${target || initiator ? ', ' : ' '}fabric ${fabric}`
    ];
}

const states = {
    open: 'It goes on.',
    quiet: 'Nothing more has come, but all is not as it was.',
    closed: 'It is over.',
};

function heading(incident) {
    return el(
        'header', {class: 'incident-head'},
        el('p', {class: 'incident-kind'}, stateMark(incident.state),
           ` incident ${incident.id} · ${className(incident.class)}`, ` · ${states[incident.state] ?? ''}`,
           incident.window && ` In maintenance: ${incident.window}.`, incident.kept && ' Kept for good.'),
        el('h1', {'data-title': ''}, sentence(incident.title)),
        incident.merged !== null &&
            el('p', {class: 'notice warn'}, el('span', {class: 'shape', 'aria-hidden': 'true'}, '▲'),
               el('span', {}, 'It has become part of ',
                  linkTo('incident', {}, incident.merged, `incident ${incident.merged}`), '.')),
        !incident.now &&
            el('p', {class: 'note'}, 'vrx-sn does not run: this is as it was at ', timeOf(incident.written), '.'));
}

/** The way on: to its time, its records, to a colleague, to paper. */
function waysOn(incident) {
    const first = toMs(incident.opened);
    const last = toMs(incident.closed ?? incident.last);
    const slack = Math.max(around, (last - first) / 4);
    return el(
        'p', {class: 'ways'},
        linkTo(
            'timeline', {
                since: toText(first - slack),
                until: toText(last + slack),
                by: incident.targets.length > 0 ? 'target' : 'initiator'
            },
            null, 'On the timeline'),
        linkTo('records', {incident: incident.id}, null, 'Its records'), copyLink(),
        el('button', {type: 'button', 'data-print': '', onclick: () => window.print()}, 'Print'));
}

function copyLink() {
    const button = copyButton('Copy a link to this', () => location.href);
    button.dataset.link = '';
    return button;
}

function acknowledgement({acknowledged, state, id}) {
    if (acknowledged) {
        return el(
            'p', {'data-acknowledged': ''}, `Acknowledged by ${acknowledged.who}, `, timeOf(acknowledged.when),
            acknowledged.note && `: ${acknowledged.note}`);
    }
    return state !== 'closed' &&
        el('p', {class: 'note screen-only', 'data-acknowledged': ''}, 'Acknowledged by nobody. On the host: ',
           el('code', {}, `vrx-scope incidents acknowledge ${id} --note TEXT`));
}

function causeSection(incident) {
    const cause = incident.first_cause;
    return section(
        'First cause', {'data-cause': ''},
        cause ?
            [
                el('p', {class: 'cause'}, el('strong', {}, cause.confidence === 'likely' ? 'Likely: ' : 'Possibly: '),
                   signText(cause.kind), whereOf(cause), ', ', timeOf(cause.time, {digits: 3})),
                cause.confidence !== 'likely' &&
                    el('p', {class: 'note small'},
                       'Possibly: it was seen later than what it did, or it is not alone, or only its effect is known.')
            ] :
            el('p', {class: 'unknown'}, 'Not known.'));
}

/** A line of time as long as the incident, with what a step took of it. */
function stepBar(step, first, last) {
    const width = 90;
    const x = (text) => ((toMs(text) - first) / Math.max(1, last - first)) * (width - 3);
    return svg(
        'svg', {class: 'step-bar', width, height: 10, viewBox: `0 0 ${width} 10`, 'aria-hidden': 'true'},
        svg('line', {x1: 0, x2: width, y1: 5, y2: 5}),
        svg('rect', {x: x(step.first), y: 1, height: 8, width: Math.max(3, x(step.last) - x(step.first))}));
}

function stepRow(step, first, last) {
    const took = toMs(step.last) - toMs(step.first);
    const which = step.cause && `${step.cause.confidence === 'likely' ? '' : 'possible '}${step.cause.which} cause`;
    return el(
        'tr', {'data-follow': step.kind, class: step.cause ? 'is-cause' : null},
        el('td', {}, timeOf(step.first, {digits: 3})),
        el('td', {class: 'number behind'}, behindText(Math.max(0, toMs(step.first) - first))),
        el('td', {class: 'bar'}, stepBar(step, first, last)),
        el('td', {}, signText(step.kind),
           step.cause && [whereOf(step.cause), ' ', el('span', {class: 'which'}, `◀ ${which}`)]),
        el('td', {class: 'number'}, step.events === null ? '' : step.events.toLocaleString('en')),
        el('td', {class: 'note'}, took >= 1000 ? `for ${spanText(took)}` : ''));
}

function stepsSection(incident) {
    const steps = stepsOf(incident);
    const times = steps.flatMap((step) => [toMs(step.first), toMs(step.last)]);
    const [first, last] = [Math.min(...times), Math.max(...times)];
    return steps.length > 0 &&
        section(
               'What happened, in order', {'data-steps': ''},
               el('div', {class: 'scrolls'},
                  el('table', {class: 'steps'},
                     el('thead', {},
                        el('tr', {},
                           [`time (${zoneText(first)})`, 'behind', '', 'what', 'events', 'how long'].map(
                               (text) =>
                                   el('th',
                                      {scope: 'col', class: text === 'events' || text === 'behind' ? 'number' : null},
                                      text)))),
                     el('tbody', {}, steps.map((step) => stepRow(step, first, last))))));
}

const row = (label, list, show) => list.length > 0 && [el('dt', {}, label), el('dd', {}, names(list, show))];

/** Names with those of ports instead of world wide names; what is called by a short name comes first. */
function diskNames({hits, initiators, targets}) {
    const called = (text) => [...initiators, ...targets].reduce(
        (name, port) => name.replaceAll(port.port_name, portName(port)), text);
    return hits.disks.map(called).sort(
        (a, b) => a.includes(' ') - b.includes(' ') || a.localeCompare(b, 'en', {numeric: true}));
}

function hitsSection(incident) {
    const {hits} = incident;
    const rows = [
        row('Mounts', hits.mounts), row('Volumes', hits.volumes), row('Maps', hits.maps),
        row('Disks', diskNames(incident)), row('LUNs', hits.luns)
    ];
    return section(
        'What it hits', {'data-hits': ''},
        rows.some(Boolean) ? el('dl', {}, rows) : el('p', {class: 'unknown'}, 'Nothing that is known here.'));
}

function pathsSection({paths, losses}) {
    return section(
        'Paths left', {'data-paths': ''},
        paths ? el('p', {}, pathPips(paths.left, paths.total), ' ',
                   el('strong', {class: paths.left === 0 ? 'bad' : null}, `${paths.left} of ${paths.total}`),
                   ' of the map that has the fewest') :
                el('p', {class: 'unknown'}, 'No map is concerned.'),
        losses > 0 &&
            el('p', {class: 'warn-text', 'data-losses': losses},
               `${count(losses, 'event')} lost meanwhile: there may be more than is told here.`));
}

function extentSection(incident) {
    return section(
        'Extent', {'data-extent': ''},
        el('dl', {}, row('Host', incident.hosts), row('Fabric', incident.fabrics),
           row('Initiators', incident.initiators, (port) => portOf(port)),
           row('Targets', incident.targets, (port) => portOf(port)),
           [el('dt', {}, 'Events'), el('dd', {}, incident.events.toLocaleString('en'))]));
}

function changesSection({changes}) {
    return section(
        'What changed in the seven days before', {'data-changes': changes.length},
        changes.length > 0 ? el('ul', {class: 'changes'}, firstOf(changes.map(changeItem).reverse(), mostChanges)) :
                             el('p', {class: 'unknown'}, 'Nothing that may have to do with it.'));
}

function seriesSection(others) {
    return others?.length > 0 &&
        section(
               'It has been there before', {'data-series': '', class: 'panel series'},
               el('ul', {},
                  others.map(
                      (other) =>
                          el('li', {}, stateMark(other.state), ' ', timeOf(other.opened), ' ',
                             linkTo('incident', {}, other.id, `${other.id} ${other.title}`)))));
}

const evidenceLabels = ['Time', 'Kind', {label: 'Events', class: 'number'}, 'From', 'To', 'What'];

function evidenceCells(record) {
    const {names: called, initiator} = record;
    const params = {incident: record.incident, since: record.first, until: record.last, kind: record.kind};
    return [
        linkTo('records', params, null, timeOf(record.first, {digits: 3})), kindName(record.kind),
        record.occurrences.toLocaleString('en'), portOf({...initiator, name: called.initiator}),
        record.remote_port_name ? portOf({port_name: record.remote_port_name, name: called.target}) : '',
        recordLine(record)
    ];
}

function evidenceTable(records) {
    const table = smallTable(evidenceLabels, records.map(evidenceCells));
    table.classList.add('evidence');
    [...table.tBodies[0].rows].forEach((row, at) => (row.dataset.evidence = records[at].id));
    return table;
}

function evidenceSection(incident, records) {
    const all = incident.evidence.length;
    return section(
        'Evidence', {}, all === 0 ? el('p', {class: 'unknown'}, 'No records: the kernel and the history told it.') : [
            el('p', {class: 'note small'}, records.length < all ? `The first ${records.length} of ` : '',
               linkTo('records', {incident: incident.id}, null, count(all, 'record'))),
            evidenceTable(records)
        ]);
}

class IncidentView {
    constructor(root, site) {
        this.root = root;
        this.site = site;
        this.again = throttled(1000, () => this.showAgain());
    }

    async show({id}) {
        this.id = id;
        if (!/^\d+$/.test(id ?? '')) {
            this.showMissing();
            return;
        }
        let incident;
        try {
            incident = await ask(`incidents/${encodeURIComponent(id ?? '')}`);
        } catch (error) {
            if (error instanceof ApiError && (error.status === 404 || error.status === 400)) {
                this.showMissing();
                return;
            }
            throw error;
        }
        this.site.setTitle(`Incident ${incident.id}: ${incident.title}`);
        const records = await this.firstRecords(incident);
        this.incident = incident;
        this.draw(incident, records);
    }

    showMissing() {
        this.site.setTitle('Incident');
        fill(
            this.root, el('h1', {}, 'Incident'),
            el('p', {class: 'empty', role: 'alert'},
               `There is no incident ${this.id ?? ''}. It may be older than what is kept. `,
               el('a', {href: '#now'}, 'What there is now')));
    }

    /** The oldest of its records: where it began. They come newest first, so it is asked for what came early. */
    async firstRecords(incident) {
        if (incident.evidence.length === 0) {
            return [];
        }
        const all = incident.evidence.length <= mostRecords;
        const until = all ? null : toText(toMs(incident.opened) + beginning);
        const {records} = await ask('records', {incident: incident.id, until, limit: all ? mostRecords : 1000});
        return records.reverse().slice(0, mostRecords);
    }

    draw(incident, records) {
        const held = document.activeElement?.dataset;
        const focused = held && ['link', 'print'].find((name) => name in held);
        fill(
            this.root,
            el('article', {class: 'sheet', 'data-incident': incident.id}, heading(incident), waysOn(incident),
               incident.suggestion &&
                   el('p', {class: 'suggestion', 'data-suggestion': ''}, el('strong', {}, 'Look next: '),
                      incident.suggestion),
               el('div', {class: 'facts'},
                  el('div', {class: 'pair'},
                     el('div', {class: 'column'}, causeSection(incident), pathsSection(incident),
                        section('When', {}, timesTable(incident), acknowledgement(incident))),
                     el('div', {class: 'column'}, hitsSection(incident), extentSection(incident))),
                  stepsSection(incident), changesSection(incident), evidenceSection(incident, records),
                  seriesSection(incident.others_of_series)),
               el('p', {class: 'print-only small'}, `${location.href}, printed at ${bothZones(now(), 0)}`)));
        if (focused) {
            this.root.querySelector(`[data-${focused}]`)?.focus();
        }
    }

    async showAgain() {
        try {
            await this.show({id: this.id});
        } catch {
            // It stays as it is: what is wrong stands over the view.
        }
    }

    onNews({incidents, records}) {
        const id = Number(this.id);
        if (incidents.some((each) => each.id === id) || records.some((each) => each.incident === id)) {
            this.again();
        }
    }

    unmount() { this.again.cancel(); }
}

export function mount(root, site) {
    const view = new IncidentView(root, site);
    return {
        show: (address) => view.show(address),
        onNews: (news) => view.onNews(news),
        refresh: () => view.again(),
        unmount: () => view.unmount(),
    };
}
