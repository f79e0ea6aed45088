// The place on the right. Of what is asked for there only the newest is drawn, and it can be asked for anew.

import {byId} from './list.js';

/** @typedef {import('./list.js').Part} Part */
/** @typedef {() => boolean} IsLate whether something else is wanted by now */
/** @typedef {(isLate: IsLate) => Promise<void>} Drawing draws nothing once it is late */

/** The row that the pane shows, for keys that act on it. */
export const pane = {row: /** @type {any} */ (null)};

/** @type {Drawing|null} */
let drawing = null;
let drawings = 0;

/** @param {Drawing} fresh @param {any} [row] that it shows */
export async function showInPane(fresh, row = null) {
    drawing = fresh;
    pane.row = row;
    const mine = ++drawings;
    await fresh(() => mine !== drawings);
}

/** Asks anew for what is shown. */
export async function redrawPane() {
    if (drawing) await showInPane(drawing, pane.row);
}

/** Fills it; where the same thing is drawn again, it stays at the lines that are being read. @param {string} name @param {Part[]} parts */
export function fillPane(name, parts) {
    const place = byId('turn');
    const top = isInPane(name) ? place.scrollTop : 0;
    place.dataset.name = name;
    place.replaceChildren(...parts.filter(Boolean));
    place.scrollTop = top;
}

/** @param {string} name */
export const isInPane = name => byId('turn').dataset.name === name;
