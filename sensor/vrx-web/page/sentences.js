// Sentences of the history on the page: a date in them is not broken at the end of a line.

import {el} from './dom.js';

const dates = /(\d{4}-\d\d-\d\d(?: \d\d:\d\d)?(?: UTC)?)/;

/** @returns {(string|Node)[]} together they are the text as it is */
export const sentence = (text) =>
    text.split(dates).map((part, at) => (at % 2 ? el('span', {class: 'whole'}, part) : part));
