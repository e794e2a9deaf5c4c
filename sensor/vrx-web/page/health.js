// How collector, history and vrx-web are, in one sentence over every view.

import {askHealth, onFailure} from './api.js';
import {beginWork} from './rest.js';

const period = 5000;
const troubledPeriod = 2000;

/**
 * @typedef {object} Health
 * @property {'ok'|'silent'|'unwritten'|'unreadable'|'unreachable'} status
 * @property {string|null} reason @property {string|null} since RFC 3339, of the host
 * @property {string|null} last_fetch @property {number|null} missedSince milliseconds, since when there is no answer
 */

/** @param {(health: Health) => void} listener */
export function watchHealth(listener) {
    let last = null;
    let missedSince = null;
    let timer = 0;
    let asking = false;

    async function look() {
        if (asking) {
            return;
        }
        asking = true;
        clearTimeout(timer);
        const end = last ? () => {} : beginWork(); // only the first answer is something to wait for
        try {
            const answer = await askHealth();
            missedSince = answer ? null : (missedSince ?? Date.now());
            const health = answer ? answer : {...last, status: 'unreachable', reason: null, since: null, missedSince};
            last = health;
            listener(health);
        } finally {
            end();
            asking = false;
            timer = setTimeout(look, last?.status === 'ok' ? period : troubledPeriod);
        }
    }

    onFailure(look);
    document.addEventListener('visibilitychange', () => document.hidden || look());
    look();
}
