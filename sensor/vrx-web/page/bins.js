// What the timeline has fetched. It asks for three widths of the screen at once, with borders that are rounded, so that
// panning rarely asks and the same view asks the same; and keeps what it has until something happens in that time.

/** What a bin of the history may be, in seconds. */
export const resolutions = [10, 60, 300, 900, 3600, 21600, 86400];

const mostBins = 4096;

/** The finest bins of which a pixel has one at most. */
export function resolutionFor(scale) {
    const pixels = Math.min(scale.width, mostBins / 4);
    return resolutions.find((seconds) => scale.span / 1000 / seconds <= pixels) ?? resolutions.at(-1);
}

/**
 * The span to fetch for what a scale shows: three widths and a little, from and to whole steps. A step is a power of
 * two of bins, a quarter of the width at least.
 * @returns {{since: number, until: number, resolution: number, bins: number}} in milliseconds, seconds, and bins
 */
export function boundsFor(scale) {
    const resolution = resolutionFor(scale);
    const bin = resolution * 1000;
    const step = bin * 2 ** Math.max(0, Math.ceil(Math.log2(scale.span / bin / 4)));
    const since = Math.floor((scale.since - scale.span) / step) * step;
    const until = Math.ceil((scale.until + scale.span) / step) * step;
    return {since, until, resolution, bins: (until - since) / bin};
}

/** Whether what was fetched for these bounds still does, with a quarter of the width to spare. */
export function boundsFit(bounds, scale) {
    const spare = scale.span / 4;
    return bounds.resolution === resolutionFor(scale) && bounds.since <= scale.since - spare &&
        bounds.until >= scale.until + spare;
}

/**
 * Answers by what was asked. Each is asked once at a time, the last ones are kept, and one that is out of date is
 * shown until there is a new one.
 */
export class AnswerCache {
    /** @param {(address: string) => Promise<object>} ask */
    constructor(ask, most = 48) {
        this.ask = ask;
        this.most = most;
        this.entries = new Map();
    }

    /** What there is, up to date or not, at once; undefined if there is nothing. */
    look(address) { return this.entries.get(address)?.answer; }

    /** Whether asking would bring nothing new. */
    fresh(address) {
        const entry = this.entries.get(address);
        return Boolean(entry && entry.answer !== undefined && !entry.stale);
    }

    /**
     * @param {{since: number, until: number}} bounds the span that the answer is about, in milliseconds
     * @returns {Promise<object>} what there is if it is up to date, else a new answer
     */
    async get(address, bounds) {
        let entry = this.entries.get(address);
        if (entry) {
            this.entries.delete(address);
        } else {
            entry = {since: bounds.since, until: bounds.until, answer: undefined, stale: true, asked: null};
        }
        this.entries.set(address, entry);
        this.trim();
        if (!entry.stale && !entry.asked) {
            return entry.answer;
        }
        entry.asked ??= this.fetch(address, entry);
        return entry.asked;
    }

    async fetch(address, entry) {
        // What happens while the answer is on its way may not be in it.
        entry.stale = false;
        try {
            entry.answer = await this.ask(address);
            return entry.answer;
        } catch (error) {
            entry.stale = true;
            throw error;
        } finally {
            entry.asked = null;
        }
    }

    /** Something has happened in this span: answers about it, whose addresses begin so, are out of date. */
    outdate(first, last, begin = '') {
        for (const [address, entry] of this.entries) {
            entry.stale ||= address.startsWith(begin) && entry.until >= first && entry.since <= last;
        }
    }

    trim() {
        for (const [address, entry] of this.entries) {
            if (this.entries.size > this.most && !entry.asked) {
                this.entries.delete(address);
            }
        }
    }
}
