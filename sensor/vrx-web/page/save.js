// Saves records as CSV or NDJSON: page after page, as the API gives them out, into one file.

import {apiPath, fetchAnswer} from './api.js';
import {during} from './rest.js';

const pageSize = 1000;
const mostPages = 100;

/**
 * @param {'csv'|'ndjson'} format @param {URLSearchParams} params the filter
 * @param {(text: string) => void} tell how far it is, and how it ended
 */
export async function saveRecords(format, params, tell) {
    const parts = [];
    let cursor = null;
    let pages = 0;
    do {
        const query = new URLSearchParams(params);
        query.set('limit', pageSize);
        query.set('format', format);
        if (cursor) {
            query.set('cursor', cursor);
        }
        const answer = await during(fetchAnswer(apiPath('records', query)));
        const text = await during(answer.text());
        // Each page of CSV has a head of its own.
        parts.push(format === 'csv' && pages > 0 ? text.slice(text.indexOf('\n') + 1) : text);
        cursor = answer.headers.get('X-Next-Cursor');
        ++pages;
        tell(`${(pages * pageSize).toLocaleString('en')} records …`);
    } while (cursor && pages < mostPages);
    const url = URL.createObjectURL(new Blob(parts, {type: format === 'csv' ? 'text/csv' : 'application/x-ndjson'}));
    const link = document.createElement('a');
    link.href = url;
    link.download = `records.${format}`;
    link.click();
    setTimeout(() => URL.revokeObjectURL(url), 60000);
    tell(cursor ? `Saved: the newest ${(pages * pageSize).toLocaleString('en')}; there are more.` : 'Saved.');
}
