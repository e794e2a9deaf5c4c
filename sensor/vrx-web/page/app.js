// The shell: which view is shown, what all views share, and the sentence that stands over them when something is wrong.

import {readAddress, writeAddress} from './address.js';
import {ask, isAborted, onHost} from './api.js';
import {el, fill} from './dom.js';
import {watchHealth} from './health.js';
import {follow} from './live.js';
import {keep, recall} from './memory.js';
import {dismissNews, noteIncidents, showNews, showPulse, showTrouble} from './notices.js';
import {during, throttled} from './rest.js';
import {applyTheme, getTheme, nextTheme, setTheme} from './theme.js';
import {isUtc, setUtc, zoneText} from './times.js';
import {goOnAges} from './widgets.js';

/**
 * What a view's module exports.
 * @typedef {object} ViewModule
 * @property {string} title
 * @property {string[]} [styles] names of stylesheets that it needs beside style.css: "style-timeline.css"
 * @property {(root: HTMLElement, site: Site) => Mounted} mount puts what it has into the root, which is empty
 *
 * @typedef {object} Mounted
 * @property {(address: import('./address.js').Address) => Promise<void>|void} show called behind mount, whenever the
 *     address has changed and the view has not, and when the history can be read again. What it throws is shown
 *     over the view; AbortError is not.
 * @property {(news: {records: object[], incidents: object[]}) => void} [onNews] what the stream brought
 * @property {() => void} [refresh] the stream has begun (again): what came before it may be missing
 * @property {() => void} [unmount] its listeners and timers end
 */

const views = {
    now: {title: 'Now', load: () => import('./now.js')},
    timeline: {title: 'Timeline', load: () => import('./timeline.js')},
    records: {title: 'Records', load: () => import('./records.js')},
    incident: {title: 'Incident', load: () => import('./incident.js'), isHidden: true},
};

const root = document.getElementById('view');
let shown = null; // {name, id, mounted}
let host = '';
let health = null; // as it was last told
let openIncidents = 0;
let viewTitle = '';
let turn = 0;

/** What the shell gives to views. */
const site = {
    /** Shows another address; with replace it takes the place of this one in the browser's history. */
    go(view, {params = {}, id = null, replace = false} = {}) {
        const hash = writeAddress(view, params, id);
        if (hash === location.hash) {
            return;
        }
        if (replace) {
            history.replaceState(null, '', hash);
            render();
        } else {
            location.hash = hash;
        }
    },
    /** Said by screen readers, and not seen. */
    announce(text) {
        document.getElementById('news').textContent = text;
    },
    setTitle(text) {
        viewTitle = text;
        showTitle();
    },
};

function showTitle() {
    const title = openIncidents ? `(${openIncidents}) ${viewTitle}` : viewTitle;
    document.title = [title, host, 'ScopeAgent'].filter(Boolean).join(' – ');
}

function showViews(current) {
    fill(
        document.getElementById('views'),
        Object.entries(views)
            .filter(([, view]) => !view.isHidden)
            .map(
                ([name, view]) =>
                    el('a', {href: '#' + name, 'aria-current': name === current ? 'page' : null}, view.title,
                       name === 'now' && openIncidents > 0 &&
                           el('span', {class: 'badge', title: `${openIncidents} not over`}, openIncidents))));
}

async function loadStyles(names = []) {
    await Promise.all(names.map((name) => {
        const href = '/page/' + name;
        if (document.querySelector(`link[href="${href}"]`)) {
            return null;
        }
        return new Promise(
            (resolve) =>
                document.head.append(el('link', {rel: 'stylesheet', href, onload: resolve, onerror: resolve})));
    }));
}

let hasFailed = false; // the view could not be shown

/** Shows what the address says. Only the last of several calls takes effect. */
async function render({anew = false} = {}) {
    const mine = ++turn;
    const address = readAddress(location.hash);
    const name = Object.hasOwn(views, address.view) ? address.view : 'now';
    showTrouble('view', null);
    hasFailed = false;
    try {
        if (anew || shown?.name !== name || shown.id !== address.id) {
            const module = await views[name].load();
            await loadStyles(module.styles);
            if (mine !== turn) {
                return;
            }
            const isFirst = !shown;
            shown?.mounted.unmount?.();
            shown = null;
            viewTitle = views[name].title;
            showTitle();
            showViews(name);
            root.className = name;
            dismissNews();
            fill(root);
            shown = {name, id: address.id, mounted: module.mount(root, site)};
            if (!isFirst && !anew) {
                root.focus({preventScroll: true});
                window.scrollTo(0, 0);
            }
        }
        await shown.mounted.show(address);
    } catch (error) {
        // Where all is unreadable, the sentence about that says it, and the view comes back with it.
        if (mine === turn && !isAborted(error) && isReadable(health)) {
            hasFailed = true;
            showTrouble('view', error.message, () => during(render()));
        }
    }
}

// ---- News ----

let gathered = {records: [], incidents: []};
const giveNews = throttled(200, () => {
    const news = gathered;
    gathered = {records: [], incidents: []};
    shown?.mounted.onNews?.(news);
    if (news.incidents.length > 0) {
        countIncidents();
        showNews(news.incidents, shown?.name, site);
    }
});

const countIncidents = throttled(1000, async () => {
    try {
        const {incidents} = await ask('incidents', {state: ['open', 'quiet'], limit: 1000});
        openIncidents = incidents.length;
        noteIncidents(incidents);
    } catch {
        return; // the banner says why
    }
    showViews(shown?.name);
    showTitle();
});

function onEvent(type, data) {
    if (type === 'record') {
        gathered.records.push(data);
    } else if (type === 'incident') {
        gathered.incidents.push(data);
    } else if (type === 'gap') { // some came that the stream has not: of another history all is other
        onStream(true);
        if (data.records === null) {
            during(render({anew: true}));
        }
        return;
    }
    giveNews();
}

function onStream(isLive) {
    showPulse({isLive});
    if (isLive) {
        countIncidents();
        shown?.mounted.refresh?.();
    }
}

const isReadable = (state) => !state || !['unreadable', 'unreachable'].includes(state.status);

function onHealth(state) {
    const before = health;
    health = state;
    showPulse({lastFetch: state.last_fetch, isWell: state.status === 'ok' && state.agent_up !== false});
    showTrouble('health', state);
    document.documentElement.dataset.state = state.status;
    if (!isReadable(state)) {
        showTrouble('view', null);
    } else if (!isReadable(before) || (hasFailed && state.status === 'ok' && before?.status !== 'ok')) {
        countIncidents();
        during(render());
    }
}

// ---- Choices ----

function showChoices() {
    const zone = document.getElementById('zone');
    const theme = document.getElementById('theme');
    zone.textContent = isUtc() ? 'UTC' : zoneText(Date.now(), false);
    zone.title = `Times are shown in ${isUtc() ? 'UTC' : 'the time of this computer'}; press for the other`;
    theme.textContent = {system: '◐ auto', light: '○ light', dark: '● dark'}[getTheme()];
    theme.title = 'Light, dark, or as the system says';
}

document.getElementById('zone').addEventListener('click', () => {
    setUtc(!isUtc());
    keep('zone', isUtc() ? 'utc' : 'local');
    showChoices();
    during(render({anew: true}));
});
document.getElementById('theme').addEventListener('click', () => {
    setTheme(nextTheme());
    showChoices();
});
document.getElementById('skip').addEventListener('click', (event) => {
    event.preventDefault(); // the address is the view's
    root.focus();
});

setUtc(recall('zone') === 'utc');
applyTheme();
showChoices();
onHost((name) => {
    if (name !== host) {
        host = name;
        document.getElementById('host').textContent = name;
        showTitle();
    }
});
window.addEventListener('hashchange', () => during(render()));
setInterval(goOnAges, 1000);
during(render()).then(() => {
    // Where one looks next is there before one looks, also when vrx-web does not answer by then.
    Object.values(views).forEach((view) => view.load().catch(() => {}));
});
watchHealth(onHealth);
follow({onEvent, onState: onStream});
