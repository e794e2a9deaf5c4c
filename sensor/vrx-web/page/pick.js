// A button below which several can be chosen, or one.

import {el, fill} from './dom.js';

/**
 * @param {string} name of the boxes @param {string} title
 * @param {(values: string[]) => void} onChange
 * @returns {{node: HTMLElement, show: (offers: Map<string, string>, values: string[]) => void}} what is chosen and not
 *     offered is shown, too
 */
export function pick(name, title, onChange, {isSingle = false} = {}) {
    const summary = el('summary', {class: 'pick'});
    const list = el('div', {class: 'list'});
    const node = el('details', {'data-pick': name}, summary, list);
    closeElsewhere(node, summary);
    const chosen = () => [...list.querySelectorAll('input:checked')].map((box) => box.value);
    const choose = ({target}) => onChange(!isSingle ? chosen() : target.checked ? [target.value] : []);

    function show(offers, values) {
        const rows =
            new Map([...values.filter((value) => !offers.has(value)).map((value) => [value, value]), ...offers]);
        const more = values.length > 1 ? ` and ${values.length - 1} more` : '';
        summary.textContent = `${title}: ${values.length === 0 ? 'any' : rows.get(values[0]) + more}`;
        summary.classList.toggle('chosen', values.length > 0);
        const focused = list.contains(document.activeElement) ? document.activeElement.value : null;
        fill(
            list, rows.size === 0 && el('p', {class: 'note'}, 'None is known.'),
            [...rows].map(
                ([value, text]) =>
                    el('label', {}, el('input', {type: 'checkbox', name, value, onchange: choose}), ' ', text)));
        for (const box of list.querySelectorAll('input')) {
            box.checked = values.includes(box.value);
            if (box.value === focused) {
                box.focus();
            }
        }
    }
    return {node, show};
}

/** It closes by Escape, and when one goes on elsewhere. */
function closeElsewhere(node, summary) {
    node.addEventListener('keydown', (event) => {
        if (event.key === 'Escape' && node.open) {
            node.open = false;
            summary.focus();
        }
    });
    node.addEventListener('focusout', (event) => {
        if (event.relatedTarget && !node.contains(event.relatedTarget)) {
            node.open = false;
        }
    });
    const close = (event) => {
        if (!node.contains(event.target)) {
            node.open = false;
        }
    };
    node.addEventListener('toggle', () => {
        if (node.open) {
            document.addEventListener('pointerdown', close);
        } else {
            document.removeEventListener('pointerdown', close);
        }
    });
}
