// What this browser remembers: choices for good, the token as long as its tab. Where it may not, nothing is.

const prefix = 'vrx-web.';

function within(work) {
    try {
        return work();
    } catch {
        return null; // storage is switched off
    }
}

export const recall = (name) => within(() => localStorage.getItem(prefix + name));
export const keep = (name, value) => within(() => localStorage.setItem(prefix + name, value));
export const recallForTab = (name) => within(() => sessionStorage.getItem(prefix + name));
export const keepForTab = (name, value) => within(() => sessionStorage.setItem(prefix + name, value));
