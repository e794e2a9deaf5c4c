// The form over the records: what it says is what stands in the address.

import {el, fill} from './dom.js';
import {kindName, kinds} from './words.js';

const spans = [['', 'all that is kept'], ['-15min', 'last 15 minutes'], ['-1h', 'last hour'], ['-1d', 'last day'], ['-7d', 'last 7 days'], ['-30d', 'last 30 days']];
const names = ['since', 'until', 'kind', 'initiator', 'target', 'fabric', 'host', 'incident'];

/**
 * @param {(params: URLSearchParams) => void} onChange
 * @returns {{node: HTMLElement, show: (params: URLSearchParams) => void, offer: (ports: object) => void}}
 */
export function mountFilter(onChange) {
    let params = new URLSearchParams();
    let offered = {initiator: new Map(), target: new Map(), fabric: new Map()};

    const change = (name, values) => {
        const next = new URLSearchParams();
        for (const known of names) {
            for (const value of known === name ? values : params.getAll(known)) {
                next.append(known, value);
            }
        }
        onChange(next);
    };

    const span = el('select', {id: 'span', onchange: () => {
        if (span.value === 'own') {
            own.hidden = false;
            since.focus();
        } else {
            params.delete('until');
            change('since', span.value ? [span.value] : []);
        }
    }}, spans.map(([value, text]) => el('option', {value}, text)), el('option', {value: 'own'}, 'from … to …'));
    const textField = (name, example) => el('input', {name, id: name, size: 22, placeholder: example, spellcheck: 'false', autocomplete: 'off',
        onchange: (event) => change(name, event.target.value.trim() ? [event.target.value.trim()] : [])});
    const since = textField('since', '2026-11-22 08:00');
    const until = textField('until', 'now, -2h, today');
    const own = el('span', {class: 'own'}, el('label', {for: 'since'}, 'from '), since, el('label', {for: 'until'}, ' to '), until);
    const picks = {
        kind: pick('kind', 'Kind', (values) => change('kind', values)),
        initiator: pick('initiator', 'From', (values) => change('initiator', values)),
        target: pick('target', 'To', (values) => change('target', values)),
        fabric: pick('fabric', 'Fabric', (values) => change('fabric', values), true),
    };
    const others = el('span', {class: 'others'});
    const clear = el('button', {type: 'button', onclick: () => onChange(new URLSearchParams())}, 'Clear');
    const node = el('form', {class: 'filter', 'data-filter': true, 'aria-label': 'Which records', onsubmit: (event) => event.preventDefault()},
        el('span', {}, el('label', {for: 'span', class: 'unseen'}, 'When'), span), own, Object.values(picks).map((one) => one.node), others, clear);

    function show(next) {
        params = new URLSearchParams(next);
        const begin = params.get('since') ?? '';
        const isOwn = params.has('until') || !spans.some(([value]) => value === begin);
        span.value = isOwn ? 'own' : begin;
        own.hidden = !isOwn;
        since.value = begin;
        until.value = params.get('until') ?? '';
        picks.kind.show(new Map([...kinds.keys()].map((kind) => [kind, kindName(kind)])), params.getAll('kind'));
        for (const name of ['initiator', 'target', 'fabric']) {
            picks[name].show(offered[name], params.getAll(name));
        }
        fill(others, ['host', 'incident'].filter((name) => params.has(name)).map((name) =>
            el('button', {type: 'button', 'aria-pressed': 'true', title: 'Press to leave it out', onclick: () => change(name, [])}, `${name} ${params.get(name)} ✕`)));
        clear.hidden = [...params.keys()].length === 0;
    }

    return {node, show, offer(ports) {
        const called = (port) => [port.port_name, port.name ?? port.port_name];
        offered = {
            initiator: new Map(ports.map(called)),
            target: new Map(ports.flatMap((port) => port.remote_ports.map(called)).sort((a, b) => a[1].localeCompare(b[1]))),
            fabric: new Map(ports.filter((port) => port.fabric).map((port) => [port.fabric, port.fabric])),
        };
        show(params);
    }};
}

/** A button below which several can be chosen, or one. */
function pick(name, title, onChange, isSingle = false) {
    const summary = el('summary', {class: 'pick'});
    const list = el('div', {class: 'list'});
    const node = el('details', {'data-pick': name}, summary, list);
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
    node.addEventListener('toggle', () => {
        const close = (event) => {
            if (!node.isConnected || !node.contains(event.target)) {
                node.open = false;
                document.removeEventListener('pointerdown', close);
            }
        };
        if (node.open) {
            document.addEventListener('pointerdown', close);
        }
    });
    const chosen = () => [...list.querySelectorAll('input:checked')].map((box) => box.value);
    return {node, show(offers, values) {
        const rows = new Map([...offers, ...values.filter((value) => !offers.has(value)).map((value) => [value, value])]);
        fill(summary, values.length === 0 ? `${title}: any` : `${title}: ${rows.get(values[0])}${values.length > 1 ? ` and ${values.length - 1} more` : ''}`);
        summary.classList.toggle('chosen', values.length > 0);
        const focused = document.activeElement?.closest?.('[data-pick]') === node ? document.activeElement.value : null;
        fill(list, rows.size === 0 && el('p', {class: 'note'}, 'None is known.'), [...rows].map(([value, text]) => el('label', {}, el('input', {
            type: 'checkbox', name, value, onchange: (event) => onChange(isSingle ? (event.target.checked ? [value] : []) : chosen())}), ' ', text)));
        for (const box of list.querySelectorAll('input')) {
            box.checked = values.includes(box.value);
            if (focused !== null && box.value === focused) {
                box.focus();
            }
        }
    }};
}
