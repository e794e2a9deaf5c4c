import assert from 'node:assert/strict';
import test from 'node:test';

import {AnswerCache, boundsFit, boundsFor, resolutionFor, resolutions} from '../../../../sensor/vrx-web/page/bins.js';
import {leastSpan, mostSpan, TimeScale} from '../../../../sensor/vrx-web/page/scale.js';

const start = Date.parse('2026-11-21T14:03:07Z');
const day = 86_400_000;

test('bins are no narrower than a pixel, and no coarser than they need be', () => {
    for (const [span, width, seconds] of [
             [60_000, 1000, 10],
             [9_999_000, 1000, 10],
             [10_001_000, 1000, 60],
             [day, 1000, 300],
             [30 * day, 1000, 3600],
             [30 * day, 300, 21600],
             [400 * day, 300, 86400],
             [day, 5000, 300],
    ]) {
        assert.equal(resolutionFor(new TimeScale(start, start + span, width)), seconds, `${span} in ${width}`);
    }
});

test('bounds are whole bins, three widths, never more than may be asked for, and agree while panning', () => {
    for (let span = leastSpan; span < mostSpan; span *= 1.31) {
        for (const width of [300, 1000, 3800]) {
            const scale = new TimeScale(start, start + span, width);
            const bounds = boundsFor(scale);
            assert.ok(resolutions.includes(bounds.resolution));
            assert.equal(bounds.since % (bounds.resolution * 1000), 0);
            assert.equal(bounds.bins % 1, 0);
            assert.ok(bounds.bins <= 4096, `${bounds.bins} of ${bounds.resolution}`);
            assert.ok(boundsFit(bounds, scale));
            const addresses = new Set();
            let held = bounds;
            for (let x = 0; x < 2 * width; x += width / 20) {
                const there = scale.panned(x);
                if (!boundsFit(held, there)) held = boundsFor(there);
                addresses.add(`${held.since} ${held.until}`);
            }
            assert.ok(addresses.size <= 4, `${addresses.size} fetches for two widths`);
        }
    }
});

test('a view asks once, shows what it has meanwhile, and asks again when something happened', async () => {
    const asked = [];
    let answer;
    const cache = new AnswerCache(
        (address) => new Promise((resolve, reject) => {
            asked.push(address);
            answer = {resolve, reject};
        }),
        2);
    const first = cache.get('a', {since: 0, until: 100});
    const second = cache.get('a', {since: 0, until: 100});
    assert.equal(cache.look('a'), undefined);
    answer.resolve(1);
    assert.deepEqual([await first, await second, asked.length], [1, 1, 1]);
    assert.ok(cache.fresh('a'));
    cache.outdate(101, 200);
    assert.ok(cache.fresh('a'));
    cache.outdate(90, 95, 'b');
    assert.ok(cache.fresh('a'));
    cache.outdate(90, 95, 'a');
    assert.equal(cache.look('a'), 1);
    const third = cache.get('a', {since: 0, until: 100});
    cache.outdate(50, 50);
    answer.resolve(2);
    assert.equal(await third, 2);
    assert.ok(!cache.fresh('a'), 'news on the way of an answer may not be in it');
    const fourth = cache.get('a', {since: 0, until: 100});
    answer.reject(new Error('gone'));
    await assert.rejects(fourth);
    assert.equal(cache.look('a'), 2);
});

test('the oldest answers go first', async () => {
    const cache = new AnswerCache(async (address) => address, 2);
    for (const address of ['a', 'b', 'a', 'c']) await cache.get(address, {since: 0, until: 1});
    assert.deepEqual(['a', 'b', 'c'].map((each) => cache.look(each)), ['a', undefined, 'c']);
});
