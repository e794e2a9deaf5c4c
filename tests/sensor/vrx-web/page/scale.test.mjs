import assert from 'node:assert/strict';
import test from 'node:test';

import {leastSpan, mostSpan, TimeScale} from '../../../../sensor/vrx-web/page/scale.js';

const at = (text) => Date.parse(text);
const hour = 3600_000;

test('pixels and times are each other\'s inverse, and a scale never changes', () => {
    const scale = new TimeScale(at('2026-11-21T14:00:00Z'), at('2026-11-21T15:00:00Z'), 600);
    for (const x of [-100, 0, 1, 299.5, 600, 900]) assert.ok(Math.abs(scale.toX(scale.toTime(x)) - x) < 1e-6);
    assert.throws(() => {
        scale.since = 0;
    });
    assert.equal(scale.panned(60).toX(scale.toTime(60)), 0);
    assert.equal(scale.resized(300).toX(scale.middle), 150);
});

test('the time under the mouse stays there while zooming, within bounds', () => {
    let scale = new TimeScale(0, hour, 1000);
    const time = scale.toTime(250);
    for (const factor of [0.5, 0.9, 1.7, 4]) {
        scale = scale.zoomed(factor, time);
        assert.ok(Math.abs(scale.toX(time) - 250) < 1e-6);
    }
    for (let i = 0; i < 200; ++i) scale = scale.zoomed(0.5, time);
    assert.equal(scale.span, leastSpan);
    for (let i = 0; i < 200; ++i) scale = scale.zoomed(2, time);
    assert.equal(scale.span, mostSpan);
    assert.ok(new TimeScale(5, 5, 0).span > 0);
});

test('showing moves no farther than it has to', () => {
    const scale = new TimeScale(1000, 2000, 100);
    assert.equal(scale.showing(1200, 1300), scale);
    assert.equal(scale.showing(500, 600).since, 500);
    assert.equal(scale.showing(2400, 2500).until, 2500);
    assert.equal(scale.showing(2400, 9000).since, 2400);
});

test('labels are round times, by the clock of the zone, and have room', () => {
    for (const [since, until, labels] of [
             [
                 '2026-11-21T14:00:20Z', '2026-11-21T14:01:00Z',
                 ['14:00:20', '14:00:30', '14:00:40', '14:00:50', '14:01:00']
             ],
             ['2026-11-21T22:50:00Z', '2026-11-22T01:10:00Z', ['23:00', '23:30', '22 Nov', '00:30', '01:00']],
             ['2026-12-30T00:00:00Z', '2027-01-03T00:00:00Z', ['30 Dec', '31 Dec', '1 Jan 2027', '2 Jan', '3 Jan']],
    ]) {
        assert.deepEqual(new TimeScale(at(since), at(until), 500).ticks(true).map((tick) => tick.label), labels);
    }
    for (let span = leastSpan; span < mostSpan; span *= 1.37) {
        const scale = new TimeScale(at('2026-03-28T13:07:11Z'), at('2026-03-28T13:07:11Z') + span, 900);
        const xs = scale.ticks(true).map((tick) => scale.toX(tick.time));
        assert.ok(xs.length >= 1 && xs.length <= 12, `${span}: ${xs.length}`);
        xs.slice(1).forEach((x, i) => assert.ok(x - xs[i] >= 75.9));
    }
});

test('where the clock is put forward or back, labels are what it shows', () => {
    const before = process.env.TZ;
    process.env.TZ = 'Europe/Berlin';
    try {
        const labels = (since, until) =>
            new TimeScale(at(since), at(until), 600).ticks(false).map((tick) => tick.label);
        assert.deepEqual(
            labels('2026-03-28T22:30:00Z', '2026-03-29T04:30:00Z'),
            ['29 Mar', '01:00', '03:00', '04:00', '05:00', '06:00']);
        assert.deepEqual(
            labels('2026-10-24T21:30:00Z', '2026-10-25T03:30:00Z'), ['25 Oct', '01:00', '02:00', '03:00', '04:00']);
        assert.deepEqual(
            labels('2026-03-27T12:00:00Z', '2026-03-30T12:00:00Z'),
            ['28 Mar', '12:00', '29 Mar', '12:00', '30 Mar', '12:00']);
    } finally {
        process.env.TZ = before ?? '';
    }
});
