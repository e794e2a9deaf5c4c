// Time to pixels and back. A scale never changes: who pans or zooms gets another. Times are milliseconds since 1970.

const second = 1000;
const minute = 60 * second;
const hour = 60 * minute;
const day = 24 * hour;

export const leastSpan = minute;
export const mostSpan = 400 * day;

const steps = [
    ...[1, 2, 5, 10, 15, 30].map((n) => n * second),
    ...[1, 2, 5, 10, 15, 30].map((n) => n * minute),
    ...[1, 2, 3, 6, 12].map((n) => n * hour),
    ...[1, 2, 4, 7, 14, 28, 56].map((n) => n * day),
];

const months = ['Jan', 'Feb', 'Mar', 'Apr', 'May', 'Jun', 'Jul', 'Aug', 'Sep', 'Oct', 'Nov', 'Dec'];

export class TimeScale {
    /** @param {number} since @param {number} until in milliseconds @param {number} width in pixels */
    constructor(since, until, width) {
        this.since = since;
        this.until = Math.max(until, since + 1);
        this.width = Math.max(1, width);
        Object.freeze(this);
    }

    get span() { return this.until - this.since; }

    get middle() { return (this.since + this.until) / 2; }

    toX(time) { return ((time - this.since) / this.span) * this.width; }

    toTime(x) { return this.since + (x / this.width) * this.span; }

    resized(width) { return new TimeScale(this.since, this.until, width); }

    /** What was at x pixels is at 0. */
    panned(pixels) {
        const by = (pixels / this.width) * this.span;
        return new TimeScale(this.since + by, this.until + by, this.width);
    }

    /** Below 1 is closer. The time keeps its place on the screen. */
    zoomed(factor, time = this.middle) {
        const span = Math.min(mostSpan, Math.max(leastSpan, this.span * factor));
        const since = time - ((time - this.since) / this.span) * span;
        return new TimeScale(since, since + span, this.width);
    }

    /** Panned as little as it takes to show the span from first to last. */
    showing(first, last) {
        if (first < this.since) {
            return this.panned(this.toX(first));
        }
        return last > this.until ? this.panned(this.toX(Math.min(last, first + this.span)) - this.width) : this;
    }

    covers(first, last) { return last >= this.since && first <= this.until; }

    equals(other) { return this.since === other.since && this.until === other.until && this.width === other.width; }

    /**
     * Where the axis has lines, and what stands there.
     * @param {boolean} utc else by the local clock
     * @param {number} apart pixels that a label needs
     * @returns {{time: number, label: string, major: boolean}[]} major: a new day begins
     */
    ticks(utc, apart = 76) {
        const least = (apart / this.width) * this.span;
        const step = steps.find((each) => each >= least) ?? steps.at(-1);
        return step < day ? ticksOfClock(this, step, utc) : ticksOfDays(this, step, utc);
    }
}

/** The parts of a time by one clock, and times from such parts: a day has not always 24 hours. */
function partsOf(time, utc) {
    const date = new Date(time);
    const part = (name) => date[`get${utc ? 'UTC' : ''}${name}`]();
    return [part('FullYear'), part('Month'), part('Date'), part('Hours'), part('Minutes'), part('Seconds')];
}

function timeOf(utc, ...parts) { return utc ? Date.UTC(...parts) : new Date(...parts).getTime(); }

const twoDigits = (number) => String(number).padStart(2, '0');

function labelOf(time, step, utc) {
    const [year, month, date, hours, minutes, seconds] = partsOf(time, utc);
    const midnight = hours === 0 && minutes === 0 && seconds === 0;
    if (step >= day || midnight) {
        const text = `${date} ${months[month]}`;
        return {label: month === 0 && date === 1 ? `${text} ${year}` : text, major: midnight};
    }
    const clock = `${twoDigits(hours)}:${twoDigits(minutes)}`;
    return {label: step < minute ? `${clock}:${twoDigits(seconds)}` : clock, major: false};
}

function ticksOfClock(scale, step, utc) {
    const [year, month, date, hours, minutes, seconds] = partsOf(scale.since, utc);
    const stepSeconds = step / second;
    const found = new Map();
    // Two hours earlier than needed: where the clock goes back, an hour is there twice.
    let at = Math.floor((hours * 3600 + minutes * 60 + seconds) / stepSeconds) * stepSeconds - 7200;
    at = Math.floor(at / stepSeconds) * stepSeconds;
    for (;; at += stepSeconds) {
        const time = timeOf(utc, year, month, date, 0, 0, at);
        if (time > scale.until) {
            return [...found.values()];
        }
        if (time >= scale.since) {
            found.set(time, {time, ...labelOf(time, step, utc)});
        }
    }
}

function ticksOfDays(scale, step, utc) {
    const [year, month, date] = partsOf(scale.since, utc);
    const days = step / day;
    // Counted from one day for all, so that lines stay where they are while panning.
    const number = Math.floor(Date.UTC(year, month, date) / day);
    const ticks = [];
    for (let at = date - (((number % days) + days) % days);; at += days) {
        const time = timeOf(utc, year, month, at);
        if (time > scale.until) {
            return ticks;
        }
        if (time >= scale.since) {
            ticks.push({time, ...labelOf(time, step, utc)});
        }
    }
}
