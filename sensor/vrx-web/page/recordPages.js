// The records that are shown: the newest ones, and older ones behind them as far as one has asked for them.

const most = 1000; // what comes in while one looks on begins anew behind so many

export class RecordPages {
    records = [];
    /** What asks for those behind the last one; null: there are none. */
    next = null;
    /** Whether anything has been answered. */
    isThere = false;

    /** @param {{records: object[], next: string|null}} page the newest of all; what is there stays behind it */
    putNewest(page) {
        const behind = this.#without(this.records, page.records);
        const joins = behind.length < this.records.length && this.records.length < most;
        if (joins && behind.length > 0) {
            this.records = [...page.records, ...behind];
        } else {
            // Nothing was there, all of it is in the page, or some between the two are missing.
            this.records = page.records;
            this.next = page.next;
        }
        this.isThere = true;
    }

    putOlder(page) {
        this.records = [...this.records, ...this.#without(page.records, this.records)];
        this.next = page.next;
    }

    #without(records, others) {
        const ids = new Set(others.map((record) => record.id));
        return records.filter((record) => !ids.has(record.id));
    }
}

/** Whether a new record is one of those that the parameters ask for, as far as it can be told before asking. */
export function mayFit(record, params) {
    const oneOf = (name, ...values) =>
        !params.has(name) || params.getAll(name).some((wanted) => values.includes(wanted));
    return !params.has('until') && oneOf('kind', record.kind) && oneOf('fabric', record.fabric) &&
        oneOf('initiator', record.initiator.port_name, record.names?.initiator) &&
        oneOf('target', record.remote_port_name, record.names?.target);
}
