// Lists that may be long.

import {el} from './dom.js';

/** The first items; the others one click away. @param {HTMLElement[]} items of a list */
export function firstOf(items, most) {
    if (items.length <= most) {
        return items;
    }
    const rest = items.slice(most);
    const more =
        el('li', {},
           el('button', {type: 'button', class: 'more', onclick: () => more.replaceWith(...rest)},
              `and ${rest.length} more`));
    return [...items.slice(0, most), more];
}
