// What several views show in the same way.

import {writeAddress} from './address.js';
import {el, svg} from './dom.js';
import {bothZones, now, shortTime, spanText, toMs} from './times.js';
import {portName} from './words.js';

/** A moment, in both zones when one points at it. @param {string|null} text RFC 3339 */
export function timeOf(text, form = {}) {
    const ms = toMs(text);
    if (Number.isNaN(ms)) {
        return el('span', {class: 'unknown'}, 'not known');
    }
    return el('time', {datetime: text, title: bothZones(ms)}, shortTime(ms, form));
}

/** How long ago a moment was; goes on by itself. */
export function ageOf(text) {
    const ms = toMs(text);
    return el('span', {'data-age': ms, title: bothZones(ms)}, ageText(ms));
}

const ageText = (ms) => spanText(Math.max(1000, now() - ms));

/** To be called each second: all ages on the page go on. */
export function goOnAges() {
    for (const node of document.querySelectorAll('[data-age]')) {
        const text = ageText(Number(node.dataset.age));
        if (node.textContent !== text) {
            node.textContent = text;
        }
    }
}

/** A port's name, with all that is known of it when one points at it. */
export function portOf(port, wwn = null) {
    if (!port && !wwn) {
        return el('span', {class: 'unknown'}, '–');
    }
    const name = portName(port) ?? wwn;
    const controller = port?.array ? `${port.array}${port.controller ? '/' + port.controller : ''}` : null;
    const title =
        [port?.port_name ?? wwn, controller, port?.switch_port].filter((part) => part && part !== name).join(', ');
    return el('span', {class: name.includes(':') ? 'wwn' : 'port', title}, name);
}

export const linkTo = (view, params, id, ...children) => el('a', {href: writeAddress(view, params, id)}, ...children);

/** open, quiet, closed: a shape, a colour and a word. */
export function stateMark(state) {
    const shapes = {open: '◆', quiet: '◈', closed: '✓'};
    return el(
        'span', {class: `state ${state}`}, el('span', {class: 'shape', 'aria-hidden': 'true'}, shapes[state] ?? '?'),
        ' ', state);
}

/** Paths left of all, one pip each; many are a bar. */
export function pathPips(usable, total) {
    const word = `${usable} of ${total} paths`;
    const kind = usable === 0 ? 'none' : usable < total ? 'some' : 'all';
    const slots = Math.min(total, 16);
    const filled = total > 16 ? Math.floor((usable / total) * slots) : usable;
    const size = 8;
    const picture = svg('svg', {
        class: `pips ${kind}`,
        width: slots * size,
        height: 12,
        viewBox: `0 0 ${slots * size} 12`,
        role: 'img',
        'aria-label': word
    });
    for (let at = 0; at < slots; ++at) {
        picture.append(svg(
            'rect', {class: at < filled ? 'full' : 'gone', x: at * size + 1, y: 1.5, width: size - 2.5, height: 9}));
    }
    return picture;
}

/** Numbers over time as a small curve with the area below it; a line alone where there is nothing. */
export function sparkline(values, {width = 140, height = 26, label = ''} = {}) {
    const top = Math.max(1e-9, ...values);
    const x = (at) => (values.length > 1 ? (at / (values.length - 1)) * width : 0);
    const y = (value) => height - 2 - (value / top) * (height - 4);
    const line = values.map((value, at) => `${at ? 'L' : 'M'}${x(at).toFixed(1)} ${y(value).toFixed(1)}`).join('');
    return svg(
        'svg', {
            class: 'spark',
            width,
            height,
            viewBox: `0 0 ${width} ${height}`,
            preserveAspectRatio: 'none',
            role: 'img',
            'aria-label': label
        },
        svg('path', {class: 'area', d: line && `${line}L${width} ${height - 1}L0 ${height - 1}Z`}),
        svg('path', {class: 'line', d: line}));
}

/** Also where the page came by plain HTTP from another host: browsers have no clipboard to offer there. */
async function copyText(text) {
    if (navigator.clipboard) {
        return navigator.clipboard.writeText(text).then(() => true, () => false);
    }
    const field = el('textarea', {class: 'unseen', readonly: ''});
    const focused = document.activeElement;
    field.value = text;
    document.body.append(field);
    field.select();
    const isCopied = document.execCommand('copy');
    field.remove();
    focused?.focus();
    return isCopied;
}

/** A button that puts a text into the clipboard, where the browser lets it. */
export function copyButton(label, textOf) {
    const button = el('button', {type: 'button', onclick: async () => {
        button.textContent = await copyText(textOf()) ? 'Copied' : 'Cannot copy here';
        setTimeout(() => (button.textContent = label), 2000);
    }}, label);
    return button;
}

/**
 * A row that opens: its own body of a table, with the cells and below them what they stand for.
 * @param {(string|Node)[]} cells the first one bears the button
 * @param {() => Node} more made when it is first opened
 * @param {HTMLElement?} old the row in whose place it comes: it stays open
 */
export function openingRow(cells, labels, more, old = null, {name = '', properties = {}} = {}) {
    const below = el('tr', {class: 'below', hidden: true}, el('td', {colspan: cells.length}));
    const button = el('button', {
        type: 'button',
        class: 'opens',
        'aria-expanded': 'false',
        'aria-label': `more of ${name}`,
        onclick: () => open(below.hidden)
    });
    const body =
        el('tbody', properties,
           el('tr', {},
              cells.map(
                  (cell, at) =>
                      el('td', {'data-label': labels[at].label ?? labels[at], class: labels[at].class},
                         at === 0 ? [button, cell] : el('div', {}, cell)))),
           below);
    function open(isOpen) {
        if (isOpen && !below.firstChild.firstChild) {
            below.firstChild.append(more());
        }
        below.hidden = !isOpen;
        body.isOpen = isOpen;
        button.setAttribute('aria-expanded', String(isOpen));
    }
    if (old?.isOpen) {
        open(true);
    }
    body.isOpen = Boolean(old?.isOpen);
    // The whole row opens by the mouse; by the keyboard its button does.
    body.firstChild.addEventListener('click', (event) => {
        if (!event.target.closest('a, button') && getSelection().isCollapsed) {
            open(below.hidden);
        }
    });
    return body;
}

/** A table's head: labels are texts, or {label, class}. */
export const headOf = (labels) =>
    el('thead', {},
       el('tr', {}, labels.map((label) => el('th', {scope: 'col', class: label.class}, label.label ?? label))));

/** The cells of a plain row, each under its column's name where there is no room for columns. */
const cellsOf = (cells, labels) => cells.map(
    (cell, at) =>
        el('td', {'data-label': labels[at].label ?? labels[at], class: labels[at].class}, el('div', {}, cell)));

/** Names and what they stand for; what is not known is left out. @param {[string, string|Node][]} facts */
export const factList = (facts) =>
    el('dl', {class: 'pairs small'},
       facts.filter(([, value]) => value).map(([name, value]) => [el('dt', {}, name), el('dd', {}, value)]));

/** @param {(string|Node)[][]} rows of cells */
export const smallTable = (labels, rows) =>
    el('table', {class: 'cards small'}, headOf(labels),
       el('tbody', {}, rows.map((cells) => el('tr', {}, cellsOf(cells, labels)))));

/** A word that says whether it is well by colour and by shape. */
export const wellMark = (isWell, word) =>
    el('span', {class: isWell ? 'good' : 'bad'},
       el('span', {class: 'shape', 'aria-hidden': 'true'}, isWell ? '● ' : '▲ '), word);
