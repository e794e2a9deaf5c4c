// The lanes as an element: a canvas, the lanes' names beside it, and what mouse, touch and keyboard do with them. It
// shows a model (timelineData.js) on a scale, and says what somebody wants: another scale, a lane opened, a bin's
// records.

import {el, fill} from './dom.js';
import {watchGestures} from './gestures.js';
import {binAt, binTimes, drawBins, drawGrounds, eventsWithin, layoutOf, nextBin, placeAt, rampOf} from './lanes.js';
import * as over from './overlays.js';
import {redrawing} from './rest.js';
import {colour, isDark, onTheme} from './theme.js';
import {isUtc, now, toText} from './times.js';

const narrowBelow = 560;

/**
 * @typedef {{kind: 'bin', row: object, bin: number, first: number, last: number, count: number} |
 *   {kind: 'band', band: object} | {kind: 'mark', changes: object[]} | {kind: 'hole', hole: object}} Thing
 *   what is at a place of the chart
 */

export class Chart {
    /**
     * @param {{scaleChanged: (scale: TimeScale) => void, toggle: (name: string) => void, point: (thing: Thing|null,
     *   x: number, y: number) => void, choose: (thing: Thing|null) => void, enter: (thing: Thing) => void,
     *   label: (row: object) => {text: string, more: string|null, opens: boolean}}} owner
     *   point: the mouse is over it; choose: it was clicked, or arrows came to it; enter: it is to be opened
     */
    constructor(owner, scale) {
        this.owner = owner;
        this.scale = scale;
        this.model = {rows: [], bands: [], changes: [], holes: [], most: 1, loaded: false};
        this.cursor = null;
        this.range = null;
        this.canvas = el('canvas', {
            'data-lanes': '',
            tabindex: '0',
            role: 'application',
            'aria-roledescription': 'timeline',
            'aria-label': 'Lanes of events',
            'aria-describedby': 'timeline-keys',
            class: 'lanes-canvas',
        });
        this.names = el('div', {class: 'lanes-names', role: 'group', 'aria-label': 'Lanes'});
        this.element = el('div', {class: 'lanes'}, this.names, this.canvas);
        this.redraw = redrawing(() => this.draw());
        this.endings = [this.watchSize(), this.watchMouse(), onTheme(() => this.recolour())];
        this.names.addEventListener('keydown', (event) => this.nameKey(event));
        this.canvas.addEventListener('keydown', (event) => this.key(event));
        this.canvas.addEventListener('focus', () => this.redraw());
        this.canvas.addEventListener('blur', () => this.redraw());
        this.recolour();
    }

    end() { this.endings.forEach((ending) => ending()); }

    recolour() {
        this.colours = {
            ramp: rampOf(isDark()),
            text: colour('--ink'),
            ground: colour('--panel'),
            hole: colour('--ink-2'),
            mark: colour('--accent'),
            states: {open: colour('--bad'), quiet: colour('--warn'), closed: colour('--ink-2')},
        };
        this.redraw();
    }

    show(model) {
        this.model = model;
        this.redraw();
    }

    setScale(scale) {
        this.scale = scale.resized(this.scale.width);
        this.redraw();
    }

    watchSize() {
        const observer = new ResizeObserver(() => {
            if (this.fit()) {
                this.owner.scaleChanged(this.scale);
            }
            this.redraw();
        });
        observer.observe(this.element);
        return () => observer.disconnect();
    }

    /** As wide as there is room. @returns {boolean} whether that is another width */
    fit() {
        this.narrow = this.element.clientWidth < narrowBelow;
        this.element.classList.toggle('narrow', this.narrow);
        const width = Math.floor(this.canvas.clientWidth);
        const isOther = width > 0 && width !== this.scale.width;
        if (isOther) {
            this.scale = this.scale.resized(width);
        }
        return isOther;
    }

    // Drawing

    draw() {
        const {scale, model, canvas} = this;
        const placed = over.packBands(model.bands, scale);
        const layout =
            layoutOf(model.rows, placed.reduce((rows, each) => Math.max(rows, each.row + 1), 0), this.narrow);
        Object.assign(this, {layout, placed, clusters: over.clusterMarks(model.changes, scale)});
        const context = this.sized(layout.height);
        const ticks = scale.ticks(isUtc());
        drawGrounds(context, scale, layout, ticks, this.colours);
        over.drawBandGrounds(context, placed, scale, layout, this.colours);
        layout.places.forEach((place) => drawBins(context, scale, place, model.most, this.colours.ramp));
        over.drawHoles(context, scale, layout, model.holes, this.colours);
        over.drawNow(context, scale, layout, now(), this.colours);
        over.drawAxis(context, scale, layout, ticks, this.colours);
        over.drawBandHeads(context, placed, layout, this.colours);
        over.drawMarks(context, this.clusters, layout, this.colours);
        this.drawCursor(context);
        if (this.range) {
            over.drawRange(context, layout, this.range, this.colours);
        }
        this.drawNames();
        Object.assign(canvas.dataset, {
            since: toText(Math.round(scale.since)),
            until: toText(Math.round(scale.until)),
            bin: model.binSeconds ?? '',
            by: model.by ?? '',
            lanes: model.rows.length,
            bands: placed.map((each) => each.band.id).join(','),
            marks: this.clusters.reduce((n, each) => n + each.changes.length, 0),
            holes: model.holes.filter((hole) => scale.covers(hole.first, hole.last)).length,
        });
    }

    /** The canvas has the pixels of the screen, and is drawn on in those of the page. */
    sized(height) {
        const ratio = window.devicePixelRatio || 1;
        const [width, pixels] = [Math.round(this.scale.width * ratio), Math.round(height * ratio)];
        if (this.canvas.width !== width || this.canvas.height !== pixels) {
            Object.assign(this.canvas, {width, height: pixels});
            this.canvas.style.height = `${height}px`;
        }
        const context = this.canvas.getContext('2d');
        context.setTransform(ratio, 0, 0, ratio, 0, 0);
        context.clearRect(0, 0, this.scale.width, height);
        return context;
    }

    drawCursor(context) {
        const thing = this.chosen();
        const place = thing && this.layout.places.find((each) => each.row.key === thing.row.key);
        if (place) {
            over.drawCursor(context, this.scale, place, thing.first, thing.last, this.colours);
        }
    }

    /** Names are made anew when the lanes are others; else only what they had in the time that is shown changes. */
    drawNames() {
        const rows = this.model.rows;
        const shape = JSON.stringify([this.narrow, rows.map((row) => [row.key, row.open, row.label])]);
        if (shape !== this.shape) {
            this.shape = shape;
            const focused = this.names.contains(document.activeElement) ? document.activeElement.dataset.lane : null;
            fill(this.names, rows.map((row) => this.nameOf(row)));
            const buttons = [...this.names.querySelectorAll('button')];
            const stop = buttons.find((button) => button.dataset.lane === focused) ?? buttons[0];
            buttons.forEach((button) => (button.tabIndex = button === stop ? 0 : -1));
            if (focused !== null) {
                stop?.focus();
            }
        }
        this.names.style.paddingTop = `${this.layout.lanes}px`;
        rows.forEach((row, at) => {
            const node = this.names.children[at];
            node.style.height = `${this.layout.places[at].height}px`;
            const events = eventsWithin(row, this.scale);
            if (node.dataset.events !== String(events)) {
                node.dataset.events = events;
                node.lastChild.textContent = events.toLocaleString('en');
            }
        });
    }

    nameOf(row) {
        const {text, more, opens} = this.owner.label(row);
        const words = [
            el('span', {class: text.includes(':') ? 'lane-name wwn' : 'lane-name'}, text),
            more && el('span', {class: 'lane-more'}, more)
        ];
        const title = [text, more, row.name].filter((part, at, all) => part && all.indexOf(part) === at).join(' · ');
        const name = opens && row.depth === 0 ?
            el('button', {
                type: 'button',
                class: 'lane-label',
                'data-lane': row.name ?? '',
                title,
                'aria-expanded': String(Boolean(row.open)),
                onclick: () => this.owner.toggle(row.name)
            },
               words) :
            el('span', {class: 'lane-label', 'data-lane': row.name ?? '', title}, words);
        return el(
            'div', {class: row.depth ? 'lane child' : 'lane', 'data-row': row.key}, name,
            el('span', {class: 'lane-events', title: 'events in the time that is shown'}));
    }

    /** One stop of Tab for all lanes: arrows go from one to the next. */
    nameKey(event) {
        const by = {ArrowUp: -1, ArrowDown: 1}[event.key];
        const buttons = [...this.names.querySelectorAll('button')];
        const next = by && buttons[buttons.indexOf(document.activeElement) + by];
        if (next) {
            event.preventDefault();
            buttons.forEach((button) => (button.tabIndex = button === next ? 0 : -1));
            next.focus();
        }
    }

    // What is where

    thingAt(x, y) {
        if (!this.layout || x < 0 || x > this.scale.width) {
            return null;
        }
        const band = over.bandAt(this.placed, this.layout, x, y);
        if (band) {
            return {kind: 'band', band};
        }
        const mark = over.markAt(this.clusters, this.layout, x, y);
        if (mark) {
            return {kind: 'mark', changes: mark.changes};
        }
        const place = placeAt(this.layout, y);
        const bin = place && this.binThing(place.row, binAt(place.row, this.scale.toTime(x)));
        const hole = bin?.count ? null : over.holeAt(this.model.holes, this.scale, x);
        return hole && y >= this.layout.marks ? {kind: 'hole', hole} : bin;
    }

    binThing(row, bin) { return {kind: 'bin', row, bin, count: row.counts[bin] ?? 0, ...binTimes(row, bin)}; }

    /** The bin of the cursor, which is a lane and a time: it outlives bins of another size. */
    chosen() {
        const row = this.cursor && this.model.rows.find((each) => each.key === this.cursor.key);
        return row ? this.binThing(row, binAt(row, this.cursor.time)) : null;
    }

    choose(row, bin) {
        const thing = this.binThing(row, bin);
        this.cursor = {key: row.key, time: (thing.first + thing.last) / 2};
        this.owner.choose(thing);
        // One at the border, of which a part is to be seen, moves nothing: what goes on with the clock goes on.
        if (this.scale.toX(thing.last) < 1 || this.scale.toX(thing.first) > this.scale.width - 1) {
            this.move(this.scale.showing(thing.first, thing.last));
        }
        this.redraw();
    }

    dropCursor() {
        this.cursor = null;
        this.owner.choose(null);
        this.redraw();
    }

    // Mouse, touch, keyboard

    move(scale) {
        this.scale = scale;
        this.owner.scaleChanged(scale);
        this.redraw();
    }

    zoom(factor, time) { this.move(this.scale.zoomed(factor, time)); }

    watchMouse() {
        return watchGestures(this.canvas, {
            pan: (pixels) => this.move(this.scale.panned(pixels)),
            zoom: (factor, x) => this.zoom(factor, this.scale.toTime(x)),
            range: (from, to, done) => this.chooseRange(from, to, done),
            tap: (x, y) => this.tap(this.thingAt(x, y)),
            doubleTap: (x) => this.zoom(0.25, this.scale.toTime(x)),
            hover: (x, y) => this.hover(x, y),
            leave: () => this.owner.point(null, 0, 0),
            wheelScrolls: () => this.canvas.clientHeight > 0.8 * window.innerHeight,
        });
    }

    hover(x, y) {
        const thing = this.thingAt(x, y);
        this.canvas.style.cursor = thing && (thing.kind !== 'bin' || thing.count) ? 'pointer' : 'grab';
        this.owner.point(thing, x, y);
    }

    tap(thing) {
        if (thing?.kind === 'bin') {
            this.choose(thing.row, thing.bin);
        } else if (thing?.kind === 'band') {
            this.owner.enter(thing);
        } else if (thing) {
            this.cursor = null;
            this.owner.choose(thing);
            this.redraw();
        } else {
            this.dropCursor();
        }
    }

    chooseRange(from, to, done) {
        const [left, right] = [Math.max(0, Math.min(from, to)), Math.min(this.scale.width, Math.max(from, to))];
        this.range = done ? null : {left, right};
        if (done && right - left > 4) {
            const [first, last] = [this.scale.toTime(left), this.scale.toTime(right)];
            this.zoom(
                (last - first) / this.scale.span,
                first + ((first - this.scale.since) / (this.scale.span - (last - first))) * (last - first));
        }
        this.redraw();
    }

    key(event) {
        const act = event.ctrlKey || event.metaKey || event.altKey ?
            null :
            keys[(event.shiftKey ? 'Shift+' : '') + event.key] ?? keys[event.key];
        if (act) {
            event.preventDefault();
            act(this);
        }
    }

    /** Arrows begin at the last bin with events, of the first lane that has any on the screen. */
    step(byBin, byRow, far = false) {
        const thing = this.chosen();
        const rows = this.model.rows;
        if (!thing || rows.length === 0) {
            this.firstChoice();
            return;
        }
        const at = rows.findIndex((row) => row.key === thing.row.key);
        const row = rows[Math.max(0, Math.min(rows.length - 1, at + byRow))];
        const bin = binAt(row, (thing.first + thing.last) / 2) + byBin;
        const target = far ? nextBin(row, bin - byBin, byBin) ?? bin - byBin : bin;
        this.choose(row, Math.max(0, Math.min(row.counts.length - 1, target)));
    }

    /** The bin of a time, in the lane of the cursor or the first one. */
    stepTo(time) {
        const row = this.chosen()?.row ?? this.model.rows[0];
        if (row) {
            this.choose(row, Math.max(0, Math.min(row.counts.length - 1, binAt(row, time))));
        }
    }

    firstChoice() {
        for (const row of this.model.rows) {
            const bin = nextBin(row, Math.min(row.counts.length, binAt(row, this.scale.until) + 1), -1);
            if (bin !== null && this.scale.covers(row.since + bin * row.bin, row.since + (bin + 1) * row.bin)) {
                this.choose(row, bin);
                return;
            }
        }
    }

    enterChosen() {
        const thing = this.chosen();
        if (thing) {
            this.owner.enter(thing);
        }
    }

    toggleChosen() {
        const row = this.chosen()?.row;
        if (row) {
            this.owner.toggle((row.parent ?? row).name);
        }
    }

    get zoomTime() {
        const thing = this.chosen();
        return thing && this.scale.covers(thing.first, thing.last) ? (thing.first + thing.last) / 2 : this.scale.middle;
    }
}

const keys = {
    ArrowLeft: (chart) => chart.step(-1, 0),
    ArrowRight: (chart) => chart.step(1, 0),
    ArrowUp: (chart) => chart.step(0, -1),
    ArrowDown: (chart) => chart.step(0, 1),
    'Shift+ArrowLeft': (chart) => chart.move(chart.scale.panned(-chart.scale.width / 4)),
    'Shift+ArrowRight': (chart) => chart.move(chart.scale.panned(chart.scale.width / 4)),
    Home: (chart) => chart.stepTo(chart.scale.since),
    End: (chart) => chart.stepTo(Math.min(chart.scale.until, now()) - 1),
    PageUp: (chart) => chart.move(chart.scale.panned(-chart.scale.width)),
    PageDown: (chart) => chart.move(chart.scale.panned(chart.scale.width)),
    p: (chart) => chart.step(-1, 0, true),
    n: (chart) => chart.step(1, 0, true),
    '+': (chart) => chart.zoom(0.5, chart.zoomTime),
    '=': (chart) => chart.zoom(0.5, chart.zoomTime),
    '-': (chart) => chart.zoom(2, chart.zoomTime),
    Enter: (chart) => chart.enterChosen(),
    o: (chart) => chart.toggleChosen(),
    ' ': (chart) => chart.toggleChosen(),
    Escape: (chart) => chart.dropCursor(),
};
