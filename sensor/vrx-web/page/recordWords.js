// What a record says, in words: one line for the list, and each field of its kind by name.

import {operations} from './operations.js';
import {asWords, ranges} from './words.js';

const allLuns = 0xffffffff; // of a reset: all of a target's
const setSize = 256;        // values of a set: with all of them in it, it says "all"

const hex = (number, digits = 2) => number.toString(16).padStart(digits, '0');

const named = (name, number, digits) => (name ? `${name} (0x${hex(number, digits)})` : `0x${hex(number, digits)}`);

export const operationText = (code) => named(operations.get(code), code);

/** "3–4", "all", "none" of a record's LUNs. */
export function lunText(luns) {
    if (luns.length === setSize || luns.includes(allLuns)) {
        return 'all';
    }
    // Of a reset there is one for each event, in the order in which they came.
    const values = [...new Set(luns)].sort((a, b) => a - b);
    return values.length ? ranges(values) : 'none';
}

/** "6/29/00", as sense codes are written; null where they are not told. */
export function senseNumbers({sense_key: key, asc, ascq}) {
    return [key, asc, ascq].some((number) => number === null || number === undefined) ?
        null :
        `${hex(key, 1)}/${hex(asc)}/${hex(ascq)}`;
}

function senseLine(event) {
    const numbers = senseNumbers(event);
    const words = event.sense_text ?? event.sense_key_name;
    return [words ?? 'sense', numbers && (words ? `(${numbers})` : numbers)].filter(Boolean).join(' ');
}

const onLuns = (luns) => (luns?.length ? `LUN ${lunText(luns)}` : null);

/** The line of a kind: texts, of which those that are null are left out. */
const lines = {
    ls_rjt: (event) =>
        [`${
             event.rejected_command === null ?
                 'a request' :
                 event.rejected_command_name ?? named(null, event.rejected_command)} rejected`,
         ...[...new Set(event.rejections.map((one) => one.reason_name ?? named(null, one.reason)))].slice(0, 3)],
    rscn: (event) => [event.address_format && `${event.address_format} ${event.port_id ?? ''}`.trim()],
    fcp_read_check_error: (event) =>
        [event.operation_name ?? (event.operation_code === null ? null : named(null, event.operation_code)),
         event.lun === null ? null : `LUN ${event.lun}`,
         event.residuals.length && `${ranges(event.residuals, 4)} bytes missing`],
    queue_full: (event) => [onLuns(event.luns)],
    device_busy: (event) => [onLuns(event.luns)],
    check_condition: (event) =>
        [senseLine(event), onLuns(event.luns),
         event.operation_codes.slice(0, 3).map((code) => operations.get(code) ?? `0x${hex(code)}`).join(', ')],
    lun_reset: (event) => [onLuns(event.luns)],
    target_reset: (event) => [onLuns(event.luns)],
    queue_depth_change: (event) => event.changes.slice(0, 4).map(
        (change) => `LUN ${change.lun === allLuns ? 'all' : change.lun}: depth ${change.new_depth}`),
};

/** @param {object} record of docs/json.md @returns {string} may be empty */
export function recordLine({kind, event}) {
    return event && lines[kind] ? lines[kind](event).filter(Boolean).join(', ') : '';
}

const fieldValues = {
    rejected_command: (value, event) => named(event.rejected_command_name, value),
    operation_code: (value, event) => named(event.operation_name, value),
    operation_codes: (values) => values.map(operationText).join(', ') || 'none',
    sense_key: (value, event) => named(event.sense_key_name, value, 1),
    asc: (value) => `0x${hex(value)}`,
    ascq: (value) => `0x${hex(value)}`,
    luns: lunText,
    lun: (value) => (value === allLuns ? 'all' : String(value)),
    residuals: (values) => `${values.join(', ')} bytes`,
    queue_tags: (values) => (values.length === setSize ? 'all' : ranges(values)),
    rejections: (groups) => groups
                                .map(
                                    (one) => [named(one.reason_name, one.reason),
                                              one.explanation ? named(one.explanation_name, one.explanation) : null]
                                                 .filter(Boolean)
                                                 .join(': '))
                                .join('; '),
    changes: (groups) =>
        groups.map((one) => `LUN ${one.lun === allLuns ? 'all' : one.lun} to ${one.new_depth}`).join(', '),
};
const fieldNames = {
    second_name: 'second name',
    asc: 'additional sense code',
    ascq: 'its qualifier',
    sense_text: 'sense',
    residuals: 'missing',
    luns: 'LUNs',
    lun: 'LUN',
    operation_code: 'operation',
    operation_codes: 'operations',
    rejections: 'reasons',
    changes: 'new depths',
    port_id: 'address',
    address_format: 'what changed',
};
// Told with the field before them, or in the list itself.
const toldElsewhere = ['remote_port_name', 'sense_key_name', 'operation_name', 'rejected_command_name'];

/** The fields of a record's event by name: [[name, text], ...]. What is not told says so. */
export function recordFields({event}) {
    return Object.entries(event ?? {}).filter(([name]) => !toldElsewhere.includes(name)).map(([name, value]) => {
        const isTold = value !== null && !(Array.isArray(value) && value.length === 0);
        return [
            fieldNames[name] ?? asWords(name), isTold ? String(fieldValues[name]?.(value, event) ?? value) : 'not told'
        ];
    });
}

/** Hex digits as lines of sixteen bytes: [["0000", "01 00 ..."], ...]. */
export function byteLines(data) {
    const rows = [];
    for (let at = 0; at < data.length; at += 32) {
        rows.push([hex(at / 2, 4), data.slice(at, at + 32).replace(/(..)(?=.)/g, '$1 ')]);
    }
    return rows;
}
