// What the page calls things is what the other programs call them.
import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';
import test from 'node:test';
import {operations} from '../../../../sensor/vrx-web/page/operations.js';
import {byteLines, lunText, recordFields, recordLine} from '../../../../sensor/vrx-web/page/recordWords.js';
import {className, kinds, ranges, signText} from '../../../../sensor/vrx-web/page/words.js';

const source = (path) => readFileSync(new URL(`../../../../${path}`, import.meta.url), 'utf8');

test('kinds, operations, classes and signs are those of the programs', () => {
    const names = source('sensor/model/EventBlock.cpp').matchAll(/\{\{\d+, \d+, "(\w+)"\}/g);
    assert.deepEqual([...names].map(([, name]) => name).sort(), [...kinds.keys()].sort());

    const [, table] = /sScsiOperations\[\] = \{([^;]*)\};/.exec(source('sensor/model/EventNames.cpp'));
    const rows = [...table.matchAll(/\{(0x\w+), "([^"]+)"\}/g)].map(([, code, name]) => [Number(code), name]);
    assert.deepEqual(rows.sort(([a], [b]) => a - b), [...operations].sort(([a], [b]) => a - b));

    const signs = [...source('sensor/incident/IncidentRules.cpp').matchAll(/\{Sign::\w+, "(\w+)", Weight::\w+, [\d, ]+,\s*"([^"]+)"\}/g)];
    assert.ok(signs.length > 40);
    for (const [, name, text] of signs) {
        assert.equal(signText(name), text);
    }
    const classes = [...source('docs/incidents.md').matchAll(/^\| `(\w+)` \| .* \| (yes|no) \| .* \|$/gm)].map(([, name]) => name);
    assert.equal(classes.length, 13);
    classes.forEach((name) => assert.notEqual(className(name), name.includes('_') ? name : ''));
});

test('numbers that follow one another are a range, and a full set is all', () => {
    assert.equal(ranges([1, 2, 3, 7, 9, 10]), '1–3, 7, 9–10');
    assert.equal(ranges([1, 3, 5, 7], 2), '1, 3, … (4 in all)');
    assert.equal(lunText([4, 3, 3]), '3–4');
    assert.equal(lunText([0xffffffff]), 'all');
    assert.equal(lunText(Array.from({length: 256}, (_, at) => at)), 'all');
    assert.equal(lunText([]), 'none');
});

const check = {
    remote_port_name: '50:06:01:60:3b:20:11:0c', sense_key: 2, sense_key_name: 'not ready', asc: 4, ascq: 10,
    sense_text: 'not ready: asymmetric access state transition', luns: [3, 4], operation_codes: [0x28, 0xfe], queue_tags: [],
};

test('a record is a line in words, whatever of it is not told', () => {
    const line = (kind, event) => recordLine({kind, event});
    assert.equal(line('check_condition', check), 'not ready: asymmetric access state transition (2/04/0a), LUN 3–4, READ(10), 0xfe');
    assert.equal(line('check_condition', {...check, sense_text: null, sense_key_name: null, luns: [], operation_codes: []}), 'sense 2/04/0a');
    assert.equal(line('check_condition', {...check, sense_key: null, sense_text: null, sense_key_name: null}), 'sense, LUN 3–4, READ(10), 0xfe');
    assert.equal(line('ls_rjt', {rejected_command: 3, rejected_command_name: 'PLOGI', rejections: [
        {reason: 9, reason_name: 'unable to perform command request'}, {reason: 254, reason_name: null}]}),
        'PLOGI rejected, unable to perform command request, 0xfe');
    assert.equal(line('ls_rjt', {rejected_command: null, rejected_command_name: null, rejections: []}), 'a request rejected');
    assert.equal(line('fcp_read_check_error', {operation_code: 0x28, operation_name: 'READ(10)', lun: 0, residuals: [512]}),
        'READ(10), LUN 0, 512 bytes missing');
    assert.equal(line('queue_depth_change', {changes: [{lun: 3, new_depth: 16}]}), 'LUN 3: depth 16');
    assert.equal(line('link', {}), '');
    assert.equal(line('check_condition', null), '');
    assert.equal(line('of another day', {a: 1}), '');
});

test('each field is there by name, with what its number means', () => {
    const fields = new Map(recordFields({event: check}));
    assert.equal(fields.get('sense key'), 'not ready (0x2)');
    assert.equal(fields.get('operations'), 'READ(10) (0x28), 0xfe');
    assert.equal(fields.get('queue tags'), 'not told');
    assert.ok(!fields.has('remote port name'));
    const rejected = new Map(recordFields({event: {rejected_command: 3, rejected_command_name: 'PLOGI', rejections: [
        {reason: 9, reason_name: 'unable', explanation: 41, explanation_name: 'resources'}, {reason: 5, reason_name: 'busy', explanation: 0}]}}));
    assert.equal(rejected.get('reasons'), 'unable (0x09): resources (0x29); busy (0x05)');
    assert.deepEqual(recordFields({event: {new_of_tomorrow: 7}}), [['new of tomorrow', '7']]);
    assert.deepEqual(recordFields({event: null}), []);
    assert.deepEqual(byteLines('0001'.repeat(9)), [['0000', '00 01 '.repeat(8).trim()], ['0010', '00 01']]);
});
