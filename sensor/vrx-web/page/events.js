// Reads server-sent events out of pieces of text, wherever they were cut.

/** @typedef {{id: string, type: string, data: string}} StreamEvent */

export class EventReader {
    #rest = '';
    #lines = [];
    /** The id of the last event, to go on behind it. */
    lastId = '';
    /** Milliseconds to wait before the stream is asked for again; null: nothing was said. */
    retry = null;

    /** @param {string} piece @returns {StreamEvent[]} those that are whole now */
    read(piece) {
        const events = [];
        const lines = (this.#rest + piece).split(/\r\n|\n|\r(?!$)/);
        this.#rest = lines.pop();
        for (const line of lines) {
            if (line === '') {
                const event = this.#end();
                if (event) {
                    events.push(event);
                }
            } else {
                this.#lines.push(line);
            }
        }
        return events;
    }

    #end() {
        const event = {id: '', type: 'message', data: []};
        for (const line of this.#lines) {
            const [, field, value] = /^([^:]*):? ?(.*)$/s.exec(line);
            if (field === 'data') {
                event.data.push(value);
            } else if (field === 'event') {
                event.type = value;
            } else if (field === 'id') {
                this.lastId = value;
            } else if (field === 'retry' && /^\d+$/.test(value)) {
                this.retry = Number(value);
            }
        }
        this.#lines = [];
        return event.data.length > 0 ? {id: this.lastId, type: event.type, data: event.data.join('\n')} : null;
    }
}
