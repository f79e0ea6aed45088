// The page as a whole: the timeline with its filters, the keys, the views.

import {isStatic, read, readPart} from './api.js';
import {act, isActing, whenDone} from './act.js';
import {byId, clock, commandLine, guarded, LongList, make, plain, plainLine, tell, warn} from './list.js';
import {pane, redrawPane, showInPane} from './pane.js';
import {counts, drawRow, page, shellWord, spanOf, titleOf, undoOf} from './turn.js';
import {showStatus, showVault, showVersions, startSearch} from './views.js';

const atFirst = 100; // rows that come before all others
const all = 1000000;

/** @type {any[]} */
let rows = [];
/** @type {((row: any) => boolean)|null} whether the path of the filter changed in a row */
let ofPath = null;
let pathCommand = ''; // which tells the same
/** @type {any} */
let chosen = null;

const list = new LongList(byId('list'), row => [
    make('span', {class: 'title' + (row.undone ? ' undone' : '')}, plain(titleOf(row)).slice(0, 300)),
    make('span', {class: 'meta'}, (row.agent || row.type === 'turn') && make('span', {class: 'agent'}, plain(row.agent || 'agent')),
        make('time', {datetime: row.began}, clock(row.began)), counts(row), '#' + row.first),
], row => {
    tell('');
    chosen = row;
    void showInPane(isLate => drawRow(latest(row), isLate, showVersions), row);
});

/** @param {any} a @param {any} b */
const isSame = (a, b) => a && b && a.first === b.first && a.type === b.type;

/** As the history has it now. @param {any} row */
const latest = row => rows.find(each => isSame(each, row)) || row;

function filtered() {
    const words = byId('filter-text').value.toLowerCase();
    const agent = byId('filter-agent').value;
    const session = byId('filter-session').value;
    return rows.filter(row => (!agent || row.agent === agent) && (!session || row.session === session) &&
        (!words || (titleOf(row) + '\n' + row.commands.map((/** @type {any} */ each) => each.command).join('\n')).toLowerCase().includes(words)) &&
        (!ofPath || ofPath(row)));
}

function showRows() {
    const shown = filtered();
    byId('count').textContent = shown.length === rows.length ? rows.length + ' rows' : shown.length + ' of ' + rows.length;
    list.show(shown, row => isSame(row, chosen));
    const isSameCommand = byId('filter-command').textContent === filterCommands(shown.length).join('');
    if (!isSameCommand) byId('filter-command').replaceChildren(...filterCommands(shown.length).map(each => commandLine(each) || ''));
}

/** What prints the same rows, as far as a command does. @param {number} count of rows @returns {string[]} */
function filterCommands(count) {
    const options = ['agent', 'session'].map(name => [name, byId('filter-' + name).value]).filter(([, value]) => value)
        .map(([name, value]) => ' --' + name + ' ' + shellWord(value)).join('');
    return [options && 'tidewrack timeline -n ' + Math.max(1, count) + options, pathCommand].filter(Boolean);
}

/** @param {string} id @param {string} every @param {string} name of the key */
function fillSelect(id, every, name) {
    const select = byId(id);
    const was = select.value;
    const values = Array.from(new Set(rows.map(row => row[name]).filter(Boolean)));
    select.replaceChildren(make('option', {value: ''}, every), ...values.map(value => make('option', {value}, plain(value))));
    select.value = values.includes(was) ? was : '';
}

/** @param {any[]} fresh */
function take(fresh) {
    rows = fresh;
    fillSelect('filter-agent', 'All agents', 'agent');
    fillSelect('filter-session', 'All sessions', 'session');
    showRows();
}

let loads = 0;

/** All of it anew. */
async function load() {
    const mine = ++loads;
    const isLate = () => mine !== loads;
    const isAgain = rows.length > 0;
    const first = await guarded(() => read('timeline', {n: atFirst}), isLate);
    if (!first || isLate()) return;
    const newest = first.body.rows;
    // What was just done is there before all of a long history has been read again.
    take(newest.length < atFirst ? newest : newest.concat(rows.filter(row => row.first < newest[atFirst - 1].first)));
    if (!chosen && rows.length) list.choose(0);
    if (isStatic) return;
    if (isAgain) void redrawPane();
    if (newest.length === atFirst) {
        const rest = await guarded(() => read('timeline', {n: all}), isLate);
        if (isLate()) return;
        if (rest) take(rest.body.rows);
    }
    const [log] = await Promise.all([guarded(() => read('log'), isLate), takePath()]);
    if (!log || isLate()) return;
    const pinned = log.body.filter((/** @type {any} */ each) => each.pinned).map((/** @type {any} */ each) => each.seq);
    const isNews = String(pinned) !== String(Array.from(page.pinned));
    page.pinned = new Set(pinned);
    if (isNews) await redrawPane();
}

/** @param {string} name */
function show(name) {
    for (const view of document.querySelectorAll('.view')) /** @type {HTMLElement} */ (view).hidden = view.id !== name;
    for (const each of byId('views').querySelectorAll('[data-view]'))
        each.setAttribute('aria-pressed', String(each.dataset.view === name));
    tell(''); // of the view that one leaves
    if (name === 'vault') void showVault();
    if (name === 'status') void showStatus();
    if (name === 'history') list.paint();
    if (name === 'search') byId('search').querySelector('input').focus();
}

/** @param {KeyboardEvent} event */
function key(event) {
    const target = /** @type {HTMLElement} */ (event.target);
    if (event.ctrlKey || event.metaKey || event.altKey || byId('dialog').open || byId('history').hidden) return;
    if (/^(INPUT|SELECT|TEXTAREA)$/.test(target.tagName)) return;
    const onList = target === byId('list') || target === document.body;
    if (event.key === 'j' || (event.key === 'ArrowDown' && onList)) list.choose(list.at + 1);
    else if (event.key === 'k' || (event.key === 'ArrowUp' && onList)) list.choose(list.at - 1);
    else if (event.key === 'Enter' && onList) byId('turn').focus();
    else if (event.key === 'u' && pane.row && !page.readOnly) void act(undoOf(latest(pane.row)), 'Undo: ' + titleOf(pane.row));
    else return;
    event.preventDefault();
}

let pathsAsked = 0;

/** Works out which rows changed the path of the filter; where that can't be told, none. */
async function takePath() {
    const mine = ++pathsAsked;
    const isLate = () => mine !== pathsAsked;
    const path = byId('filter-path').value.trim();
    if (isStatic) {
        const changed = path ? await keptRowsOf(path) : null;
        if (isLate()) return;
        ofPath = changed && (row => changed.has(row.type + row.first));
        return showRows();
    }
    const log = path ? await guarded(() => read('log', {path}), isLate) : null;
    if (isLate()) return;
    const seqs = log ? log.body.map((/** @type {any} */ each) => each.seq) : [];
    ofPath = path ? row => seqs.some((/** @type {number} */ seq) => row.first <= seq && (seq < row.last || row.end === 'running')) : null;
    pathCommand = log ? log.command : '';
    showRows();
}

/** Of a file without a server, the rows in which the path changed, or something below it. @param {string} path @returns {Promise<Set<string>>} */
async function keptRowsOf(path) {
    const below = path.replace(/\/*$/, '/');
    /** @type {Set<string>} */
    const found = new Set();
    for (const row of rows) {
        const isTurn = row.type === 'turn';
        const answer = await readPart(isTurn ? 'show' : 'changes', spanOf(row)).catch(() => null);
        if (!answer) continue;
        const changes = isTurn ? answer.body.changes : answer.body;
        const paths = ['added', 'modified', 'deleted'].flatMap(each => changes[each]);
        if (paths.some(each => each + '/' === below || each.startsWith(below))) found.add(row.type + row.first);
    }
    return found;
}

/** @param {any} row */
function open(row) {
    show('history');
    const find = () => list.items.findIndex(each => isSame(each, row));
    if (find() < 0) { // the filters hide it
        for (const id of ['filter-text', 'filter-path', 'filter-agent', 'filter-session']) byId(id).value = '';
        ++pathsAsked;
        ofPath = null;
        pathCommand = '';
        showRows();
    }
    list.choose(find());
}

/** A key that is held presses no button again. @param {KeyboardEvent} event */
function holdOff(event) {
    if (event.repeat && event.key === 'Enter' && /** @type {HTMLElement} */ (event.target).tagName === 'BUTTON') event.preventDefault();
}

function label() {
    if (isActing()) return;
    const dialog = byId('dialog');
    const text = /** @type {HTMLInputElement} */ (make('input', {'aria-label': 'Label', required: true, maxlength: 1000}));
    dialog.replaceChildren(make('h2', {id: 'dialog-title'}, 'Take a snapshot with a label'),
        make('form', {onsubmit: (/** @type {Event} */ event) => {
            event.preventDefault();
            dialog.close();
            void act({act: 'label', label: text.value}, 'Snapshot: ' + text.value);
        }}, text, make('button', {type: 'submit', class: 'main'}, 'Next…'),
        make('button', {type: 'button', onclick: () => dialog.close()}, 'Cancel')));
    dialog.showModal();
}

async function start() {
    const config = await guarded(() => read('config'));
    if (!config) return;
    page.readOnly = config.body.readOnly;
    page.bare = config.body.contents === false;
    page.root = config.body.root;
    byId('root').textContent = plainLine(config.body.root);
    document.title = plainLine(config.body.root) + ' – Tidewrack';
    document.body.classList.toggle('readonly', page.readOnly);
    for (const id of ['label', 'redo']) byId(id).hidden = page.readOnly;
    byId('refresh').hidden = isStatic;
    for (const each of byId('views').querySelectorAll('[data-view=vault], [data-view=status]')) each.hidden = isStatic;
    byId('views').querySelector('[data-view=search]').hidden = page.bare; // there are no lines in it
    startSearch(() => rows, open);
    byId('views').addEventListener('click', (/** @type {any} */ event) => event.target.dataset.view && show(event.target.dataset.view));
    byId('label').addEventListener('click', label);
    byId('redo').addEventListener('click', () => act({act: 'redo'}, 'Take back the latest undo'));
    byId('refresh').addEventListener('click', () => {
        tell('');
        void load();
    });
    byId('filters').addEventListener('submit', (/** @type {Event} */ event) => event.preventDefault());
    for (const id of ['filter-text', 'filter-agent', 'filter-session']) byId(id).addEventListener('input', showRows);
    byId('filter-path').addEventListener('change', takePath);
    byId('filters').addEventListener('input', () => tell(''));
    document.addEventListener('keydown', key);
    document.addEventListener('keydown', holdOff, true);
    whenDone(() => {
        void load();
        if (!byId('vault').hidden) void showVault();
    });
    await load();
    if (isStatic) tell('Kept in one file: nothing here reaches the history itself.');
    warn('config', (config.body.missing || []).join('\n'));
}

void start();
