// Whatever changes something is shown first, and done only as it was shown.

import {carryOut, plan} from './api.js';
import {byId, commandLine, guarded, make, plain, tell} from './list.js';

/** @type {() => void} */
let afterwards = () => {};
/** @param {() => void} call what to do when something was changed */
export const whenDone = call => { afterwards = call; };

const leaves = /** @type {Record<string, boolean>} */ ({leave: true, keep: true});

/** @param {any} result of a dry run @returns {{rows: HTMLElement[], notes: string[], acts: boolean}} */
function foreseen(result) {
    const rows = /** @type {HTMLElement[]} */ ([]);
    const notes = /** @type {string[]} */ ([]);
    let acts = false;
    /** @param {string} what @param {string} path @param {string} [why] */
    const add = (what, path, why = '') => {
        acts = acts || !leaves[what];
        rows.push(make('tr', {class: leaves[what] ? 'left' : ''}, make('td', {}, what), make('td', {class: 'path'}, plain(path)), make('td', {}, plain(why))));
    };
    if (result === null) return {rows, notes, acts: true};
    for (const project of result.projects || []) {
        for (const each of project.actions)
            add(each.action, (result.projects.length > 1 ? project.root + '/' : '') + each.path, each.reason || '');
        notes.push(...project.warnings);
    }
    for (const path of result.restored || []) add(result.overwritten && result.overwritten.includes(path) ? 'overwrite' : 'put back', path);
    for (const path of result.removed || []) add('remove', path);
    for (const item of result.items || []) add(item.restored ? 'put back' : 'leave', item.path, item.error || (item.aside ? 'what is there moves to ' + item.aside : ''));
    for (const entry of result.vault || []) notes.push('Vault entry ' + entry.id + ' was saved outside of projects for it; it stays as it is.');
    return {rows, notes: notes.concat(result.warnings || []), acts};
}

/** @param {any} answer */
function outcome(answer) {
    const {rows} = foreseen(answer.body);
    const left = rows.filter(row => row.className === 'left').length;
    if (answer.body.projects || answer.body.restored || answer.body.items)
        return rows.length - left + (rows.length - left === 1 ? ' path' : ' paths') + ' done' + (left ? ', ' + left + ' left alone' : '') + '.';
    return 'Done.';
}

/** Shows what an act would do, and does it when that is wanted. @param {object} wish @param {string} title */
export async function act(wish, title) {
    const answer = await guarded(() => plan(wish));
    if (!answer) return;
    tell('');
    const dialog = byId('dialog');
    const {rows, notes, acts} = foreseen(answer.body.result);
    const close = () => dialog.close();
    const go = make('button', {type: 'button', class: 'main', id: 'do', disabled: !acts, onclick: async () => {
        close();
        const done = await guarded(() => carryOut(answer.body.plan));
        if (!done) return;
        tell(outcome(done) + (done.warnings ? ' ' + done.warnings : '') + ('safety' in done.body || done.body.projects ? ' To take this back: tidewrack redo' : ''));
        afterwards();
    }}, 'Do it');
    dialog.replaceChildren(make('h2', {id: 'dialog-title'}, plain(title)),
        commandLine(answer.command) || '',
        acts ? '' : make('p', {class: 'warning'}, 'There is nothing that this would do.'),
        make('div', {class: 'scroll', tabindex: 0, role: 'group', 'aria-label': 'What would be done'}, rows.length ? make('table', {class: 'plan'}, make('thead', {}, make('tr', {},
            ...['What', 'Path', 'Why'].map(each => make('th', {scope: 'col'}, each)))), make('tbody', {}, rows)) : ''),
        ...notes.map(note => make('p', {class: 'warning'}, plain(note))),
        answer.warnings ? make('p', {class: 'warning'}, plain(answer.warnings)) : '',
        make('div', {class: 'acts'}, go, make('button', {type: 'button', onclick: close}, 'Cancel')));
    dialog.showModal();
    (acts ? go : dialog.querySelector('.acts button:last-child')).focus();
}
