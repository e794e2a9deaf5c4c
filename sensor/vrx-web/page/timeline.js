// Timeline: what happened when, and to whom. Lanes of events on one axis, incidents, changes and holes over them,
// curves below. The address has the time, the axis, and the lanes that are open:
// "#timeline?since=-1d&by=target&open=...".

import {apiPath, ask, isAborted} from './api.js';
import {Chart} from './chart.js';
import {Curves} from './curves.js';
import {describe, laneLabel, rangeText, recordsOf, sayThing, waysOn} from './describe.js';
import {el, fill} from './dom.js';
import {throttled} from './rest.js';
import {leastSpan, mostSpan, TimeScale} from './scale.js';
import {defaultSpan, readTimes, spanName, spanOf} from './spans.js';
import {onTheme} from './theme.js';
import {axes, TimelineData} from './timelineData.js';
import {TimelineLists} from './timelineLists.js';
import {fillLegend, makeParts} from './timelineParts.js';
import {now, toMs, toText} from './times.js';
import {linkTo} from './widgets.js';

export const styles = ['style-timeline.css'];

const second = 1000;
const newsApart = 700;  // however many come
const tryAgain = 10 * second;
const lookAgain = 30 * second;  // what comes without a record, such as a change
const measures = [
    'commands', 'command_us', 'slowest_us', 'link_failure_count', 'loss_of_sync_count', 'loss_of_signal_count',
    'prim_seq_protocol_err_count', 'invalid_tx_word_count', 'invalid_crc_count', 'error_frames'
];

const between = (since, until) => ({since: toText(Math.round(since)), until: toText(Math.round(until))});

class TimelineView {
    constructor(root, site) {
        this.site = site;
        this.data = new TimelineData((path) => ask(path));
        this.by = 'initiator';
        this.open = [];
        this.follows = true;
        this.asked = 0;
        this.answered = 0;
        this.failed = -Infinity;
        this.chart = new Chart(
            {
                label: laneLabel,
                scaleChanged: (scale) => this.scaleChanged(scale),
                toggle: (name) => this.toggle(name),
                point: (thing, x, y) => this.point(thing, x, y),
                choose: (thing) => this.choose(thing),
                enter: (thing) => this.enter(thing),
            },
            new TimeScale(now() - spanOf(defaultSpan), now(), 800));
        this.curves = new Curves();
        this.lists = new TimelineLists();
        Object.assign(this, makeParts({
                          axis: (by) => this.choosesAxis(by),
                          span: (span) => this.choosesSpan(span),
                          now: () => this.choosesNow(),
                          move: (widths) => this.chart.move(this.chart.scale.panned(widths * this.chart.scale.width)),
                          zoom: (factor) => this.chart.zoom(factor),
                      }));
        root.append(this.arrange());
        this.loadSoon = throttled(150, () => this.tryLoad());
        this.loadNews = throttled(newsApart, () => this.tryLoad());
        this.saveSoon = throttled(400, () => this.save());
        this.endTheme = onTheme(() => this.showLegend());
        this.timer = setInterval(() => this.tick(), second);
        this.lookedAgain = performance.now();
    }

    end() {
        clearInterval(this.timer);
        this.loadSoon.cancel();
        this.loadNews.cancel();
        this.saveSoon.cancel();
        this.endTheme();
        this.chart.end();
        this.curves.end();
    }

    arrange() {
        return el(
            'div', {'data-view': 'timeline'}, el('h1', {class: 'unseen'}, 'Timeline'), this.bar, this.when,
            this.trouble, el('div', {class: 'timeline-chart'}, this.chart.element, this.tip, this.nothing), this.legend,
            this.readout, this.curves.element, this.lists.element, this.help);
    }

    showLegend() { fillLegend(this.legend, this.chart.model); }

    // What the address says

    async show({params}) {
        this.by = Object.hasOwn(axes, params.get('by')) ? params.get('by') : 'initiator';
        this.axis.value = this.by;
        this.open = params.getAll('open');
        const {since, until, follows} = readTimes(params);
        // What this view has itself written there may be a little behind what it shows by now.
        if (params.toString() !== this.written) {
            this.follows = follows;
            this.chart.fit();
            this.chart.scale = new TimeScale(since, until, this.chart.scale.width);
            this.chart.dropCursor();
        }
        this.showTimes();
        await this.load();
    }

    save() {
        const params = {...this.times(), by: this.by, open: this.open};
        const written = new URLSearchParams();
        Object.entries(params).forEach(([name, value]) => [value].flat().forEach((one) => written.append(name, one)));
        this.written = written.toString();
        this.site.go('timeline', {params, replace: true});
    }

    async load() {
        const {by, open} = this;
        const scale = this.chart.scale;
        const mine = ++this.asked;
        const model = await this.data.load(scale, by, open);
        // An answer that was overtaken by a later one is of no use.
        if (mine < this.answered || by !== this.by || open.join() !== this.open.join()) {
            return;
        }
        this.answered = mine;
        this.trouble.hidden = true;
        this.chart.show(model);
        this.showNothing(model);
        this.showLegend();
        this.lists.show(model, this.chart.scale);
        markFirstPaint(model);
        await this.loadCurves();
        if (this.isBehind()) {
            this.loadSoon();
        }
    }

    async loadCurves() {
        const {since, until, bins} = this.data.bounds;
        const by = this.by === 'target' ? 'target' : 'initiator';
        const path = apiPath('measures', {since: toText(since), until: toText(until), bins, by, name: measures});
        const fresh = this.data.cache.fresh(path);
        const answer = await this.data.cache.get(path, this.data.bounds);
        if (!fresh || this.curvesOf !== path) {
            this.curvesOf = path;
            await this.curves.show(answer, by, this.chart.scale);
        }
    }

    async tryLoad() {
        try {
            await this.load();
        } catch (error) {
            if (!isAborted(error)) {
                this.failed = performance.now();
                this.trouble.textContent = `${error.message}. What is shown may be out of date.`;
                this.trouble.hidden = false;
            }
        }
    }

    // What somebody does

    scaleChanged(scale) {
        const atNow = Math.abs(scale.until - now()) < scale.span / 200 + 2 * second;
        this.follows = this.follows && atNow;
        this.showTimes();
        this.curves.setScale(scale);
        this.point(null);
        this.lists.show(this.chart.model, scale);
        this.saveSoon();
        if (this.isBehind()) {
            this.loadSoon();
        }
    }

    showTimes() {
        const {scale} = this.chart;
        this.when.textContent = rangeText(scale.since, scale.until);
        const span = this.follows ? spanName(scale.span).slice(1) : null;
        this.spans.forEach(
            (each) =>
                each.setAttribute('aria-pressed', String(spanOf('-' + each.dataset.span) === spanOf('-' + span))));
        this.upToNow.setAttribute('aria-pressed', String(this.follows));
    }

    choosesAxis(by) {
        this.data.sortAnew();
        this.site.go('timeline', {params: {...this.times(), by}});
    }

    /** The span ends where it is, or goes on with the clock if it does. */
    choosesSpan(span) {
        this.data.sortAnew();
        const ms = spanOf('-' + span);
        const {scale} = this.chart;
        const times = this.follows ? {since: '-' + span} : between(scale.middle - ms / 2, scale.middle + ms / 2);
        this.site.go('timeline', {params: {...times, by: this.by, open: this.open}});
    }

    choosesNow() {
        this.site.go('timeline', {params: {since: spanName(this.chart.scale.span), by: this.by, open: this.open}});
    }

    times() {
        const {scale} = this.chart;
        return this.follows ? {since: spanName(scale.span)} : between(scale.since, scale.until);
    }

    toggle(name) {
        const open = this.open.includes(name) ? this.open.filter((each) => each !== name) : [...this.open, name];
        this.site.go('timeline', {params: {...this.times(), by: this.by, open}});
    }

    point(thing, x, y) {
        const empty = !thing || (thing.kind === 'bin' && thing.count === 0);
        this.tip.hidden = empty;
        if (empty) {
            return;
        }
        fill(this.tip, describe(thing, this.chart.model));
        const {canvas} = this.chart;
        const {offsetWidth: width, offsetHeight: height} = this.tip;
        const left = canvas.offsetLeft + Math.min(x + 14, canvas.clientWidth - width - 4);
        const isLow = canvas.getBoundingClientRect().top + y + 18 + height > window.innerHeight;
        this.tip.style.left = `${Math.max(4, left)}px`;
        this.tip.style.top = `${canvas.offsetTop + (isLow ? y - height - 10 : y + 18)}px`;
    }

    choose(thing) {
        this.chosen = thing;
        this.readout.hidden = !thing;
        if (!thing) {
            fill(this.readout);
            return;
        }
        const zoomTo = (first, last) => this.zoomTo(first, last);
        fill(this.readout, describe(thing, this.chart.model), el('p', {class: 'ways'}, waysOn(thing, zoomTo)));
        this.readout.dataset.say = sayThing(thing);
        if (thing.kind === 'bin') {
            Object.assign(
                this.readout.dataset,
                {lane: thing.row.name ?? '', first: toText(thing.first), last: toText(thing.last), count: thing.count});
        }
    }

    /** It and a little around it: a third of the width. */
    zoomTo(first, last) {
        const middle = (first + last) / 2;
        const span = Math.min(mostSpan, Math.max(leastSpan, 3 * (last - first)));
        this.follows = false;
        this.chart.move(new TimeScale(middle - span / 2, middle + span / 2, this.chart.scale.width));
    }

    enter(thing) {
        if (thing.kind === 'band') {
            this.site.go('incident', {id: thing.band.id});
        } else if (thing.kind === 'bin' && thing.count > 0) {
            this.site.go('records', {params: recordsOf(thing)});
        }
    }

    // What there is beside the lanes

    async showNothing(model) {
        this.nothing.hidden = model.rows.length > 0;
        if (model.rows.length > 0 || this.askingNewest) {
            return;
        }
        fill(this.nothing, 'No events in this time.');
        this.askingNewest = true;
        try {
            const {records: [newest]} = await ask('records', {limit: 1});
            if (newest) {
                const at = toMs(newest.last);
                const {span} = this.chart.scale;
                const params = {...between(at - 0.8 * span, at + 0.2 * span), by: this.by};
                this.nothing.append(' ', linkTo('timeline', params, null, 'Show the newest ones'));
            }
        } catch {
            // The line stays without a way on.
        } finally {
            this.askingNewest = false;
        }
    }

    // News

    tick() {
        if (this.follows && !document.hidden) {
            const {scale} = this.chart;
            const end = now();
            if (scale.toX(end) - scale.width >= 0.5) {
                this.chart.setScale(new TimeScale(end - scale.span, end, scale.width));
                this.curves.setScale(this.chart.scale);
                this.showTimes();
            }
        }
        const time = performance.now();
        if (!document.hidden && time - this.lookedAgain > lookAgain) {
            this.lookedAgain = time;
            this.data.outdate(now() - 2 * lookAgain, now());
        }
        if (this.isBehind() && time - this.failed > tryAgain) {
            this.loadSoon();
        }
    }

    isBehind() { return this.data.bounds !== null && !this.data.upToDate(this.chart.scale, this.by, this.open); }

    onNews({records, incidents}) {
        for (const record of records) {
            this.data.outdate(toMs(record.first), toMs(record.last), 'timeline');
        }
        for (const incident of incidents) {
            this.data.outdate(toMs(incident.opened), now(), 'incidents');
        }
        this.loadNews();
    }

    refresh() {
        this.data.outdate(-Infinity, Infinity);
        this.loadSoon();
    }
}

/** For those who measure how soon there is something to see. */
function markFirstPaint(model) {
    if (model.rows.length > 0 && performance.getEntriesByName('zt-first-paint').length === 0) {
        requestAnimationFrame(() => performance.mark('zt-first-paint'));
    }
}

export function mount(root, site) {
    const view = new TimelineView(root, site);
    return {
        show: (address) => view.show(address),
        onNews: (news) => view.onNews(news),
        refresh: () => view.refresh(),
        unmount: () => view.end(),
    };
}
