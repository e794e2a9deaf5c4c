import assert from 'node:assert/strict';
import test from 'node:test';

import {
    binAt,
    drawBins,
    drawGrounds,
    eventsWithin,
    layoutOf,
    levelOf,
    levels,
    nextBin,
    placeAt,
    rampOf
} from '../../../../sensor/vrx-web/page/lanes.js';
import {
    bandAt,
    clusterMarks,
    drawBandGrounds,
    drawBandHeads,
    drawHoles,
    drawMarks,
    holeAt,
    markAt,
    packBands
} from '../../../../sensor/vrx-web/page/overlays.js';
import {TimeScale} from '../../../../sensor/vrx-web/page/scale.js';

import {recordingCanvas} from './recordingCanvas.mjs';

const ramp = Array.from({length: levels}, (_, level) => `level${level + 1}`);
const colours = {
    text: 'text',
    ground: 'ground',
    hole: 'hole',
    mark: 'mark',
    ramp,
    states: {open: 'open', quiet: 'quiet', closed: 'closed'}
};
const row = (counts, {since = 0, bin = 10, name = 'a', depth = 0} = {}) =>
    ({key: name, name, depth, counts, since, bin});
const drawn = (counts, scale) => {
    const canvas = recordingCanvas();
    drawBins(canvas, scale, layoutOf([row(counts)], 0, false).places[0], 1000, ramp);
    return canvas.of('fillRect').map(([x, , width]) => [x, width]);
};

test('bins are rectangles with gaps between them, and those of one colour are one', () => {
    const scale = new TimeScale(0, 100, 100);
    assert.deepEqual(drawn([0, 5, 5, 0, 5, 900], scale), [[10, 20], [40, 10], [50, 10]]);
    assert.deepEqual(drawn([], scale), []);
    assert.deepEqual(
        drawn([5, 0, 0, 0, 0, 0, 0, 0, 0, 5, 5], scale), [[0, 10], [90, 10]], 'what is beyond the screen is not drawn');
    assert.deepEqual(drawn([5, 5, 5, 5], new TimeScale(15, 35, 100)), [[0, 100]]);
});

test('where several bins share a pixel none is lost, and the most counts', () => {
    const canvas = recordingCanvas();
    const scale = new TimeScale(0, 10000, 10);
    const counts = Array(1000).fill(0);
    counts[150] = 1;
    counts[155] = 1000;
    counts[160] = 2;
    drawBins(canvas, scale, layoutOf([row(counts)], 0, false).places[0], 1000, ramp);
    assert.deepEqual(
        canvas.calls.map((call) => [call.values[0], call.values[2], call.fill]), [[2, 1, `level${levels}`]]);
});

test('levels rise with the logarithm, and one event is to be seen beside a million', () => {
    assert.deepEqual([0, -1, NaN].map((count) => levelOf(count, 100)), [0, 0, 0]);
    for (const most of [1, 2, 100, 1e6, 1e12]) {
        assert.equal(levelOf(1, most), 1);
        assert.ok(levelOf(most, most) >= (most > 100 ? levels : 1) && levelOf(most, most) <= levels);
        for (let count = 2; count <= most; count *= 3) assert.ok(levelOf(count, most) >= levelOf(count / 2, most));
    }
    for (const dark of [false, true]) {
        const light = rampOf(dark)
                          .map((colour) => colour.match(/\d+/g).map(Number))
                          .map(([r, g, b]) => 0.2126 * r + 0.7152 * g + 0.0722 * b);
        light.slice(1).forEach(
            (each, i) => assert.ok(dark ? each > light[i] : each < light[i], 'lightness alone tells them apart'));
    }
});

test('a lane is found where it is drawn, wide and narrow', () => {
    const rows = [row([1]), row([2], {name: 'b', depth: 1}), row([3], {name: 'c'})];
    for (const narrow of [false, true]) {
        const layout = layoutOf(rows, 2, narrow);
        layout.places.forEach((place) => {
            assert.equal(placeAt(layout, place.top), place);
            assert.equal(placeAt(layout, place.top + place.height - 1), place);
            assert.ok(place.binTop >= place.top && place.binTop + place.binHeight <= place.top + place.height);
        });
        assert.equal(placeAt(layout, layout.lanes - 1), null);
        assert.equal(placeAt(layout, layout.height), null);
        const canvas = recordingCanvas();
        drawGrounds(canvas, new TimeScale(0, 100, 100), layout, [{time: 50, label: 'x', major: false}], colours);
        assert.equal(canvas.calls.length, 4);
        assert.ok(canvas.calls.every((call) => call.values[1] + call.values[3] <= layout.height));
    }
});

test('arrows go from bin to bin with events, and sums are of what is shown', () => {
    const lane = row([0, 4, 0, 0, 5, 0], {since: 100});
    assert.deepEqual(
        [nextBin(lane, 1, 1), nextBin(lane, 4, 1), nextBin(lane, 4, -1), nextBin(lane, 0, -1)], [4, null, 1, null]);
    assert.equal(binAt(lane, 119), 1);
    assert.equal(eventsWithin(lane, new TimeScale(0, 1000, 10)), 9);
    assert.equal(eventsWithin(lane, new TimeScale(112, 118, 10)), 4);
    assert.equal(eventsWithin(lane, new TimeScale(120, 139, 10)), 0);
});

const band = (id, first, last, state = 'closed', ongoing = false) =>
    ({id, title: `t${id}`, state, first, last, ongoing, concerns: (each) => each.name === 'a'});

test('incidents that overlap are above each other, and each is where the mouse finds it', () => {
    const scale = new TimeScale(0, 100, 1000);
    const placed = packBands(
        [band(1, 0, 20), band(2, 10, 30), band(3, 25, 40), band(4, 200, 300), band(5, 26, 28), band(6, 27, 27)], scale);
    assert.deepEqual(placed.map((each) => [each.band.id, each.row]), [[1, 0], [2, 1], [3, 0], [5, 2], [6, 3]]);
    const layout = layoutOf([row([1]), row([1], {name: 'b'})], 4, false);
    assert.equal(bandAt(placed, layout, 150, layout.incidents + 25).id, 2);
    assert.equal(bandAt(placed, layout, 500, layout.incidents + 5), null);
    assert.equal(bandAt(placed, layout, 150, layout.marks), null);
    const canvas = recordingCanvas();
    const three = packBands([band(1, 10, 20), band(2, 30, 40, 'quiet'), band(3, 50, 90, 'open', true)], scale);
    drawBandGrounds(canvas, three, scale, layout, colours);
    drawBandHeads(canvas, three, layout, colours);
    const over = canvas.calls.filter(
        (call) => call.name === 'fillRect' && call.values[1] === layout.places[0].binTop && call.values[2] > 1);
    assert.deepEqual(
        over.map((call) => [call.values[0], call.values[2], call.fill]),
        [[100, 100, 'closed'], [300, 100, 'quiet'], [500, 400, 'open']]);
    assert.ok(
        !canvas.calls.some((call) => call.values[1] === layout.places[1].binTop),
        'a lane that is not concerned has none');
    assert.deepEqual(
        canvas.calls.filter((call) => call.name === 'strokeRect').map((call) => call.dash.length > 0),
        [false, true, false]);
    assert.deepEqual(canvas.of('fillText').map(([text]) => text), ['1 t1', '2 t2', '3 t3']);
});

test('changes that touch are one mark, and the mark knows them all', () => {
    const scale = new TimeScale(0, 100, 1000);
    const clusters = clusterMarks([50, 10, 50.5, 51, 200].map((at) => ({at})), scale);
    assert.deepEqual(clusters.map((each) => [each.x, each.changes.length]), [[100, 1], [500, 3]]);
    const layout = layoutOf([], 0, false);
    assert.equal(markAt(clusters, layout, 505, layout.marks + 3).changes.length, 3);
    assert.equal(markAt(clusters, layout, 300, layout.marks + 3), null);
    const canvas = recordingCanvas();
    drawMarks(canvas, clusters, layout, colours);
    assert.deepEqual([canvas.of('fill').length, canvas.of('fillRect').length], [2, 1]);
});

test('holes are hatched where they are, also one of a moment, and nowhere else', () => {
    const scale = new TimeScale(0, 100, 1000);
    const layout = layoutOf([row([1])], 0, false);
    const holes = [{first: 10, last: 20}, {first: 50, last: 50}, {first: 90, last: 900}, {first: 200, last: 300}];
    const canvas = recordingCanvas();
    drawHoles(canvas, scale, layout, holes, colours);
    assert.deepEqual(canvas.of('rect').map(([x, , width]) => [x, width]), [[100, 100], [500, 4], [900, 102]]);
    assert.equal(canvas.of('clip').length, 3);
    assert.ok(canvas.of('lineTo').length >= 3 * 3);
    assert.equal(canvas.of('save').length, canvas.of('restore').length);
    assert.equal(holeAt(holes, scale, 150), holes[0]);
    assert.equal(holeAt(holes, scale, 502), holes[1]);
    assert.equal(holeAt(holes, scale, 300), null);
});
