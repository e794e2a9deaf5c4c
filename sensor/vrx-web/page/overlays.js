// What lies over and above the lanes: the axis, incidents as bands, changes as marks, hatched holes, and the cursor.
// What is told by a colour is told by a shape as well.

const font = '12px system-ui, sans-serif';
const markHalf = 5;
const hatchApart = 7;

export const mostIncidentRows = 4;
const leastBand = 12;

const labelRoom = (text) => 4 + 7 * text.length;
const idRoom = (band) => 16 + 7 * String(band.id).length;

/**
 * @typedef {{id: number, title: string, state: string, first: number, last: number, ongoing: boolean,
 *   concerns: (row: object) => boolean}} Band
 */

/**
 * Rows for bands, so that none lies over another: each in the first row with room. What finds none is in the last one.
 * @param {Band[]} bands
 * @returns {{band: Band, left: number, right: number, row: number, label: number}[]} label: where its number stands
 *   outside of it, else 0
 */
export function packBands(bands, scale) {
    const ends = [];
    const placed = [];
    for (const band of [...bands].sort((a, b) => a.first - b.first || a.id - b.id)) {
        if (!scale.covers(band.first, band.last)) {
            continue;
        }
        const left = Math.max(-8, Math.min(scale.toX(band.first), scale.width - leastBand));
        const right = Math.min(scale.width + 8, Math.max(scale.toX(band.last), left + leastBand));
        // Where the number has no room in it, it stands beside it.
        let label = right - Math.max(0, left) < idRoom(band) ? idRoom(band) : 0;
        const isLast = right + label > scale.width;
        const [begin, end] = [left - (isLast ? label : 0), right + (isLast ? 0 : label)];
        let row = ends.findIndex((each) => each + 2 <= begin);
        if (row < 0) {
            label = ends.length < mostIncidentRows ? label : 0;
            row = Math.min(ends.length, mostIncidentRows - 1);
        }
        ends[row] = Math.max(ends[row] ?? -Infinity, end);
        placed.push({band, left, right, row, label: label && (isLast ? left - label + 4 : right + 4)});
    }
    return placed;
}

/** Marks that would touch are one. @returns {{x: number, changes: object[]}[]} */
export function clusterMarks(changes, scale) {
    const clusters = [];
    for (const change of [...changes].sort((a, b) => a.at - b.at)) {
        const x = scale.toX(change.at);
        const last = clusters.at(-1);
        if (last && x - last.x < 2 * markHalf + 2) {
            last.changes.push(change);
        } else if (scale.covers(change.at, change.at)) {
            clusters.push({x, changes: [change]});
        }
    }
    return clusters;
}

export function bandAt(placed, layout, x, y) {
    const row = Math.floor((y - layout.incidents) / layout.incidentHeight);
    return y >= layout.marks ?
        null :
        placed.find((each) => each.row === row && x >= each.left - 2 && x <= each.right + 2)?.band ?? null;
}

export function markAt(clusters, layout, x, y) {
    const isThere = y >= layout.marks && y < layout.lanes;
    return isThere ? clusters.find((each) => Math.abs(each.x - x) <= markHalf + 3) ?? null : null;
}

export function holeAt(holes, scale, x) {
    const slack = (3 / scale.width) * scale.span;
    const time = scale.toTime(x);
    return holes.find((hole) => time >= hole.first - slack && time <= hole.last + slack) ?? null;
}

export function drawAxis(context, scale, layout, ticks, colours) {
    context.font = font;
    context.fillStyle = colours.text;
    context.textBaseline = 'middle';
    context.textAlign = 'left';
    for (const tick of ticks) {
        const x = Math.round(scale.toX(tick.time));
        context.globalAlpha = tick.major ? 1 : 0.75;
        if (x + labelRoom(tick.label) <= scale.width) {
            context.fillText(tick.label, x + 4, layout.axis + 11);
        }
        context.fillRect(x, layout.axis + 4, 1, layout.incidents - 4);
    }
    context.globalAlpha = 1;
}

/** Lines from lower left to upper right over each hole, and its borders; at least so wide that it can be seen. */
export function drawHoles(context, scale, layout, holes, colours) {
    const top = layout.marks;
    const height = layout.height - top;
    context.strokeStyle = colours.hole;
    for (const hole of holes) {
        if (!scale.covers(hole.first, hole.last)) {
            continue;
        }
        const left = Math.max(-2, Math.floor(scale.toX(hole.first)));
        const right = Math.max(left + 4, Math.min(scale.width + 2, Math.ceil(scale.toX(hole.last))));
        context.save();
        context.beginPath();
        context.rect(left, top, right - left, height);
        context.clip();
        context.lineWidth = 1.5;
        context.beginPath();
        // From a multiple of the distance: the pattern stays where it is while the hole's border is beyond the screen.
        for (let x = Math.floor((left - height) / hatchApart) * hatchApart; x < right; x += hatchApart) {
            context.moveTo(x, top + height);
            context.lineTo(x + height, top);
        }
        context.stroke();
        context.strokeRect(left + 0.5, top + 0.5, right - left - 1, height - 1);
        context.restore();
    }
}

/** Behind the bins of the lanes that incidents concern, as long as they lasted: colours of bins stay what they are. */
export function drawBandGrounds(context, placed, scale, layout, colours) {
    for (const {band} of placed) {
        const left = Math.round(Math.max(-2, scale.toX(band.first)));
        const right = Math.max(left + 2, Math.round(Math.min(scale.width + 2, scale.toX(band.last))));
        context.fillStyle = colours.states[band.state];
        for (const place of layout.places.filter((each) => band.concerns(each.row))) {
            context.globalAlpha = 0.16;
            context.fillRect(left, place.binTop, right - left, place.binHeight);
            context.globalAlpha = 0.8;
            context.fillRect(left, place.binTop, 1, place.binHeight);
            if (!band.ongoing) {
                context.fillRect(right - 1, place.binTop, 1, place.binHeight);
            }
        }
    }
    context.globalAlpha = 1;
}

/** Open: full, with an open end. Quiet: dashed. Closed: an outline. */
function drawBandHead(context, {band, left, right, row, label}, layout, colours) {
    const colour = colours.states[band.state];
    const top = layout.incidents + row * layout.incidentHeight + 1;
    const height = layout.incidentHeight - 3;
    context.fillStyle = colours.ground;
    context.fillRect(left, top, right - left, height);
    context.fillStyle = colour;
    context.globalAlpha = band.state === 'open' ? 0.3 : 0.12;
    context.fillRect(left, top, right - left, height);
    context.globalAlpha = 1;
    context.strokeStyle = colour;
    context.lineWidth = band.state === 'closed' ? 1 : 2;
    context.setLineDash(band.state === 'quiet' ? [4, 3] : []);
    context.strokeRect(left + 0.5, top + 0.5, right - left - 1 + (band.ongoing ? 12 : 0), height - 1);
    context.setLineDash([]);
    context.fillRect(left, top, 4, height);
    if (label) {
        context.fillStyle = colours.text;
        context.fillText(String(band.id), label, top + height / 2 + 0.5);
    }
    const text = Math.max(0, left) + 8;
    if (label || right - text < 16) {
        return;
    }
    context.save();
    context.beginPath();
    context.rect(text, top, right - text - 3, height);
    context.clip();
    context.fillStyle = colours.text;
    context.fillText(`${band.id} ${band.title}`, text, top + height / 2 + 0.5);
    context.restore();
}

/** What goes on lies over what is over. */
export function drawBandHeads(context, placed, layout, colours) {
    context.font = font;
    context.textBaseline = 'middle';
    context.textAlign = 'left';
    for (const ongoing of [false, true]) {
        placed.filter((each) => each.band.ongoing === ongoing)
            .forEach((each) => drawBandHead(context, each, layout, colours));
    }
}

/** A diamond is one change, a diamond with a bar beneath it is more. */
export function drawMarks(context, clusters, layout, colours) {
    const middle = layout.marks + 7;
    context.fillStyle = colours.mark;
    for (const {x, changes} of clusters) {
        context.beginPath();
        context.moveTo(x, middle - markHalf);
        context.lineTo(x + markHalf, middle);
        context.lineTo(x, middle + markHalf);
        context.lineTo(x - markHalf, middle);
        context.closePath();
        context.fill();
        if (changes.length > 1) context.fillRect(x - markHalf, middle + markHalf + 1, 2 * markHalf, 2);
    }
}

/** Where the keyboard or the mouse is. */
export function drawCursor(context, scale, place, first, last, colours) {
    const left = Math.max(1, Math.round(scale.toX(first)));
    const right = Math.min(scale.width - 1, Math.max(left + 3, Math.round(scale.toX(last))));
    context.lineWidth = 2;
    context.strokeStyle = colours.ground;
    context.strokeRect(left - 1, place.binTop - 1, right - left + 2, place.binHeight + 2);
    context.strokeStyle = colours.text;
    context.strokeRect(left - 2.5, place.binTop - 2.5, right - left + 5, place.binHeight + 5);
}

/** Behind it nothing can be yet. */
export function drawNow(context, scale, layout, now, colours) {
    if (!scale.covers(now, now)) {
        return;
    }
    const x = Math.round(scale.toX(now));
    context.fillStyle = colours.text;
    context.globalAlpha = 0.06;
    context.fillRect(x, layout.incidents, scale.width - x, layout.height - layout.incidents);
    context.globalAlpha = 0.6;
    context.fillRect(x, layout.incidents, 1, layout.height - layout.incidents);
    context.globalAlpha = 1;
}

/** What is being chosen with the mouse. */
export function drawRange(context, layout, {left, right}, colours) {
    context.fillStyle = colours.text;
    context.globalAlpha = 0.18;
    context.fillRect(left, layout.incidents, right - left, layout.height - layout.incidents);
    context.globalAlpha = 1;
}
