import assert from 'node:assert/strict';
import test from 'node:test';

import {changeText} from '../../../../sensor/vrx-web/page/changes.js';
import {behindText, stepsOf} from '../../../../sensor/vrx-web/page/incidentSteps.js';

const at = (seconds) => `2026-11-21T14:00:0${seconds}.000000000Z`;
const symptom = (kind, seconds) => ({kind, events: 2, first: at(seconds), last: at(seconds)});
const cause = (kind, seconds) =>
    ({kind, time: at(seconds), initiator: null, target: null, fabric: 'left', confidence: 'likely'});

test('steps are in the order of time, and causes stand where their sign does', () => {
    const incident = {
        symptoms: [symptom('path_lost', 5), symptom('link_down', 2), symptom('logo', 3)],
        first_cause: cause('link_down', 2),
        causes: [cause('logo', 4)],
    };
    assert.deepEqual(stepsOf(incident).map((step) => [step.kind, step.events, step.cause?.which ?? null]), [
        ['link_down', 2, 'first'],
        ['logo', 2, null],
        ['logo', null, 'later'],
        ['path_lost', 2, null],
    ]);
    assert.deepEqual(stepsOf({symptoms: [], first_cause: null, causes: []}), []);
    const nanoseconds = ['2026-11-21T14:00:00.000000002Z', '2026-11-21T14:00:00.000000001Z'].map(
        (first) => ({kind: 'logo', events: 1, first, last: first}));
    assert.equal(stepsOf({symptoms: nanoseconds, first_cause: null, causes: []})[0].first, nanoseconds[1].first);
});

test('how long behind is told as finely as it matters', () => {
    assert.deepEqual(
        [0, 940, 12_400, 119_000, 200_000, 7200_000, 7380_000].map(behindText),
        ['+0.0 s', '+0.9 s', '+12 s', '+119 s', '+3 min 20 s', '+2 h', '+2 h 3 min']);
});

test('changes are sentences with the names of ports', () => {
    const change = (fields) => ({
        what: 'map',
        name: 'mpatha',
        event: 'changed',
        attribute: 'paths',
        before: '8 of 8',
        after: '4 of 8',
        ports: [],
        ...fields
    });
    const ports = [{port_name: '10:00', name: 'hba0'}, {port_name: '50:06', name: null}];
    for (const [fields, text] of [
             [{}, 'map mpatha: paths 8 of 8 → 4 of 8'],
             [{before: null}, 'map mpatha: paths none → 4 of 8'],
             [
                 {
                     what: 'remote_port',
                     name: '50:06 seen from 10:00',
                     attribute: 'dev_loss_tmo',
                     before: '30',
                     after: null,
                     ports
                 },
                 'remote port 50:06 seen from hba0: dev loss tmo 30 → none'
             ],
             [
                 {what: 'agent', name: 'vrx-sca, process 7', event: 'came', attribute: null, before: null, after: null},
                 'vrx-sca, process 7 came'
             ],
             [
                 {
                     what: 'sensor',
                     name: 'vrx-sn, process 7',
                     event: 'went',
                     attribute: null,
                     before: null,
                     after: 'ended'
                 },
                 'vrx-sn, process 7 went: ended'
             ],
             [
                 {what: 'note', name: 'anna', event: 'noted', attribute: 'mpatha', before: null, after: 'new cable'},
                 'note of anna on mpatha: new cable'
             ],
    ]) {
        assert.equal(changeText(change(fields)), text);
    }
});
