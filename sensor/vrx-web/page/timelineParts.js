// What stands around the lanes: choices above them, what colours and shapes mean, keys, and places for what is chosen.

import {el, fill} from './dom.js';
import {rampOf} from './lanes.js';
import {spanName} from './spans.js';
import {isDark} from './theme.js';
import {axes} from './timelineData.js';
import {count} from './words.js';

const spans = ['10min', '1h', '6h', '1d', '7d', '30d'];

/** "10min" with a space in it. */
const spaced = (span) => span.replace(/(\d+)/, '$1 ');

const help = [
    'Left and right go from bin to bin, n and p to the next one with events, Home and End to the borders, up and down ' +
        'from lane to lane. + and − come closer and go farther, Shift with left and right moves, Enter shows the ' +
        'records of a bin, o opens a lane, Escape lets go.',
    'With the mouse: drag to move, wheel to zoom (with Ctrl, where the wheel is needed to scroll), Shift and drag to ' +
        'choose a time, click twice to come closer. Two fingers zoom.',
];

function button(label, title, onclick, more = {}) {
    return el('button', {type: 'button', title, 'aria-label': title, onclick, ...more}, label);
}

/**
 * @param {{axis: (by: string) => void, span: (span: string) => void, now: () => void, move: (widths: number) => void,
 *   zoom: (factor: number) => void}} to
 */
export function makeParts(to) {
    const axis =
        el('select', {id: 'timeline-by', 'data-axis': '', onchange: () => to.axis(axis.value)},
           Object.entries(axes).map(([name, {title}]) => el('option', {value: name, 'data-by': name}, title)));
    const choices = spans.map(
        (span) =>
            el('button', {
                type: 'button',
                'data-span': span,
                'aria-pressed': 'false',
                onclick: () => to.span(span),
            },
               spaced(span)));
    const upToNow = el(
        'button', {type: 'button', title: 'The newest is on the right, and goes on', 'data-live': '', onclick: to.now},
        'Up to now');
    const bar =
        el('div', {class: 'timeline-bar'},
           el('label',
              {for: 'timeline-by'
              },
              'Lanes by ', axis),
           el('div', {class: 'buttons', role: 'group', 'aria-label': 'How much time is shown'}, choices),
           el('div', {class: 'buttons', role: 'group', 'aria-label': 'Move and zoom'},
              button('◀', 'Earlier', () => to.move(-0.5), {'data-move': 'earlier'}),
              button('▶', 'Later', () => to.move(0.5), {'data-move': 'later'}),
              button('+', 'Closer', () => to.zoom(0.5), {'data-zoom': 'in'}),
              button('−', 'Farther', () => to.zoom(2), {'data-zoom': 'out'})),
           upToNow);
    return {
        axis,
        spans: choices,
        upToNow,
        bar,
        when: el('p', {class: 'timeline-when note', 'data-when': ''}),
        trouble: el('p', {class: 'bad', role: 'alert', hidden: true}),
        tip: el('div', {class: 'timeline-tip', hidden: true, role: 'presentation'}),
        nothing: el('p', {class: 'empty timeline-nothing', hidden: true}),
        legend: el('div', {class: 'timeline-legend small note'}),
        readout: el('div', {class: 'timeline-readout panel', 'data-readout': '', 'aria-live': 'polite', hidden: true}),
        help:
            el('details', {class: 'timeline-help small note'}, el('summary', {}, 'Keys and mouse'),
               el('div', {id: 'timeline-keys'}, help.map((text) => el('p', {}, text)))),
    };
}

/** What colours and shapes mean. */
export function fillLegend(legend, {most, binSeconds, rows}) {
    const ramp = rampOf(isDark()).filter((_, at) => at % 3 === 0).map((colour) => {
        const step = el('i', {class: 'step'});
        step.style.backgroundColor = colour;
        return step;
    });
    const width = binSeconds ? spaced(spanName(binSeconds * 1000).slice(1)) : '';
    fill(
        legend, rows.length > 0 && el('span', {class: 'ramp'}, '1 ', ramp, ` ${count(most, 'event')} in ${width}`),
        el('span', {}, el('i', {class: 'hatch'}), ' not all is known'),
        el('span', {}, el('i', {class: 'diamond'}, '◆'), ' changes'),
        el('span', {}, el('i', {class: 'band'}), ' incidents'));
}
