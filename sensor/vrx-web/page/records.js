// Records, newest first: a line each in words, its fields and bytes one click below, and all of them as a file.

import {ask, isAborted} from './api.js';
import {el, fillRows} from './dom.js';
import {choosing, mountFilter} from './filter.js';
import {mayFit, RecordPages} from './recordPages.js';
import {labels, recordRow} from './recordRows.js';
import {during, markPaint, throttled} from './rest.js';
import {saveRecords} from './save.js';
import {headOf} from './widgets.js';
import {count} from './words.js';

export const styles = ['style-records.css'];
const pageSize = 100;

export function mount(root, site) {
    return new RecordsView(root, site);
}

class RecordsView {
    #params = new URLSearchParams();
    #stop = new AbortController();
    #pages = new RecordPages();
    #summary = el('p', {class: 'note', 'data-summary': true});
    #table = el('table', {class: 'cards'}, headOf(labels));
    #panel = el('div', {class: 'panel', hidden: true}, this.#table);
    #saving = el('p', {class: 'small note', 'aria-live': 'polite'});
    #more =
        el('button', {type: 'button', 'data-more': true, hidden: true, onclick: () => this.#askOlder()}, 'Older ones');
    #filter;
    // What fails is told by the state of the whole.
    #reload = throttled(700, () => this.#askNewest().catch(() => {}));

    constructor(root, site) {
        this.#filter = mountFilter((params) => site.go('records', {params, replace: true}));
        const saves =
            el('div', {class: 'saves'}, this.#saving, this.#saveButton('csv', 'CSV'),
               this.#saveButton('ndjson', 'NDJSON'));
        root.append(
            el('div', {class: 'lead'}, el('h1', {}, 'Records'), saves), this.#filter.node, this.#summary, this.#panel,
            el('p', {class: 'more'}, this.#more));
        this.#offerPorts();
    }

    async show(address) {
        const params = choosing(address.params);
        if (params.toString() !== this.#params.toString() || !this.#pages.isThere) {
            this.#stop.abort();
            this.#stop = new AbortController();
            this.#pages = new RecordPages();
            this.#panel.classList.add('stale');
        }
        this.#params = params;
        this.#filter.show(params);
        try {
            await this.#askNewest();
        } catch (error) {
            if (error.status === 400) {
                this.#draw();
            }
            throw error;
        }
    }

    onNews({records}) {
        if (records.some((record) => mayFit(record, this.#params))) {
            this.#reload();
        }
    }

    refresh() {
        if (this.#pages.isThere && !this.#params.has('until')) {
            this.#reload();
        }
    }

    unmount() {
        this.#stop.abort();
        this.#reload.cancel();
    }

    async #askNewest() {
        const pages = this.#pages;
        pages.putNewest(await this.#askPage({}));
        this.#draw();
    }

    async #askOlder() {
        try {
            this.#pages.putOlder(await during(this.#askPage({cursor: this.#pages.next})));
            this.#draw();
        } catch (error) {
            if (!isAborted(error)) {
                this.#summary.textContent = `${error.message}.`;
            }
        }
    }

    #askPage(more) {
        const query = new URLSearchParams([...this.#params, ['limit', pageSize], ...Object.entries(more)]);
        return ask('records', query, this.#stop);
    }

    async #offerPorts() {
        try {
            this.#filter.offer((await ask('ports')).ports);
        } catch {
            // A port's name can still stand in the address.
        }
    }

    #draw() {
        const {records, next, isThere} = this.#pages;
        fillRows(this.#table, records, (record) => record.id, recordRow);
        this.#panel.hidden = records.length === 0;
        this.#panel.classList.remove('stale');
        this.#more.hidden = !next;
        const all = count(records.length, 'record');
        const known = records.length === 0 ? 'None is like that.' : next ? `The newest ${all}` : `${all} in all`;
        this.#summary.textContent = isThere ? known : '';
        markPaint();
    }

    #saveButton(format, text) {
        const button = el('button', {type: 'button', 'data-export': format}, text);
        button.addEventListener('click', async () => {
            button.disabled = true;
            try {
                await saveRecords(format, this.#params, (said) => (this.#saving.textContent = said));
            } catch (error) {
                this.#saving.textContent = `${error.message}.`;
            }
            button.disabled = false;
        });
        return button;
    }
}
