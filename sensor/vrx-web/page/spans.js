// The time that an address asks for: "since=-6h", which goes on with the clock, or from a moment to another.

import {leastSpan, mostSpan} from './scale.js';
import {now, toMs} from './times.js';

const second = 1000;
const units = {
    s: second,
    min: 60 * second,
    h: 3600 * second,
    d: 86400 * second
};

const alsoCalled = {
    m: 'min'
};

export const defaultSpan = '-1d';

/** Milliseconds of "-6h", or null. */
export function spanOf(text) {
    const [, number, unit] = /^-(\d+)(s|m|min|h|d)$/.exec(text ?? '') ?? [];
    return unit ? Math.min(mostSpan, Math.max(leastSpan, number * units[alsoCalled[unit] ?? unit])) : null;
}

/** "-6h" of so many milliseconds, in the largest unit that has it whole. */
export function spanName(ms) {
    const whole = Math.max(1, Math.round(ms / second)) * second;
    const [unit, size] = Object.entries(units).reverse().find(([, each]) => whole % each === 0);
    return `-${whole / size}${unit}`;
}

/** A moment, or so long before now; NaN for anything else. */
const momentOf = (text) => (spanOf(text) ? now() - spanOf(text) : toMs(text));

/** What an address asks for. Without an end it goes on with the clock. */
export function readTimes(params) {
    const since = momentOf(params.get('since'));
    const until = momentOf(params.get('until'));
    if (since < until) {
        return {since, until, follows: false};
    }
    const end = now();
    return {since: since < end - leastSpan / 2 ? since : end - spanOf(defaultSpan), until: end, follows: true};
}
