// What the timeline shows of a span, from the answers of the API: lanes, those that are open with what is in them,
// incidents, changes and holes.

import {apiPath} from './api.js';
import {AnswerCache, boundsFit, boundsFor} from './bins.js';
import {now, toMs, toText} from './times.js';

/** The axes: what a lane of each opens into, and how it is asked for what is in it. */
export const axes = {
    initiator: {title: 'Initiator', opens: 'target', filter: 'initiator'},
    target: {title: 'Remote port', opens: 'kind', filter: 'target'},
    kind: {title: 'Kind', opens: 'target', filter: 'kind'},
    fabric: {title: 'Fabric', opens: 'target', filter: 'fabric'},
    host: {title: 'Host', opens: 'initiator', filter: 'host'},
};

const mostChanges = 1000;
const mostIncidents = 1000;

export class TimelineData {
    /** @param {(address: string) => Promise<object>} ask */
    constructor(ask) {
        this.cache = new AnswerCache(ask);
        this.bounds = null;
        this.model = {rows: [], bands: [], changes: [], holes: [], most: 1, loaded: false};
        this.order = [];
    }

    /** Lanes are put in order anew: by what there is most of. Else each keeps its place. */
    sortAnew() { this.order = []; }

    /** Whether what is loaded does for what the scale shows, and is up to date. */
    upToDate(scale, by, open) {
        return this.bounds !== null && boundsFit(this.bounds, scale) &&
            this.addresses(by, open).every((address) => this.cache.fresh(address));
    }

    addresses(by, open) {
        const {since, until, bins} = this.bounds;
        const span = {since: toText(since), until: toText(until)};
        const lanes = {...span, bins};
        return [
            apiPath('timeline', {...lanes, by}),
            apiPath('incidents', {...span, limit: mostIncidents}),
            apiPath('changes', {...span, limit: mostChanges}),
            ...open.map((name) => apiPath('timeline', {...lanes, by: axes[by].opens, [axes[by].filter]: name})),
        ];
    }

    /** Loads what the scale needs, and makes the model of it. @returns {Promise<object>} the model */
    async load(scale, by, open) {
        if (this.bounds === null || !boundsFit(this.bounds, scale)) {
            this.bounds = boundsFor(scale);
        }
        const bounds = this.bounds;
        const answers = await Promise.all(this.addresses(by, open).map((each) => this.cache.get(each, bounds)));
        this.model = this.modelOf(answers, by, open);
        return this.model;
    }

    modelOf([lanes, incidents, changes, ...opened], by, open) {
        const rows = this.inOrder(lanes.lanes).flatMap((lane) => {
            const row = rowOf(lane, lanes, by, lane.name, 0);
            const at = open.indexOf(lane.name);
            const inside = at < 0 ?
                [] :
                opened[at].lanes.map(
                    (each) => rowOf(each, opened[at], axes[by].opens, `${lane.name}\n${each.name}`, 1, row));
            return [{...row, open: at >= 0}, ...inside];
        });
        return {
            by,
            rows,
            bands: incidents.incidents.filter((each) => each.merged === null).map(bandOf),
            changes: changes.changes.map((each) => ({...each, at: toMs(each.time)})),
            holes: lanes.holes.map((each) => ({...each, first: toMs(each.first), last: toMs(each.last)})),
            most: rows.reduce((most, row) => row.counts.reduce((a, b) => Math.max(a, b), most), 1),
            binSeconds: lanes.bin_seconds,
            loaded: true,
        };
    }

    inOrder(lanes) {
        const known = new Set(this.order);
        this.order.push(...lanes.map((lane) => lane.name).filter((name) => !known.has(name)));
        const place = new Map(this.order.map((name, at) => [name, at]));
        // What is left over of many lanes is no lane of its own: it stays last.
        return [...lanes].sort((a, b) => (a.name === '') - (b.name === '') || place.get(a.name) - place.get(b.name));
    }

    /** Something happened in this time: answers of this path, or all, are out of date. */
    outdate(first, last, path = '') { this.cache.outdate(first, last, path && apiPath(path)); }
}

function rowOf(lane, answer, by, key, depth, parent = null) {
    return {
        key,
        by,
        depth,
        parent,
        name: lane.name,
        label: lane.label,
        array: lane.array ?? null,
        counts: lane.counts,
        since: toMs(answer.since),
        bin: answer.bin_seconds * 1000,
    };
}

/** Whether an incident says that it concerns this lane, or does not say what it concerns. */
function concerns(incident, row) {
    if (row.parent && !concerns(incident, row.parent)) {
        return false;
    }
    const ports = {initiator: incident.initiators, target: incident.targets}[row.by];
    const names = ports ? ports.map((port) => port.port_name) : row.by === 'fabric' ? incident.fabrics : [];
    return names.length === 0 || names.includes(row.name);
}

function bandOf(incident) {
    const ongoing = incident.state !== 'closed';
    return {
        id: incident.id,
        title: incident.title,
        state: incident.state,
        ongoing,
        first: toMs(incident.opened),
        get last() { return ongoing ? now() : toMs(incident.closed ?? incident.last); },
        concerns: (row) => concerns(incident, row),
    };
}
