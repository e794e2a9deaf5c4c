// Mouse, touch and wheel over an element, as what they mean: pan, zoom, choose a range, tap, hover. Pixels are counted
// from the element's upper left corner.

const tapSlack = 5;
const wheelStep = 1.0018;
const doubleTap = 350;

/**
 * @param {HTMLElement} element
 * @param {{pan: (pixels: number) => void, zoom: (factor: number, x: number) => void,
 *   range: (from: number, to: number, done: boolean) => void, tap: (x: number, y: number) => void,
 *   doubleTap: (x: number, y: number) => void, hover: (x: number, y: number) => void, leave: () => void,
 *   wheelScrolls: () => boolean}} to wheelScrolls: the wheel is needed to scroll the page, and zooms with Ctrl alone
 * @returns {() => void} ends it
 */
export function watchGestures(element, to) {
    const pointers = new Map();
    const ending = new AbortController();
    let moved = false;
    let rangeFrom = null;
    let lastTap = -Infinity;

    const place = (event) => {
        const box = element.getBoundingClientRect();
        return {x: event.clientX - box.left, y: event.clientY - box.top};
    };
    const on = (name, listener, options = {}) =>
        element.addEventListener(name, listener, {signal: ending.signal, ...options});

    on('pointerdown', (event) => {
        if (event.pointerType === 'mouse' && event.button !== 0) {
            return;
        }
        const at = place(event);
        if (pointers.size === 0) {
            moved = false;
            rangeFrom = event.shiftKey ? at.x : null;
        }
        pointers.set(event.pointerId, {...at, startX: at.x, startY: at.y});
        element.setPointerCapture(event.pointerId);
        to.leave();
    });

    on('pointermove', (event) => {
        const at = place(event);
        const held = pointers.get(event.pointerId);
        if (!held) {
            to.hover(at.x, at.y);
            return;
        }
        if (!moved && Math.hypot(at.x - held.startX, at.y - held.startY) <= tapSlack && pointers.size === 1) {
            return;
        }
        moved = true;
        if (rangeFrom !== null) {
            to.range(rangeFrom, at.x, false);
        } else {
            follow(held, at);
        }
        Object.assign(held, at);
    });

    // Two fingers: what lies beneath each goes with it.
    function follow(held, at) {
        const other = [...pointers.values()].find((each) => each !== held);
        if (!other) {
            to.pan(held.x - at.x);
            return;
        }
        const before = Math.max(10, Math.abs(held.x - other.x));
        const after = Math.max(10, Math.abs(at.x - other.x));
        to.pan((held.x - at.x) / 2);
        to.zoom(before / after, (at.x + other.x) / 2);
    }

    on('pointerup', (event) => {
        const held = pointers.get(event.pointerId);
        pointers.delete(event.pointerId);
        if (!held) {
            return;
        }
        const at = place(event);
        if (rangeFrom !== null) {
            to.range(rangeFrom, at.x, true);
            rangeFrom = null;
        } else if (!moved && pointers.size === 0) {
            const twice = event.timeStamp - lastTap < doubleTap;
            lastTap = twice ? -Infinity : event.timeStamp;
            (twice ? to.doubleTap : to.tap)(at.x, at.y);
        }
    });
    on('pointercancel', (event) => {
        pointers.delete(event.pointerId);
        rangeFrom = null;
    });
    on('pointerleave', () => to.leave());

    on('wheel', (event) => {
        const unit = event.deltaMode === 1 ? 16 : event.deltaMode === 2 ? 400 : 1;
        const sideways = event.shiftKey ? event.deltaX || event.deltaY : event.deltaX;
        if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
            to.pan(sideways * unit);
        } else if (event.ctrlKey || event.metaKey || !to.wheelScrolls()) {
            // A pinch on a touch pad comes as a wheel with Ctrl, in small steps.
            const step = event.ctrlKey && Math.abs(event.deltaY) < 40 ? event.deltaY * 5 : event.deltaY;
            to.zoom(wheelStep ** Math.max(-500, Math.min(500, step * unit)), place(event).x);
        } else {
            return;
        }
        event.preventDefault();
    }, {passive: false});

    return () => ending.abort();
}
