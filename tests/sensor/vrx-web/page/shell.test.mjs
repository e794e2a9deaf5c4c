// Addresses, times, the stream's events, and pages of records.
import assert from 'node:assert/strict';
import test from 'node:test';
import {readAddress, writeAddress} from '../../../../sensor/vrx-web/page/address.js';
import {EventReader} from '../../../../sensor/vrx-web/page/events.js';
import {mayFit, RecordPages} from '../../../../sensor/vrx-web/page/recordPages.js';
import {bothZones, readTime, setUtc, shortTime, spanText, toMs, toText, writeTime, zoneText} from '../../../../sensor/vrx-web/page/times.js';

test('an address is read as it was written, whatever stands in it', () => {
    for (const [view, params, id, hash] of [
        ['now', {}, null, '#now'],
        ['incident', {}, 12, '#incident/12'],
        ['records', {kind: ['logo', 'rscn'], target: '50:06:01:60', fabric: '', incident: null}, null, '#records?kind=logo&kind=rscn&target=50:06:01:60'],
        ['records', {fabric: 'a&b=c#d?e +%/ü'}, null, null],
    ]) {
        const written = writeAddress(view, params, id);
        assert.equal(written, hash ?? written);
        const read = readAddress(written);
        assert.equal(read.view, view);
        assert.equal(read.id, id === null ? null : String(id));
        for (const [name, value] of Object.entries(params)) {
            assert.deepEqual(read.params.getAll(name), [value].flat().filter(Boolean));
        }
    }
    assert.equal(readAddress('').view, 'now');
    assert.equal(readAddress('#%E0%A4%A').view, 'now');
    assert.equal(readAddress('#incident/').id, null);
});

test('times are of the zone that was chosen, and written back as they were read', () => {
    const text = '2026-11-21T14:38:20.077686509Z';
    setUtc(true);
    assert.equal(toMs(text), Date.UTC(2026, 10, 21, 14, 38, 20, 77));
    assert.equal(shortTime(toMs(text), {digits: 3}), '2026-11-21 14:38:20.077');
    assert.match(bothZones(toMs(text)), /2026-11-21 14:38:20\.077 UTC$/);
    for (const isUtc of [true, false]) {
        setUtc(isUtc);
        const ms = readTime('2026-03-29 08:15');
        assert.equal(writeTime(toText(ms)), '2026-03-29 08:15:00');
        assert.equal(zoneText(ms), zoneText(ms, isUtc));
    }
    for (const other of ['-2h', 'today', '', '2026-11-21T08:00:00+01:00x']) {
        assert.ok(Number.isNaN(readTime(other)));
    }
    assert.equal(writeTime('-2h'), '-2h');
    assert.ok(Number.isNaN(toMs(null)));
    assert.deepEqual([0, 999, 43_000, 119_000, 121_000, 3 * 3600_000 + 5 * 60_000, 9 * 86400_000, -5].map(spanText),
        ['0 ms', '999 ms', '43 s', '119 s', '2 min', '3 h 5 min', '9 days', '0 ms']);
});

test('events of a stream are whole wherever it was cut', () => {
    const stream = 'retry: 2000\n\n: keep-alive\n\nid: 7\nevent: record\ndata: {"a":1}\n\nid:8\r\ndata: x\r\ndata:y\r\n\r\nevent: empty\n\n';
    for (const size of [1, 2, 3, 7, 1000]) {
        const reader = new EventReader();
        const events = [];
        for (let at = 0; at < stream.length; at += size) {
            events.push(...reader.read(stream.slice(at, at + size)));
        }
        assert.deepEqual(events, [{id: '7', type: 'record', data: '{"a":1}'}, {id: '8', type: 'message', data: 'x\ny'}], `${size}`);
        assert.equal(reader.lastId, '8');
        assert.equal(reader.retry, 2000);
    }
});

test('the newest records come before those that are there, and a gap begins anew', () => {
    const page = (from, to, next) => ({records: Array.from({length: from - to + 1}, (_, at) => ({id: from - at})), next});
    const ids = (pages) => pages.records.map(({id}) => id);
    const pages = new RecordPages();
    pages.putNewest(page(10, 8, 'a'));
    pages.putOlder(page(8, 5, 'b'));
    assert.deepEqual([ids(pages), pages.next], [[10, 9, 8, 7, 6, 5], 'b']);
    pages.putNewest(page(11, 9, 'c'));
    assert.deepEqual([ids(pages), pages.next], [[11, 10, 9, 8, 7, 6, 5], 'b']);
    pages.putNewest(page(30, 28, 'd'));
    assert.deepEqual([ids(pages), pages.next], [[30, 29, 28], 'd']);

    const record = {kind: 'logo', fabric: 'left', initiator: {port_name: '10:00'}, remote_port_name: '50:06', names: {target: 'array1-A0'}};
    for (const [query, fits] of [['', true], ['kind=rscn&kind=logo', true], ['kind=rscn', false], ['target=array1-A0', true], ['target=50:06&fabric=right', false], ['until=-1h', false]]) {
        assert.equal(mayFit(record, new URLSearchParams(query)), fits, query);
    }
});
