import assert from 'node:assert/strict';
import test from 'node:test';

import {curvesOf, roundUp} from '../../../../sensor/vrx-web/page/measureSeries.js';
import {leastSpan, TimeScale} from '../../../../sensor/vrx-web/page/scale.js';
import {readTimes, spanName, spanOf} from '../../../../sensor/vrx-web/page/spans.js';
import {TimelineData} from '../../../../sensor/vrx-web/page/timelineData.js';

const start = Date.parse('2026-11-21T14:00:00Z');
const port = (name) => ({port_name: name, name: null, array: null, controller: null, switch_port: null});

test('an address has a span that goes on, or two moments; what makes no sense is a day up to now', () => {
    for (const [ms, name] of [[60_000, '-1min'], [90_000, '-90s'], [3600_000, '-1h'], [30 * 86400_000, '-30d']]) {
        assert.equal(spanName(ms), name);
        assert.equal(spanOf(name), ms);
    }
    assert.deepEqual(['-5', '5h', 'yesterday', null, '-1h<b>'].map(spanOf), [null, null, null, null, null]);
    assert.equal(spanOf('-1s'), leastSpan);
    const read = (text) => readTimes(new URLSearchParams(text));
    const fixed = read('since=2026-11-21T14:00:00Z&until=2026-11-21T15:00:00Z');
    assert.deepEqual([fixed.since, fixed.until, fixed.follows], [start, start + 3600_000, false]);
    const before = read('since=-6h&until=-1h');
    assert.deepEqual([Math.round((before.until - before.since) / 1000), before.follows], [5 * 3600, false]);
    assert.equal(spanOf('-10m'), 600_000);
    for (const [text, span] of [
             ['', 86400_000],
             ['since=-6h', 6 * 3600_000],
             ['since=x&until=y', 86400_000],
             ['since=2026-11-21T15:00:00Z&until=2026-11-21T14:00:00Z', null],
    ]) {
        const {since, until, follows} = read(text);
        assert.ok(follows && until > since && (span === null || Math.abs(until - since - span) < 1000), text);
    }
});

/** Answers as the API gives them, for what is asked. */
function answering(change = {}) {
    const asked = [];
    const ask = async (address) => {
        const {pathname, searchParams: params} = new URL(address, 'http://host');
        asked.push(address);
        const bins = Number(params.get('bins'));
        const lanes = (names) =>
            names.map((name, at) => ({name, label: null, array: null, counts: Array(bins).fill(at)}));
        switch (pathname) {
            case '/api/v1/timeline':
                return {
                    since: params.get('since'),
                    bin_seconds: 10,
                    holes: [],
                    lanes: lanes(params.get('initiator') ? ['t1', ''] : change.names ?? ['', 'a', 'b']),
                };
            case '/api/v1/incidents': return {incidents: change.incidents ?? []};
            default: return {changes: []};
        }
    };
    return {ask, asked};
}

test('a lane opens into what is in it, what is left over is last, and lanes keep their place', async () => {
    const change = {};
    const {ask, asked} = answering(change);
    const data = new TimelineData(ask);
    const scale = new TimeScale(start, start + 600_000, 600);
    const shape = (model) => model.rows.map((row) => [row.name, row.depth]);
    assert.deepEqual(shape(await data.load(scale, 'initiator', [])), [['a', 0], ['b', 0], ['', 0]]);
    change.names = ['b', 'c', 'a'];
    data.outdate(start, start);
    const model = await data.load(scale, 'initiator', ['b']);
    assert.deepEqual(shape(model), [['a', 0], ['b', 0], ['t1', 1], ['', 1], ['c', 0]]);
    assert.equal(model.rows[2].parent.name, 'b');
    assert.ok(asked.some((address) => /by=target.*initiator=b|initiator=b.*by=target/.test(address)));
    const times = asked.length;
    await data.load(scale.panned(100), 'initiator', ['b']);
    assert.equal(asked.length, times, 'a sixth of the width asks nothing');
    assert.ok(data.upToDate(scale, 'initiator', ['b']));
    assert.ok(!data.upToDate(scale.zoomed(30), 'initiator', ['b']));
});

test('a band lies over the lanes that its incident names, and one that became part of another is none', async () => {
    const incident = {
        id: 7,
        title: 'x',
        state: 'closed',
        opened: '2026-11-21T14:00:00Z',
        last: '2026-11-21T14:01:00Z',
        merged: null,
        closed: '2026-11-21T14:02:00Z',
        initiators: [port('a')],
        targets: [port('t1')],
        fabrics: ['left'],
    };
    const {ask} =
        answering({incidents: [incident, {...incident, id: 8, merged: 7}, {...incident, id: 9, initiators: []}]});
    const {rows, bands} =
        await new TimelineData(ask).load(new TimeScale(start, start + 600_000, 600), 'initiator', ['a']);
    assert.deepEqual(bands.map((band) => band.id), [7, 9]);
    assert.deepEqual(rows.filter((row) => bands[0].concerns(row)).map((row) => row.name), ['a', 't1']);
    assert.equal(
        rows.filter((row) => bands[1].concerns(row)).length, rows.length - 1, 'all but a target that it does not name');
    assert.deepEqual([bands[0].first, bands[0].last], [start, start + 120_000]);
});

test('curves are means of sums, gaps where nothing ran, and of many ports those with most', () => {
    const measure = (name, of, values) => ({name, initiator: port(of), target: port(`t-${of}`), lun: 0, values});
    const curves = curvesOf(
        {
            bin_seconds: 60,
            since: '2026-11-21T14:00:00Z',
            measures: [
                measure('commands', 'a', [60, 0, null]),
                measure('commands', 'a', [60, 0, 0]),
                measure('command_us', 'a', [240_000, 0, null]),
                measure('slowest_us', 'a', [5000, 0, 0]),
                measure('slowest_us', 'a', [9000, 0, 0]),
                measure('invalid_crc_count', 'b', [0, 2, 0]),
                measure('link_failure_count', 'b', [0, 1, 0]),
                ...'cdefghi'.split('').map((name, at) => measure('commands', name, [600 * (at + 1), 0, 0])),
            ]
        },
        'initiator');
    const [mean, slowest, rate, errors] = curves;
    assert.deepEqual(curves.map((curve) => curve.name), ['mean', 'slowest', 'rate', 'errors']);
    assert.deepEqual(mean.series.map((series) => [series.key, series.values]), [['a', [2, null, null]]]);
    assert.deepEqual(slowest.series[0].values, [9, null, null]);
    assert.deepEqual(errors.series.map((series) => [series.key, series.values]), [['b', [0, 3, 0]]]);
    assert.deepEqual([rate.series.map((series) => series.key).join(''), rate.left, rate.most], ['ihgfed', 2, 70]);
    const begun = {
        bin_seconds: 60,
        since: '2026-11-21T14:00:00Z',
        measures: [measure('commands', 'a', [60, 30, 1, 0])]
    };
    assert.deepEqual(curvesOf(begun, 'initiator', start + 90_000)[0].series[0].values, [1, 1, null, null]);
    assert.deepEqual(curvesOf({bin_seconds: 60, measures: []}, 'target'), []);
    assert.deepEqual(
        [0.03, 1, 1.1, 70, 999].map(roundUp).map((value) => Number(value.toPrecision(3))), [0.05, 1, 2, 100, 1000]);
});
