// Measures as curves: which there are, whose they are, and what of them is shown.

import {toMs} from './times.js';

const mostSeries = 6;
const leastSeconds = 10;  // of a bin that has just begun no rate can be told

/** @typedef {{key: string, label: string, values: (number|null)[]}} Series */
/** @typedef {{name: string, title: string, unit: string, series: Series[], left: number, most: number}} Curve */

const timed = ['commands', 'command_us', 'slowest_us'];

/** What is drawn: from the sums of one port's measures by name, a value for each bin. */
const curves = [
    {
        name: 'mean',
        title: 'Mean time of a command',
        unit: 'ms',
        value: (sums, at) => (sums.commands?.[at] > 0 ? (sums.command_us?.[at] ?? 0) / sums.commands[at] / 1000 : null)
    },
    {
        name: 'slowest',
        title: 'Slowest command',
        unit: 'ms',
        value: (sums, at) => (sums.slowest_us?.[at] > 0 ? sums.slowest_us[at] / 1000 : null)
    },
    {
        name: 'rate',
        title: 'Commands a second',
        unit: '/s',
        value: (sums, at, seconds) => (sums.commands?.[at] ?? 0) / seconds
    },
    {name: 'errors', title: 'Errors that ports counted', unit: '', value: (sums, at) => sums.errors?.[at] ?? 0},
];

function portOf(measure, by) {
    const port = (by === 'target' && measure.target) || measure.initiator || measure.target;
    return port ? {key: port.port_name, label: port.name ?? port.port_name} : {key: '', label: 'host'};
}

function addTo(sums, name, values) {
    const kept = (sums[name] ??= Array(values.length).fill(0));
    values.forEach((value, at) => {
        kept[at] = name === 'slowest_us' ? Math.max(kept[at], value ?? 0) : kept[at] + (value ?? 0);
    });
}

/** Sums of each port, by measure; counters of errors are one. */
function sumsOf(measures, by) {
    const ports = new Map();
    for (const measure of measures) {
        const {key, label} = portOf(measure, by);
        if (!ports.has(key)) {
            ports.set(key, {key, label, sums: {}});
        }
        addTo(ports.get(key).sums, timed.includes(measure.name) ? measure.name : 'errors', measure.values);
    }
    return [...ports.values()];
}

/**
 * @param {{bin_seconds: number, measures: object[]}} answer @param {string} by whose curves: 'target', else initiators
 * @param {number} until what is not known yet has no value: milliseconds
 * @returns {Curve[]} those that have anything, each with the few ports that have most of it
 */
export function curvesOf(answer, by, until = Infinity) {
    const ports = sumsOf(answer.measures, by);
    const secondsOf = (at) =>
        Math.min(answer.bin_seconds, (until - toMs(answer.since)) / 1000 - at * answer.bin_seconds);
    return curves
        .map(({value, ...curve}) => {
            const all = ports
                            .map(({key, label, sums}) => {
                                const bins = Object.values(sums)[0].length;
                                const values = Array.from({length: bins}, (_, at) => {
                                    const seconds = secondsOf(at);
                                    return seconds < leastSeconds ? null : value(sums, at, seconds);
                                });
                                return {key, label, values, most: values.reduce((a, b) => Math.max(a, b ?? 0), 0)};
                            })
                            .filter((series) => series.most > 0)
                            .sort((a, b) => b.most - a.most || (a.key < b.key ? -1 : 1));
            const series = all.slice(0, mostSeries);
            return {...curve, series, left: all.length - series.length, most: all[0]?.most ?? 0};
        })
        .filter((curve) => curve.series.length > 0);
}

/** A round number at or above: 1, 2 or 5 and zeros. */
export function roundUp(value) {
    const power = 10 ** Math.floor(Math.log10(value));
    return [1, 2, 5, 10].map((n) => n * power).find((each) => each >= value * 0.9999999);
}
