// Light or dark, as the system says or as was chosen here. The colours are in style.css, in one table.

import {recall, keep} from './memory.js';

const choices = ['system', 'light', 'dark'];
const listeners = new Set();
const system = matchMedia('(prefers-color-scheme: dark)');

export const getTheme = () => (choices.includes(recall('theme')) ? recall('theme') : 'system');

export function setTheme(theme) {
    keep('theme', theme);
    applyTheme();
}

export const nextTheme = () => choices[(choices.indexOf(getTheme()) + 1) % choices.length];

export function applyTheme() {
    document.documentElement.dataset.theme = isDark() ? 'dark' : 'light';
    listeners.forEach((listener) => listener());
}

/** Whether it is dark now: for a canvas. */
export function isDark() {
    const theme = getTheme();
    return theme === 'dark' || (theme === 'system' && system.matches);
}

/** Called when the colours change. Returns the function that ends it. */
export function onTheme(listener) {
    listeners.add(listener);
    return () => listeners.delete(listener);
}

/** The colour of a name in style.css as it is now, "rgb(...)", for a canvas: colour('--ink'). */
export function colour(name) {
    const probe = document.createElement('span');
    probe.style.color = `var(${name})`;
    document.documentElement.append(probe);
    const value = getComputedStyle(probe).color;
    probe.remove();
    return value;
}

system.addEventListener('change', applyTheme);
