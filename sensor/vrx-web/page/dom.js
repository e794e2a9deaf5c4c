// Makes elements. Texts become text nodes and nothing else: no string from outside is ever markup.

const svgSpace = 'http://www.w3.org/2000/svg';

/** Properties: `class`, `on<event>` functions, and attributes; what is null, undefined or false is left out. */
function equip(node, properties) {
    for (const [name, value] of Object.entries(properties)) {
        if (value === null || value === undefined || value === false) {
            continue;
        }
        if (name.startsWith('on')) {
            node.addEventListener(name.slice(2), value);
        } else {
            node.setAttribute(name, value === true ? '' : String(value));
        }
    }
}

/**
 * el('p', {class: 'note'}, 'text', otherNode, [more, ...]): children that are null, undefined or false are left out.
 * @returns {HTMLElement}
 */
export function el(tag, properties = {}, ...children) {
    const node = document.createElement(tag);
    equip(node, properties);
    node.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined && child !== false));
    return node;
}

/** The same for elements of SVG. */
export function svg(tag, properties = {}, ...children) {
    const node = document.createElementNS(svgSpace, tag);
    equip(node, properties);
    node.append(...children);
    return node;
}

/** What is in the node is replaced. Returns the node. */
export function fill(node, ...children) {
    node.replaceChildren(...children.flat(Infinity).filter((child) => child !== null && child !== undefined && child !== false));
    return node;
}

/**
 * Rows that stay what they are while their data does: makes one for each item that is new or has changed, keeps the
 * others, and puts all in the items' order. So what is open, focused or selected in a row survives news.
 * @param {HTMLElement} parent its other children, such as a table's head, stay before them
 * @param {(item) => string} keyOf @param {(item, old: HTMLElement?) => HTMLElement} make
 */
export function fillRows(parent, items, keyOf, make) {
    const rows = [...parent.children].filter((row) => row.dataset.key !== undefined);
    const old = new Map(rows.map((row) => [row.dataset.key, row]));
    let place = rows[0] ?? null;
    for (const item of items) {
        const key = String(keyOf(item));
        const text = JSON.stringify(item);
        let row = old.get(key);
        old.delete(key);
        if (!row || row.itemText !== text) {
            const made = make(item, row);
            made.dataset.key = key;
            made.itemText = text;
            if (row) {
                place = row === place ? row.nextSibling : place;
                row.remove();
            }
            row = made;
        }
        if (row === place) {
            place = place.nextSibling;
        } else {
            parent.insertBefore(row, place);
        }
    }
    for (const row of old.values()) {
        row.remove();
    }
}
