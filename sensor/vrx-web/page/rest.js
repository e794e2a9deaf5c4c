// Whether the page is at rest: no request is pending, and no redraw is due. Tests wait for <html data-rest="1">.

let pending = 0;
let isPersonNext = false;

function show() {
    document.documentElement.dataset.rest = pending === 0 || isPersonNext ? '1' : '0';
}

/** While all waits for what somebody types, the page is at rest. */
export function awaitPerson(isAwaited) {
    isPersonNext = isAwaited;
    show();
}

/** To be called when something begins; the function that it returns, when that has ended. */
export function beginWork() {
    ++pending;
    show();
    let ended = false;
    return () => {
        if (!ended) {
            ended = true;
            --pending;
            queueMicrotask(show);
        }
    };
}

/** The page is not at rest until the promise has settled. */
export async function during(promise) {
    const end = beginWork();
    try {
        return await promise;
    } finally {
        end();
    }
}

/**
 * A redraw for the next frame, however often it is asked for: const redraw = redrawing(() => {...}); redraw().
 * @param {() => void} draw
 */
export function redrawing(draw) {
    let end = null;
    return () => {
        if (end) {
            return;
        }
        end = beginWork();
        requestAnimationFrame(() => {
            const ended = end;
            end = null;
            try {
                draw();
            } finally {
                ended();
            }
        });
    };
}

/**
 * Work that news ask for, once for many of them and at most once in so many milliseconds; the first at once.
 * @param {() => Promise<void>|void} work must not throw
 */
export function throttled(milliseconds, work) {
    let last = -Infinity;
    let end = null;
    let timer = 0;
    async function run() {
        last = performance.now();
        const ended = end;
        end = null;
        try {
            await work();
        } finally {
            ended();
        }
    }
    const ask = () => {
        if (!end) {
            end = beginWork();
            timer = setTimeout(run, Math.max(0, last + milliseconds - performance.now()));
        }
    };
    ask.cancel = () => {
        clearTimeout(timer);
        end?.();
        end = null;
    };
    return ask;
}

/** The first real data of a view have been drawn, for whoever measures how long that took. */
export function markPaint() {
    if (performance.getEntriesByName('zt-first-paint').length === 0) {
        performance.mark('zt-first-paint');
    }
}
