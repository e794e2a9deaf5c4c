// Follows the history: the stream, which is begun again behind the last event whenever it breaks.

import {apiPath, fetchAnswer} from './api.js';
import {EventReader} from './events.js';

const silence = 40000; // vrx-web sends something each 15 s
const hiddenFor = 5000;

/**
 * A browser has six connections to one host, whatever the number of its tabs: one that nobody sees gives its own back.
 * @param {{onEvent: (type: string, data: object) => void, onState: (isLive: boolean) => void}} listener
 *        onState(true) comes each time that the stream begins: what came before has to be asked for
 */
export function follow({onEvent, onState}) {
    let reader = new EventReader();
    let stop = new AbortController();
    let hiding = 0;

    async function readStream() {
        const answer = await fetchAnswer(
            apiPath('stream'),
            {signal: stop.signal, endless: true, headers: reader.lastId ? {'Last-Event-ID': reader.lastId} : {}});
        const next = new EventReader();
        next.lastId = reader.lastId;
        reader = next;
        onState(true);
        const pieces = answer.body.pipeThrough(new TextDecoderStream()).getReader();
        let timer = 0;
        const wait = () => {
            clearTimeout(timer);
            timer = setTimeout(() => stop.abort(), silence);
        };
        try {
            for (wait();;) {
                const {value, done} = await pieces.read();
                if (done) {
                    return;
                }
                wait();
                for (const event of reader.read(value)) {
                    onEvent(event.type, JSON.parse(event.data));
                }
            }
        } finally {
            clearTimeout(timer);
        }
    }

    async function run() {
        for (;;) {
            await seen();
            stop = new AbortController();
            try {
                await readStream();
            } catch {
                // Whatever it was, it is tried again; what is wrong is told by the state of the whole.
            }
            stop.abort();
            onState(false);
            await new Promise((resolve) => setTimeout(resolve, (reader.retry ?? 2000) * (0.75 + 0.5 * Math.random())));
        }
    }

    document.addEventListener('visibilitychange', () => {
        clearTimeout(hiding);
        if (document.hidden) {
            hiding = setTimeout(() => stop.abort(), hiddenFor);
        }
    });
    // A browser may keep a page that was left, to come back to, with all that it holds.
    window.addEventListener('pagehide', () => stop.abort());
    run();
}

/** Settles when somebody sees the page. */
function seen() {
    return new Promise((resolve) => {
        const look = () => {
            if (!document.hidden) {
                document.removeEventListener('visibilitychange', look);
                resolve();
            }
        };
        document.addEventListener('visibilitychange', look);
        look();
    });
}
