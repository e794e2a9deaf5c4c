// What happened, in the order of time: an incident's symptoms, and which of them were causes.

import {toMs} from './times.js';

/**
 * @typedef {{kind: string, first: string, last: string, events: number|null, cause: null|{which: 'first'|'later',
 *   confidence: string, initiator: object|null, target: object|null, fabric: string|null}}} Step
 * @param {object} incident of docs/json.md
 * @returns {Step[]} a cause whose sign is not among the symptoms is a step of its own, without events
 */
export function stepsOf(incident) {
    const steps = incident.symptoms.map((symptom) => ({...symptom, cause: null}));
    const causes = [
        incident.first_cause && {...incident.first_cause, which: 'first'},
        ...incident.causes.map((cause) => ({...cause, which: 'later'}))
    ].filter(Boolean);
    for (const cause of causes) {
        const step = steps.find((each) => each.kind === cause.kind && each.first === cause.time && !each.cause);
        if (step) {
            step.cause = cause;
        } else {
            steps.push({kind: cause.kind, first: cause.time, last: cause.time, events: null, cause});
        }
    }
    return steps.sort((a, b) => toMs(a.first) - toMs(b.first) || (a.first < b.first ? -1 : a.first > b.first ? 1 : 0));
}

/** "+0.5 s", "+12 s", "+3 min 20 s": how long behind the first sign. */
export function behindText(ms) {
    if (ms < 10_000) {
        return `+${(ms / 1000).toFixed(1)} s`;
    }
    const seconds = Math.round(ms / 1000);
    if (seconds < 120) {
        return `+${seconds} s`;
    }
    const minutes = Math.floor(seconds / 60);
    if (minutes < 120) {
        return `+${minutes} min${seconds % 60 ? ` ${seconds % 60} s` : ''}`;
    }
    const hours = Math.floor(minutes / 60);
    return `+${hours} h${minutes % 60 ? ` ${minutes % 60} min` : ''}`;
}
