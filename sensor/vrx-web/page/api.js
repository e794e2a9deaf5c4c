// Asks vrx-web. Asks for the token where one is needed, and tells in one line what went wrong.

import {keepForTab, recallForTab} from './memory.js';
import {during} from './rest.js';
import {noteHostTime} from './times.js';
import {askToken} from './token.js';

const patience = 15000; // vrx-web itself ends a request after 5 s

/** The answer was no. `status` 0: there was none. */
export class ApiError extends Error {
    constructor(status, message) {
        super(message);
        this.status = status;
    }
}

/** Whether the error says that whoever asked wants the answer no more. */
export const isAborted = (error) => error.name === 'AbortError';

let token = recallForTab('token') ?? '';
let isAdmitted = false;
let gate = null; // while one request finds out whether the token is right, the others wait
const hostListeners = new Set();
const failureListeners = new Set();

/** The listener is told which host the answers are of. */
export const onHost = (listener) => hostListeners.add(listener);
/** The listener is told when there was no answer, or the history could not be read. */
export const onFailure = (listener) => failureListeners.add(listener);

/** "/api/v1/records?kind=logo": values are texts, numbers or lists of them; what is null or empty is left out. */
export function apiPath(path, params = {}) {
    const query = new URLSearchParams();
    for (const [name, value] of params instanceof URLSearchParams ? params.entries() : Object.entries(params)) {
        for (const one of [value].flat()) {
            if (one !== null && one !== undefined && one !== '') {
                query.append(name, String(one));
            }
        }
    }
    const text = query.toString();
    return (path.startsWith('/') ? path : '/api/v1/' + path) + (text && '?' + text);
}

/**
 * A Response whose status is 200. Throws ApiError, or AbortError when the signal aborts.
 * @param {string} url @param {{signal?: AbortSignal, headers?: object, endless?: boolean}} options
 */
export async function fetchAnswer(url, {signal, headers = {}, endless = false} = {}) {
    for (;;) {
        while (gate) {
            await gate;
        }
        const send = () =>
            fetchOnce(url, signal, token ? {...headers, Authorization: `Bearer ${token}`} : headers, endless);
        const answer = await (isAdmitted ? send() : sendAlone(send));
        noteHostTime(answer.headers.get('Date'));
        if (answer.ok) {
            return answer;
        }
        if (answer.status === 401) {
            isAdmitted = false;
            continue;
        }
        if (answer.status === 503) {
            failureListeners.forEach((listener) => listener());
        }
        throw new ApiError(answer.status, await readError(answer));
    }
}

/** Finds out whether the token is right, or whether none is needed, and asks for one if it is not. */
async function sendAlone(send) {
    let open;
    gate = new Promise((resolve) => (open = resolve));
    try {
        const answer = await send();
        isAdmitted = answer.status !== 401;
        if (!isAdmitted) {
            token = await askToken(token ? 'This token is not one that vrx-web knows.' : '');
            keepForTab('token', token);
        }
        return answer;
    } finally {
        gate = null;
        open();
    }
}

async function fetchOnce(url, signal, headers, endless) {
    const own = new AbortController();
    const abort = () => own.abort();
    signal?.throwIfAborted();
    signal?.addEventListener('abort', abort);
    const timer = endless ? 0 : setTimeout(abort, patience);
    try {
        return await fetch(url, {headers, signal: own.signal, cache: 'no-store', credentials: 'omit'});
    } catch {
        signal?.throwIfAborted();
        failureListeners.forEach((listener) => listener());
        throw new ApiError(0, 'vrx-web does not answer');
    } finally {
        clearTimeout(timer);
        if (!endless) {
            signal?.removeEventListener('abort', abort);
        }
    }
}

async function readError(answer) {
    try {
        return String((await answer.json()).error);
    } catch {
        return `vrx-web answered ${answer.status}`;
    }
}

/**
 * The document that a path of the API answers with: ask('records', {kind: ['logo'], limit: 100}).
 * @param {string} path behind /api/v1/
 */
export async function ask(path, params = {}, {signal} = {}) {
    const body = await during(readBody(apiPath(path, params), signal));
    if (typeof body.host === 'string') {
        hostListeners.forEach((listener) => listener(body.host));
    }
    return body;
}

async function readBody(url, signal) {
    const answer = await fetchAnswer(url, {signal});
    try {
        return await answer.json();
    } catch {
        signal?.throwIfAborted();
        throw new ApiError(0, 'the answer of vrx-web broke off');
    }
}

/** What /healthz says, which needs no token; null when there is no answer. */
export async function askHealth() {
    try {
        const answer =
            await fetch('/healthz', {cache: 'no-store', credentials: 'omit', signal: AbortSignal.timeout(patience)});
        noteHostTime(answer.headers.get('Date'));
        return await answer.json();
    } catch {
        return null;
    }
}
