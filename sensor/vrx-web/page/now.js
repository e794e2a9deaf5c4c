// What goes on: incidents in their sentences, then ports and paths, and what this host cannot see.

import {ask} from './api.js';
import {el, fill, fillRows} from './dom.js';
import {incidentCard, overRow, worstFirst} from './incidentCards.js';
import {fillList, showBlind, showChanges, showRate, summaryOf} from './nowParts.js';
import {mountPaths} from './paths.js';
import {mountPorts} from './ports.js';
import {markPaint, throttled} from './rest.js';
import {count} from './words.js';

export const styles = ['style-now.css'];

const questions = {
    incidents: {since: '-7d', limit: 200},
    ports: {},
    paths: {},
    timeline: {by: 'initiator', since: '-1h', bins: 360},
    changes: {since: '-7d', limit: 200},
};
const allQuestions = Object.keys(questions);
// The state of ports and paths brings no news of its own.
const period = 10000;
const periodic = ['incidents', 'ports', 'paths', 'timeline'];
const mostOver = 8;

export function mount(root) {
    return new NowView(root);
}

class NowView {
    #stop = new AbortController();
    #known = {}; // the last answer to each question
    #hasShown = false;
    #due = new Set(); // questions to be asked again
    // What fails here is told by the state of the whole, or with the next question.
    #ask = throttled(800, () => this.#load([...this.#due]).catch(() => {}));
    #timer = setInterval(() => document.hidden || this.#askFor(periodic), period);
    #sentence = el('h1', {}, 'How it is …');
    #summary = el('p', {class: 'summary note'});
    #rate = el('figure', {class: 'rate'});
    #going = el('ol', {class: 'incidents', 'aria-label': 'Incidents that are not over'});
    #over = el('ol', {class: 'over'});
    #blind = el('ul', {class: 'blind'});
    #changed = el('ul', {class: 'changed small'});
    #ports = mountPorts();
    #paths = mountPaths();

    constructor(root) {
        const panel = (title, node, kind = '') => el('section', {class: `panel ${kind}`}, el('h2', {}, title), node);
        const pile =
            el('div', {class: 'pile'}, panel('What this host cannot see', this.#blind),
               panel('Changed within seven days', this.#changed));
        root.append(
            el('div', {class: 'lead'}, el('div', {}, this.#sentence, this.#summary), this.#rate), this.#going,
            el('div', {class: 'columns'}, panel('Ports of this host', this.#ports.node, 'wide'),
               panel('Paths', this.#paths.node, 'wide'), panel('Over within seven days', this.#over), pile));
    }

    show() {
        return this.#load(allQuestions);
    }

    onNews({records, incidents}) {
        this.#askFor([...(records.length > 0 ? ['timeline'] : []), ...(incidents.length > 0 ? periodic : [])]);
    }

    refresh() {
        this.#askFor(allQuestions);
    }

    unmount() {
        this.#stop.abort();
        clearInterval(this.#timer);
        this.#ask.cancel();
    }

    #askFor(names) {
        names.forEach((name) => this.#due.add(name));
        this.#ask();
    }

    /** What can be answered is shown, whatever else cannot. */
    async #load(names) {
        this.#due.clear();
        const answers = await Promise.allSettled(names.map((name) => ask(name, questions[name], this.#stop)));
        if (this.#stop.signal.aborted) {
            return;
        }
        answers.forEach(({value}, at) => {
            if (value) {
                this.#known[names[at]] = value;
            }
        });
        this.#draw();
        const failed = answers.find((answer) => answer.status === 'rejected');
        if (failed) {
            throw failed.reason;
        }
    }

    #draw() {
        const {incidents, ports, paths, timeline, changes} = this.#known;
        this.#drawIncidents(incidents?.incidents);
        fill(this.#summary, summaryOf(ports, paths));
        this.#ports.show(ports, timeline);
        this.#paths.show(paths);
        showRate(this.#rate, timeline);
        showBlind(this.#blind, ports, paths);
        showChanges(this.#changed, changes);
        markPaint();
    }

    #drawIncidents(incidents) {
        if (!incidents) {
            this.#sentence.textContent = 'How it is, is not known';
            return;
        }
        const open = worstFirst(incidents.filter((incident) => incident.state !== 'closed'));
        const closed = incidents.filter((incident) => incident.state === 'closed' && !incident.merged);
        const many = `${count(open.length, 'incident')} ${open.length === 1 ? 'is' : 'are'} not over`;
        this.#sentence.textContent = open.length === 0 ? 'No incident is open' : many;
        fillRows(this.#going, open, ({id}) => id, (incident, old) => incidentCard(incident, this.#hasShown && !old));
        fillList(this.#over, closed.slice(0, mostOver), ({id}) => id, overRow, 'None.');
        this.#hasShown = true;
    }
}
