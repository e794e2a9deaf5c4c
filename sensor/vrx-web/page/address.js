// The address holds the whole view: "#now", "#timeline?since=-1d&by=target", "#incident/12", "#records?kind=logo".

/**
 * @typedef {object} Address
 * @property {string} view "now" where nothing else is said
 * @property {string|null} id what stands behind the view's name: "12" of "incident/12"
 * @property {URLSearchParams} params in the order in which they stand there
 */

/** @returns {Address} */
export function readAddress(hash) {
    const text = hash.replace(/^#/, '');
    const [path, ...rest] = text.split('?');
    const [view, id] = path.split('/');
    return {view: decode(view) || 'now', id: id === undefined || id === '' ? null : decode(id),
            params: new URLSearchParams(rest.join('?'))};
}

/**
 * @param {string} view
 * @param {object|URLSearchParams} params values are texts or lists of them; what is null or empty is left out
 * @param {string|number|null} id
 */
export function writeAddress(view, params = {}, id = null) {
    const query = new URLSearchParams();
    const entries = params instanceof URLSearchParams ? params.entries() : Object.entries(params);
    for (const [name, value] of entries) {
        for (const one of [value].flat()) {
            if (one !== null && one !== undefined && one !== '') {
                query.append(name, String(one));
            }
        }
    }
    // What may stand in a fragment as it is stays legible: names of ports and times are full of colons.
    const text = query.toString().replaceAll('%3A', ':').replaceAll('%2C', ',').replaceAll('%2F', '/');
    return '#' + encodeURIComponent(view) + (id === null ? '' : '/' + encodeURIComponent(id)) + (text && '?' + text);
}

function decode(text) {
    try {
        return decodeURIComponent(text);
    } catch {
        return '';
    }
}
