// Whatever changes something is shown first, and done only as it was shown.

import {carryOut, plan} from './api.js';
import {fileDiff} from './diff.js';
import {byId, commandLine, guarded, make, plain, plainLine, tell} from './list.js';

/** @type {() => void} */
let afterwards = () => {};
/** @param {() => void} call what to do when something was changed */
export const whenDone = call => { afterwards = call; };

let isBusy = false; // a plan is on its way, or being carried out

/** Whether nothing else can be begun. */
export const isActing = () => isBusy || byId('dialog').open;

/** One after the other: what is shown is redrawn, as a refusal too tells that it is old. @template T @param {() => Promise<T>} work */
async function alone(work) {
    isBusy = true;
    const answer = await guarded(work);
    isBusy = false;
    if (!answer) afterwards();
    return answer;
}

const soonest = 300; // milliseconds before a preview can have been read

const leaves = /** @type {Record<string, boolean>} */ ({leave: true, keep: true});

/** @param {any} result of a dry run @returns {{rows: HTMLElement[], notes: string[], acts: boolean}} */
function foreseen(result) {
    const rows = /** @type {HTMLElement[]} */ ([]);
    const notes = /** @type {string[]} */ ([]);
    let acts = false;
    /** @param {string} what @param {string} path @param {string} [why] */
    const add = (what, path, why = '') => {
        acts = acts || !leaves[what];
        rows.push(make('tr', {class: leaves[what] ? 'left' : ''}, make('td', {}, what), make('td', {class: 'path'}, plainLine(path)), make('td', {}, plain(why))));
    };
    if (result === null) return {rows, notes, acts: true};
    for (const project of result.projects || []) {
        for (const each of project.actions)
            add(each.action, (result.projects.length > 1 ? project.root + '/' : '') + each.path, each.reason || (each.action === 'merge' ? 'what was changed since stays' : ''));
        notes.push(...project.warnings);
    }
    for (const path of result.restored || []) add(result.overwritten && result.overwritten.includes(path) ? 'overwrite' : 'put back', path);
    for (const path of result.removed || []) add('remove', path);
    for (const item of result.items || []) add(item.asSaved ? 'keep' : item.restored ? 'put back' : 'leave', item.path, item.error || (item.aside ? 'what is there moves to ' + item.aside : ''));
    for (const entry of result.vault || []) notes.push('Vault entry ' + entry.id + ' was saved outside of projects for it; it stays as it is.');
    return {rows, notes: notes.concat(result.warnings || []), acts};
}

/**
 * What became of an act: how many paths were done, what was left for a reason, and what failed.
 * @param {any} body @returns {{done: number, left: number, failed: boolean, rows: HTMLElement[], notes: string[]}}
 */
function outcome(body) {
    const {rows, notes} = foreseen(body);
    const left = rows.filter(row => row.className === 'left');
    const items = body.items || [];
    for (const item of items) for (const each of item.missing || []) notes.push(item.path + ': ' + each);
    for (const entry of body.vault || []) notes.push(...entry.messages);
    const failed = (body.projects || []).some((/** @type {any} */ project) => project.actions.some((/** @type {any} */ each) => each.action === 'leave')) ||
        items.some((/** @type {any} */ item) => item.error || (item.missing || []).length) || (body.warnings || []).length > 0;
    return {done: rows.length - left.length, left: left.length, failed, rows: left, notes};
}

/** @param {HTMLElement[]} rows @param {string} name */
const planTable = (rows, name) => make('div', {class: 'scroll', tabindex: 0, role: 'group', 'aria-label': name}, rows.length
    ? make('table', {class: 'plan'}, make('thead', {}, make('tr', {}, ...['What', 'Path', 'Why'].map(each => make('th', {scope: 'col'}, each)))), make('tbody', {}, rows)) : '');

/** Tells what was done, and shows why the rest was not. @param {any} answer @param {string} title @param {string} name of the act */
function report(answer, title, name) {
    const body = answer.body;
    const {done, left, failed, rows, notes} = outcome(body);
    if (answer.warnings) notes.push(answer.warnings);
    const counted = body.projects || body.restored || body.items;
    const bad = failed || Boolean(counted && !done && left) || Boolean(answer.warnings);
    const text = !counted ? 'Done.' : (done ? done + (done === 1 ? ' path' : ' paths') + ' done' : 'Nothing was done') + (left ? ', ' + left + ' left alone' : '') + '.';
    tell(text + (counted && done && (name === 'undo' || name === 'restore') ? ' To take this back: Redo…, or tidewrack redo' : ''), bad);
    if (!rows.length && !notes.length) return;
    const dialog = byId('dialog');
    const close = make('button', {type: 'button', class: 'main', id: 'close', onclick: () => dialog.close()}, 'Close');
    dialog.replaceChildren(make('h2', {id: 'dialog-title'}, plainLine(title)), make('p', {class: bad ? 'warning' : ''}, text),
        planTable(rows, 'What was left alone'), ...notes.map(note => make('p', {class: 'warning'}, plain(note))), make('div', {class: 'acts'}, close));
    dialog.showModal();
    close.focus();
}

/** Shows what an act would do, and does it when that is wanted. @param {any} wish @param {string} title */
export async function act(wish, title) {
    if (isActing()) return;
    tell('');
    const answer = await alone(() => plan(wish));
    if (!answer || isActing()) return;
    const opened = performance.now();
    const dialog = byId('dialog');
    const {rows, notes, acts} = foreseen(answer.body.result);
    const close = () => dialog.close();
    const go = make('button', {type: 'button', class: 'main', id: 'do', disabled: !acts, onclick: async () => {
        if (performance.now() - opened < soonest) return;
        close();
        const done = await alone(() => carryOut(answer.body.plan));
        if (!done) return;
        report(done, title, wish.act);
        afterwards();
    }}, 'Do it');
    dialog.replaceChildren(make('h2', {id: 'dialog-title'}, plainLine(title)),
        commandLine(answer.body.command) || '',
        acts ? '' : make('p', {class: 'warning'}, 'There is nothing that this would do.'),
        planTable(rows, 'What would be done'),
        answer.body.hunks.length ? fileDiff({path: wish.paths[0], hunks: answer.body.hunks, numbers: wish.hunks.map((/** @type {any} */ each) => each.number)}, false, null) : '',
        ...notes.map(note => make('p', {class: 'warning'}, plain(note))),
        answer.warnings ? make('p', {class: 'warning'}, plain(answer.warnings)) : '',
        make('div', {class: 'acts'}, go, make('button', {type: 'button', onclick: close}, 'Cancel')));
    dialog.showModal();
    (acts ? go : dialog.querySelector('.acts button:last-child')).focus();
}
