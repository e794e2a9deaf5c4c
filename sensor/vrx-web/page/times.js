// Times: RFC 3339 with nanoseconds in answers, milliseconds here; shown in the local zone or in UTC, as was chosen.

const second = 1000;
const minute = 60 * second;
const hour = 60 * minute;
const day = 24 * hour;

let utc = false;
let ahead = 0; // of this computer's clock is the host's, in milliseconds

/** Whether times are shown in UTC. */
export const isUtc = () => utc;
export function setUtc(aUtc) {
    utc = aUtc;
}

/** The host's time in milliseconds, also where this computer's clock is wrong. */
export const now = () => Date.now() + ahead;

/** What an answer's Date says, which has whole seconds: a difference below two of them is none. */
export function noteHostTime(date) {
    const difference = Date.parse(date) + second / 2 - Date.now();
    if (Number.isFinite(difference)) {
        ahead = Math.abs(difference) < 2 * second ? 0 : difference;
    }
}

/** Milliseconds of an RFC 3339 text; NaN for anything else. */
export const toMs = (text) => Date.parse(String(text).replace(/(\.\d{3})\d+/, '$1'));

/** RFC 3339 UTC of milliseconds, for parameters. */
export const toText = (ms) => new Date(ms).toISOString().replace('.000Z', 'Z');

const pad = (number, digits = 2) => String(number).padStart(digits, '0');

function inZone(ms, asUtc) {
    return new Date(asUtc ? ms : ms - new Date(ms).getTimezoneOffset() * minute);
}

/** "2026-11-22" */
export const dateText = (ms, asUtc = utc) => inZone(ms, asUtc).toISOString().slice(0, 10);

/** "19:14:03", with digits behind the second if wanted: "19:14:03.265" */
export function clockText(ms, {asUtc = utc, digits = 0, seconds = true} = {}) {
    const text = inZone(ms, asUtc).toISOString();
    return seconds ? text.slice(11, digits ? 20 + digits : 19) : text.slice(11, 16);
}

/** "19:14:03" of today, else "2026-11-21 19:14:03". */
export function shortTime(ms, form = {}) {
    const asUtc = form.asUtc ?? utc;
    const clock = clockText(ms, form);
    return dateText(ms, asUtc) === dateText(now(), asUtc) ? clock : dateText(ms, asUtc) + ' ' + clock;
}

/** "UTC", "UTC+01:00": of that moment, as summer time comes and goes. */
export function zoneText(ms = now(), asUtc = utc) {
    const offset = asUtc ? 0 : -new Date(ms).getTimezoneOffset();
    const size = Math.abs(offset);
    return offset === 0 ? 'UTC' : `UTC${offset < 0 ? '−' : '+'}${pad(Math.floor(size / 60))}:${pad(size % 60)}`;
}

/** Both zones: "2026-11-22 20:14:03.265 UTC+01:00 = 2026-11-22 19:14:03.265 UTC". */
export function bothZones(ms, digits = 3) {
    const one = (asUtc) => `${dateText(ms, asUtc)} ${clockText(ms, {asUtc, digits})} ${zoneText(ms, asUtc)}`;
    return zoneText(ms, false) === 'UTC' ? one(true) : `${one(false)} = ${one(true)}`;
}

/** How long: "43 s", "12 min", "3 h 5 min", "9 days". */
export function spanText(ms) {
    const size = Math.max(0, ms);
    if (size < second) {
        return `${Math.round(size)} ms`;
    }
    if (size < 2 * minute) {
        return `${Math.floor(size / second)} s`;
    }
    if (size < 2 * hour) {
        return `${Math.floor(size / minute)} min`;
    }
    if (size < 2 * day) {
        const minutes = Math.floor((size % hour) / minute);
        return `${Math.floor(size / hour)} h` + (minutes ? ` ${minutes} min` : '');
    }
    return `${Math.floor(size / day)} days`;
}

/** What somebody wrote as a time of the zone that is shown: milliseconds, NaN for anything but "2026-11-22 08:00". */
export function readTime(text) {
    const parts = /^(\d{4})-(\d\d)-(\d\d)(?:[ T](\d\d):(\d\d)(?::(\d\d))?)?$/.exec(text);
    if (!parts) {
        return NaN;
    }
    const [year, month, day, ...clock] = parts.slice(1).map((part) => Number(part ?? 0));
    return utc ? Date.UTC(year, month - 1, day, ...clock) : new Date(year, month - 1, day, ...clock).getTime();
}

/** The same back: of RFC 3339 a time of the zone that is shown, whatever else as it is. */
export function writeTime(text) {
    const ms = /^\d{4}-\d\d-\d\dT/.test(text) ? toMs(text) : NaN;
    return Number.isNaN(ms) ? text : `${dateText(ms)} ${clockText(ms)}`;
}
