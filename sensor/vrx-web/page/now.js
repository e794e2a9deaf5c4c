// Comes next.
import {el} from './dom.js';
export function mount(root) {
    root.append(el('h1', {}, 'now'));
    return {show() {}};
}
