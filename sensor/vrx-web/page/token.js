// Asks for the token.

import {el, fill} from './dom.js';
import {awaitPerson} from './rest.js';

const usual = 'It is a line of the file that vrx-web was given as --token-file. This tab keeps it until it is closed.';

/** @param {string} why where there is something else to say @returns {Promise<string>} there is no way round it */
export function askToken(why) {
    const dialog = document.getElementById('ask');
    const field = el('input', {type: 'password', id: 'token', autocomplete: 'current-password', spellcheck: 'false'});
    field.required = true;
    const form =
        el('form', {},
           // Password managers want a name beside it.
           el('input', {type: 'text', name: 'username', autocomplete: 'username', value: 'vrx-web', hidden: true}),
           el('h2', {id: 'ask-title'}, 'A token is needed'), el('p', {}, why || usual),
           el('label', {'for': 'token'}, 'Token'), field, el('button', {class: 'main'}, 'Go on'));
    fill(dialog, form);
    dialog.onclose = () => dialog.showModal(); // Escape closes it, but without a token nothing can be shown
    dialog.showModal();
    awaitPerson(true);
    return new Promise((resolve) => form.addEventListener('submit', (event) => {
        event.preventDefault();
        dialog.onclose = null;
        dialog.close();
        awaitPerson(false);
        resolve(field.value.trim());
    }));
}
