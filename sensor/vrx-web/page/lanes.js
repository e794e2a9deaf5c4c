// The lanes of the timeline on a canvas: where each stands, what is under the mouse, and how bins are drawn. Nothing
// here knows of fetching or of the page around it: it is handed a scale and what there is, and draws.

/** What stands above each other, in pixels. Where there is little room, a lane's label is above its bins. */
export const sizes = {
    wide: {axis: 22, incident: 20, mark: 16, label: 0, lane: 26, child: 20, gap: 3},
    narrow: {axis: 22, incident: 20, mark: 16, label: 17, lane: 36, child: 32, gap: 2},
};

export const levels = 16;

const viridis = ['#440154', '#472d7b', '#3b528b', '#2c728e', '#21918c', '#28ae80', '#5ec962', '#addc30', '#fde725'];

/** From few to many on a light or dark ground: what is least stands out from it, and each more than the last. */
export function rampOf(dark) {
    const from = dark ? 1.6 : 6;
    const to = dark ? 8 : 0;
    return Array.from({length: levels}, (_, level) => between(from + ((to - from) * level) / (levels - 1)));
}

function between(place) {
    const low = Math.min(viridis.length - 2, Math.floor(place));
    const part = place - low;
    const channel = (at) => {
        const [a, b] = [viridis[low], viridis[low + 1]].map((colour) => parseInt(colour.slice(at, at + 2), 16));
        return Math.round(a + (b - a) * part);
    };
    return `rgb(${channel(1)}, ${channel(3)}, ${channel(5)})`;
}

/** 0: nothing, 1 to levels: by the logarithm, as a storm has a million times what is ordinary. */
export function levelOf(count, most) {
    if (!(count > 0)) {
        return 0;
    }
    return Math.min(levels, 1 + Math.floor((Math.log(count) / Math.log(most + 1)) * levels));
}

/**
 * @typedef {{key: string, name: string, depth: number, counts: number[], since: number, bin: number}} Row
 *   since and bin in milliseconds
 * @typedef {{row: Row, top: number, height: number, binTop: number, binHeight: number}} Place
 */

/**
 * @param {Row[]} rows @param {number} incidentRows @param {boolean} narrow
 * @returns {{axis: number, incidents: number, incidentHeight: number, marks: number, lanes: number, places: Place[],
 *   height: number}} tops and heights
 */
export function layoutOf(rows, incidentRows, narrow) {
    const size = narrow ? sizes.narrow : sizes.wide;
    const incidents = size.axis;
    const marks = incidents + incidentRows * size.incident;
    const lanes = marks + size.mark;
    let top = lanes;
    const places = rows.map((row) => {
        const height = row.depth ? size.child : size.lane;
        const place = {row, top, height, binTop: top + size.label, binHeight: height - size.label - size.gap};
        top += height;
        return place;
    });
    return {axis: 0, incidents, incidentHeight: size.incident, marks, lanes, places, height: top};
}

/** The number of the bin in which a time is; it may be outside of what the row has. */
export function binAt(row, time) { return Math.floor((time - row.since) / row.bin); }

export function binTimes(row, bin) { return {first: row.since + bin * row.bin, last: row.since + (bin + 1) * row.bin}; }

export function eventsWithin(row, scale) {
    let events = 0;
    const end = Math.min(row.counts.length, Math.ceil((scale.until - row.since) / row.bin));
    for (let bin = Math.max(0, binAt(row, scale.since)); bin < end; ++bin) {
        events += row.counts[bin];
    }
    return events;
}

/** The next bin with events in a direction, or null. */
export function nextBin(row, bin, by) {
    let at = bin + by;
    while (at >= 0 && at < row.counts.length && !(row.counts[at] > 0)) {
        at += by;
    }
    return at >= 0 && at < row.counts.length ? at : null;
}

export function placeAt(layout, y) {
    return layout.places.find((place) => y >= place.top && y < place.top + place.height) ?? null;
}

/**
 * Bins as rectangles: those beside each other of one colour are one, and of those that share a pixel the most counts.
 * @param {CanvasRenderingContext2D} context
 * @param {string[]} ramp
 */
export function drawBins(context, scale, place, most, ramp) {
    const {row, binTop, binHeight} = place;
    const end = Math.min(row.counts.length, Math.ceil((scale.until - row.since) / row.bin));
    let run = null;
    const flush = () => {
        if (!run) {
            return;
        }
        context.fillStyle = ramp[run.level - 1];
        context.fillRect(run.left, binTop, run.right - run.left, binHeight);
    };
    for (let bin = Math.max(0, binAt(row, scale.since)); bin < end; ++bin) {
        const level = levelOf(row.counts[bin], most);
        if (!level) {
            continue;
        }
        const {first, last} = binTimes(row, bin);
        const left = Math.max(0, Math.round(scale.toX(first)));
        const right = Math.min(Math.ceil(scale.width), Math.max(left + 1, Math.round(scale.toX(last))));
        if (run && left < run.right) {
            run.level = Math.max(run.level, level);
            run.right = Math.max(run.right, right);
        } else if (run && left === run.right && level === run.level) {
            run.right = right;
        } else {
            flush();
            run = {left, right, level};
        }
    }
    flush();
}

/** The ground of lanes, and the lines of the axis behind what is in them. */
export function drawGrounds(context, scale, layout, ticks, colours) {
    context.fillStyle = colours.text;
    for (const place of layout.places) {
        context.globalAlpha = place.row.depth ? 0.035 : 0.07;
        context.fillRect(0, place.binTop, scale.width, place.binHeight);
    }
    for (const tick of ticks) {
        context.globalAlpha = tick.major ? 0.3 : 0.12;
        context.fillRect(Math.round(scale.toX(tick.time)), layout.incidents, 1, layout.height - layout.incidents);
    }
    context.globalAlpha = 1;
}
