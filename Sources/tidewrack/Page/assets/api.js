// What the page knows comes from here: from the server, or in a file without one from what was put into it.

import {warn} from './list.js';

/** @typedef {Record<string, string|number>} Values */
/** @typedef {{body: any, command: string, warnings: string}} Document */
/** @typedef {Object<string, Document>} Kept */

/** @type {Kept|null} */
const kept = (() => {
    const element = document.getElementById('documents');
    return element ? JSON.parse(element.textContent || '{}') : null;
})();

export const isStatic = kept !== null;

/** The token is in the address's fragment, which no request carries. */
const token = (() => {
    const given = location.hash.slice(1);
    if (given) history.replaceState(null, '', location.pathname); // nobody reads it off the screen
    if (given && !isStatic) sessionStorage.setItem('token', given);
    return isStatic ? '' : given || sessionStorage.getItem('token') || '';
})();

export class Refused extends Error {
    /** @param {string} message @param {number} [status] of the answer */
    constructor(message, status = 0) {
        super(message);
        this.status = status;
    }
}

/** @param {Values} values */
function queryOf(values) {
    return Object.keys(values).sort().map(name => [name, String(values[name])]);
}

/** @param {string} name @param {Values} values @returns {Document} */
function keptDocument(name, values) {
    const query = queryOf(values).map(pair => pair.join('=')).join('&');
    const exact = kept && kept[name + (query ? '?' + query : '')];
    if (exact) return exact;
    if (name === 'lines' && values.path !== undefined) { // a turn's lines are kept in one piece
        const {path, ...rest} = values;
        const all = keptDocument('lines', rest);
        return {...all, body: {...all.body, files: all.body.files.filter((/** @type {any} */ file) => file.path === path)}};
    }
    if (name === 'timeline' && kept)
        for (const key of Object.keys(kept))
            if (key.startsWith('timeline?')) return kept[key];
    throw new Refused('This is not in the file.');
}

/** @param {string} name @param {RequestInit} options @returns {Promise<Response>} */
async function ask(name, options) {
    const headers = {'X-Tidewrack-Token': token, ...options.headers};
    let answer;
    try {
        answer = await fetch('/api/' + name, {...options, headers, cache: 'no-store'});
    } catch {
        throw new Refused('The server has ended. Start it again with: tidewrack browse');
    }
    if (!answer.ok) throw new Refused((await answer.text()).trim() || answer.statusText, answer.status);
    return answer;
}

/** @param {Response} answer */
const commandOf = answer => decodeURIComponent(answer.headers.get('X-Tidewrack-Command') || '');

/** @param {Response} answer @returns {Promise<Document>} */
async function documentOf(answer) {
    return {
        body: await answer.json(),
        command: commandOf(answer),
        warnings: decodeURIComponent(answer.headers.get('X-Tidewrack-Warnings') || ''),
    };
}

/** @param {string} name @param {Values} [values] @returns {string} */
function addressOf(name, values = {}) {
    const query = new URLSearchParams(queryOf(values)).toString();
    return name + (query ? '?' + query : '');
}

/** What a command prints as JSON; its warnings are for whoever asks. @param {string} name @param {Values} [values] @returns {Promise<Document>} */
export async function readPart(name, values = {}) {
    if (isStatic) return keptDocument(name, values);
    return documentOf(await ask(addressOf(name, values), {}));
}

/** What a command prints as JSON; its warnings are shown. @param {string} name @param {Values} [values] @returns {Promise<Document>} */
export async function read(name, values = {}) {
    const answer = await readPart(name, values);
    warn(name, answer.warnings);
    return answer;
}

/** The bytes of a file in a snapshot. @param {number} seq @param {string} path @returns {Promise<{blob: Blob, command: string}>} */
export async function content(seq, path) {
    if (isStatic) {
        const {body, command} = keptDocument('content', {seq, path});
        return {blob: new Blob([Uint8Array.from(atob(body), letter => letter.charCodeAt(0))]), command};
    }
    const answer = await ask(addressOf('content', {seq, path}), {});
    return {blob: await answer.blob(), command: commandOf(answer)};
}

/** @param {string} name @param {object} body @returns {Promise<Document>} */
async function post(name, body) {
    return documentOf(await ask(name, {
        method: 'POST', body: JSON.stringify(body), headers: {'Content-Type': 'application/json'},
    }));
}

/** What an act would do. @param {object} wish */
export const plan = wish => post('plan', wish);
/** Does what was looked at, as long as it would still do the same. @param {number} id */
export const carryOut = id => post('act', {plan: id});
