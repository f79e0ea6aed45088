// One row of the timeline in full: what was run, what changed, and what can be taken back.

import {content, isStatic, read, readPart} from './api.js';
import {fileDiff, whenNear} from './diff.js';
import {act} from './act.js';
import {byId, clock, commandLine, guarded, make, plain, plainLine, tell} from './list.js';
import {fillPane, isInPane, redrawPane} from './pane.js';

/** `bare`: a file in which prompts, labels and commands were left out. */
export const page = {readOnly: true, bare: false, root: '', sideBySide: false, pinned: new Set()};

export const pictures = /\.(png|jpe?g|gif|webp|avif|bmp|ico|svg)$/i;
const svg = /\.svg$/i;

/** What the server is asked about a row. @param {any} row @returns {Record<string, number>} */
export const spanOf = row => row.type === 'turn' ? {turn: row.first} : {from: row.first, to: row.last};

/** @param {any} row */
export function titleOf(row) {
    if (row.title) return row.title;
    /** @type {Record<string, string>} */
    const names = {turn: 'A turn without a prompt', outside: 'Changes outside of turns', manual: 'A snapshot by hand',
        restore: 'A restore', undo: row.redo ? 'A redo' : 'An undo'};
    return (page.bare && row.type === 'turn' ? 'A turn' : names[row.type] || row.type) + (page.bare ? ', #' + row.first : '');
}

/** @param {any} row @returns {HTMLElement} */
export const counts = row => make('span', {class: 'counts', role: 'img', 'aria-label':
    row.added + ' added, ' + row.modified + ' modified, ' + row.deleted + ' deleted'},
row.added > 0 && make('span', {class: 'plus'}, '+' + row.added + ' '), row.modified > 0 && make('span', {class: 'tilde'}, '~' + row.modified + ' '),
row.deleted > 0 && make('span', {class: 'minus'}, '−' + row.deleted),
!(row.added || row.modified || row.deleted) && 'no changes');

/** @param {string} text @param {() => void} onclick @param {string} [style] @param {string} [title] @returns {HTMLElement} */
export const button = (text, onclick, style = '', title) => make('button', {type: 'button', class: style, title, onclick}, text);

/** @param {number} seq @param {string} path @returns {Promise<HTMLElement>} */
async function picture(seq, path) {
    let {blob} = await content(seq, path);
    if (svg.test(path)) blob = blob.slice(0, blob.size, 'image/svg+xml'); // an image runs no script
    const address = URL.createObjectURL(blob);
    const image = make('img', {src: address, alt: path + ' in snapshot ' + seq});
    image.addEventListener('load', () => URL.revokeObjectURL(address));
    return make('figure', {}, image, make('figcaption', {}, '#' + seq));
}

/** @param {number} seq @param {string} path */
export async function download(seq, path) {
    tell('');
    await guarded(async () => {
        const {blob, command} = await content(seq, path);
        const address = URL.createObjectURL(blob);
        const name = path.slice(path.lastIndexOf('/') + 1);
        make('a', {href: address, download: name}).click();
        setTimeout(() => URL.revokeObjectURL(address), 1000);
        tell('Downloaded. The same: ' + command);
    });
}

/** Before and after. @param {any} file @returns {HTMLElement} */
export function pictureSides(file) {
    const sides = make('div', {class: 'pictures'});
    const seqs = [file.status === 'added' ? null : file.from, file.status === 'deleted' ? null : file.to]; // no number: now
    for (const seq of seqs) {
        if (!seq) continue;
        const side = make('div', {}); // the older one stays on the left, whichever comes first
        sides.append(side);
        picture(seq, file.path).then(figure => side.append(figure), () =>
            side.append('#' + seq + (isStatic ? ' is not in this file.' : ' was not kept.')));
    }
    return sides;
}

/** Whether a path names its file: of one that is no text the page has only a likeness. @param {string} path */
export const isName = path => !path.includes('\ufffd');

/** @param {any} row @param {any} file @param {boolean} alone whether the path changed in one piece */
function lines(row, file, alone) {
    const undoable = !page.readOnly && alone && file.status === 'modified' && isName(file.path);
    // By what it is: its number may soon be another one's.
    const undoHunk = (/** @type {number} */ number, /** @type {any} */ hunk) =>
        act({act: 'undo', ...spanOf(row), paths: [file.path], hunks: [{number, digest: hunk.digest}]}, 'Undo hunk ' + number + ' of ' + file.path);
    return fileDiff(file, page.sideBySide, undoable ? undoHunk : null);
}

/** Whether it was a file before, neither link nor folder. @param {any} file */
const hadBytes = file => file.status !== 'added' && file.oldTarget === undefined;

/**
 * @param {any} row @param {string} path @param {HTMLElement} place @param {HTMLElement} sizes where the numbers of lines go
 * @param {any[]|null} known the lines of all files, where they came with the turn
 */
async function fillFile(row, path, place, sizes, known) {
    try {
        const {body, command, warnings} = known ? {body: {files: known}, command: '', warnings: ''}
            : await readPart('lines', {...spanOf(row), path});
        const files = body.files.filter((/** @type {any} */ file) => file.path === path);
        /** @type {HTMLElement[]} */
        const parts = [];
        const [added, removed] = ['added', 'removed'].map(what =>
            files.reduce((/** @type {number} */ sum, /** @type {any} */ file) => sum + file[what], 0));
        if (added + removed) sizes.replaceChildren(make('span', {class: 'plus'}, '+' + added), ' ', make('span', {class: 'minus'}, '−' + removed), ' lines');
        for (const file of files) {
            if (files.length > 1) parts.push(make('p', {}, 'From #' + file.from + (file.to ? ' to #' + file.to : ' until now')));
            if (file.oldTarget !== undefined || file.newTarget !== undefined) parts.push(make('p', {class: 'path'}, 'Link: ' +
                [file.oldTarget, file.newTarget].map(each => each === undefined ? 'none' : plainLine(each)).join(' → ')));
            if (pictures.test(path)) parts.push(pictureSides(file));
            if (!pictures.test(path) || svg.test(path)) parts.push(lines(row, file, files.length === 1));
        }
        if (files.length && !hadBytes(files[files.length - 1])) place.closest('section')?.querySelector('.download')?.remove();
        if (!files.length) parts.push(make('p', {class: 'empty'}, 'Nothing to compare: its name may not be text.'));
        place.replaceChildren(...parts, warnings ? make('p', {class: 'warning'}, plain(warnings)) : '',
            commandLine(command) || '');
    } catch (error) {
        place.replaceChildren(make('p', {class: 'empty'}, String(error instanceof Error ? error.message : error)));
    }
}

/** @param {any} row @param {string} path @param {string} status @param {(path: string) => void} showVersions @param {any[]|null} known @param {number} height that it had */
function fileSection(row, path, status, showVersions, known, height) {
    const body = make('div', {class: 'body'}, make('p', {class: 'empty'}, '…'));
    const marks = /** @type {Record<string, string>} */ ({added: '+', modified: '~', deleted: '-'});
    const sizes = make('span', {class: 'sizes'});
    const section = make('section', {class: 'file', 'data-path': path, 'aria-label': plainLine(path)},
        make('h3', {}, make('span', {class: 'mark ' + status, title: status}, marks[status]),
            make('span', {class: 'unseen'}, status + ' '), make('span', {class: 'path'}, plainLine(path)), ' ', sizes),
        isName(path) ? make('div', {class: 'tools'},
            !isStatic && button('Versions', () => showVersions(path), 'quiet'),
            !isStatic && status !== 'added' && button('Download as it was', () => download(row.first, path), 'quiet download'),
            !page.readOnly && button('Undo file…', () =>
                act({act: 'undo', ...spanOf(row), paths: [path]}, 'Undo ' + path), 'quiet', 'What was changed in it since stays'),
            !page.readOnly && status !== 'added' && button('Restore as it was…', () =>
                act({act: 'restore', seq: row.first, paths: [path]}, 'Restore ' + path + ' as it was at #' + row.first), 'quiet', 'What was changed in it since goes too'))
            : make('p', {class: 'empty'}, 'Its name is not text: the command line takes it, or all of the turn is taken back.'),
        body);
    if (height) section.style.minHeight = height + 'px';
    whenNear(section, () => fillFile(row, path, body, sizes, known).then(() => { section.style.minHeight = ''; }));
    return section;
}

/** @param {any[]} commands */
function commandTable(commands) {
    if (!commands.length) return null;
    const rows = commands.map(each => make('tr', {}, make('td', {class: 'verdict ' + each.verdict}, each.verdict || '–'),
        make('td', {}, page.bare ? 'left out' : make('code', {}, plain(each.command))), make('td', {class: 'time'}, clock(each.time))));
    return make('details', {open: true}, make('summary', {}, 'Commands before which something was saved (' + commands.length + ')'),
        make('table', {class: 'commands'}, make('thead', {}, make('tr', {}, make('th', {scope: 'col'}, 'Verdict'),
            make('th', {scope: 'col'}, 'Command'), make('th', {scope: 'col'}, 'Time'))), make('tbody', {}, rows)));
}

/** @param {any} row */
function facts(row) {
    const when = clock(row.began) + (row.ended ? ' – ' + clock(row.ended) : row.end === 'running' ? ', running' : '');
    const others = row.meanwhile.map((/** @type {any} */ each) => each.agent || 'another session').join(', ');
    return make('p', {class: 'facts'}, '#' + row.first + (row.last > row.first ? '–#' + row.last : ''),
        row.agent && make('span', {class: 'agent'}, plain(row.agent)), make('span', {}, when), counts(row),
        row.session && make('span', {title: 'Session'}, plain(row.session)),
        row.undone && make('span', {class: 'badge'}, 'taken back'),
        page.pinned.has(row.first) && make('span', {class: 'badge'}, 'pinned'),
        others && make('span', {class: 'badge'}, 'meanwhile: ' + plain(others)),
        row.projects.length > 0 && make('span', {class: 'badge'}, 'also in ' + plainLine(row.projects.join(', '))),
        row.vault.length > 0 && make('span', {class: 'badge'}, row.vault.length + ' in the vault'));
}

/** What takes back a row. @param {any} row @returns {object} */
export const undoOf = row => ({act: 'undo', ...spanOf(row)});

/** @param {any} row */
function acts(row) {
    if (page.readOnly) return null;
    const pinned = page.pinned.has(row.first);
    return make('div', {class: 'acts'},
        make('button', {type: 'button', class: 'main', id: 'undo', onclick: () => act(undoOf(row), 'Undo: ' + titleOf(row))}, 'Undo all of it…'),
        button(pinned ? 'Unpin #' + row.first + '…' : 'Pin #' + row.first + '…', () =>
            act({act: pinned ? 'unpin' : 'pin', seq: row.first}, pinned ? 'Keep #' + row.first + ' no longer than others'
                : 'Keep #' + row.first + ' for ever')));
}

/** As it is typed in a shell. @param {string} word */
export const shellWord = word => /^[\w@%+=:,./-]+$/.test(word) ? word : "'" + word.replaceAll("'", "'\\''") + "'";

/** What undoing the turn would do in one other project, and the command that shows what it did there. @param {any} project */
function elsewhereIn(project) {
    const actions = project.actions.filter((/** @type {any} */ each) => !each.folder);
    const span = project.takesBack[0];
    return make('div', {}, make('h3', {class: 'path'}, plainLine(project.root)),
        make('ul', {}, actions.map((/** @type {any} */ each) => make('li', {class: 'path'}, each.action + ' ' + plainLine(each.path))),
            project.warnings.map((/** @type {string} */ each) => make('li', {class: 'warning'}, plain(each)))),
        actions.length + project.warnings.length ? '' : make('p', {class: 'empty'}, 'Nothing is left of it there that could be taken back.'),
        span && isName(project.root) && actions.length ? commandLine('tidewrack show ' + span.from + ' --project ' + shellWord(project.root)) : '');
}

/** What undoing the turn would do in other projects that it reached. @param {any} row */
function elsewhere(row) {
    if (!row.projects.length || isStatic || row.type !== 'turn') return null;
    const place = make('section', {class: 'elsewhere'}, make('h2', {}, 'In other projects'));
    readPart('elsewhere', {turn: row.first}).then(({body, command, warnings}) => {
        const projects = body.projects.filter((/** @type {any} */ each) => each.root !== page.root);
        place.append(make('p', {}, projects.length ? 'Undoing all of it would do this there:' : 'Nothing of it is left there.'),
            ...projects.map(elsewhereIn),
        warnings ? make('p', {class: 'warning'}, plain(warnings)) : '', commandLine(command) || '');
    }, error => place.append(make('p', {class: 'warning'}, plain(error.message))));
    return place;
}

const fewFiles = 24;
const filesAtOnce = 60;

/** Draws it in the pane. @param {any} row @param {import('./pane.js').IsLate} isLate @param {(path: string) => void} showVersions */
export async function drawRow(row, isLate, showVersions) {
    const name = row.type + ' ' + row.first;
    const isTurn = row.type === 'turn';
    // Of a few files the lines come along: one question in place of two for each.
    const isSmall = isTurn && !isStatic && row.added + row.modified + row.deleted <= fewFiles;
    const answer = await guarded(() => read(isSmall ? 'lines' : isTurn ? 'show' : 'changes', spanOf(row)), isLate);
    if (isLate()) return;
    // What can't be shown doesn't leave another row's buttons there.
    if (!answer) return fillPane(name, [make('h2', {}, plainLine(titleOf(row))), make('p', {class: 'empty'}, 'This can’t be shown.')]);
    const turn = isTurn ? answer.body.turn : row;
    const changes = isTurn ? answer.body.changes : answer.body;
    const folders = new Set(changes.folders);
    const files = ['deleted', 'modified', 'added'].flatMap(status =>
        changes[status].filter((/** @type {string} */ path) => !folders.has(path)).map((/** @type {string} */ path) => ({status, path})));
    const list = make('div', {});
    // Drawn again it has the sizes that it had, until the lines are there.
    const heights = new Map(isInPane(name) ? Array.from(byId('turn').querySelectorAll('section.file'), each => [each.dataset.path, each.offsetHeight]) : []);
    let drawn = 0;
    /** @param {number} count */
    const more = count => {
        const next = files.slice(drawn, drawn + count);
        drawn += next.length;
        for (const {status, path} of next)
            list.append(fileSection(turn, path, status, showVersions, isSmall ? answer.body.files : null, heights.get(path) || 0));
        if (drawn < files.length) {
            const rest = make('p', {class: 'empty'}, files.length - drawn + ' more files…');
            list.append(rest);
            whenNear(rest, () => {
                rest.remove();
                more(filesAtOnce);
            });
        }
    };
    const style = make('button', {type: 'button', 'aria-pressed': page.sideBySide, onclick: () => {
        page.sideBySide = !page.sideBySide;
        void redrawPane();
    }}, 'Side by side');
    style.setAttribute('aria-pressed', String(page.sideBySide));
    more(Math.max(filesAtOnce, heights.size));
    return fillPane(name, [make('h2', {}, plainLine(titleOf(turn))), facts(turn), commandLine(answer.command),
        acts(turn), commandTable(turn.commands),
        make('div', {class: 'filehead'}, make('h2', {}, (files.length === 1 ? '1 file' : files.length + ' files') + (row.projects.length ? ' here' : '')), style), list, elsewhere(turn)]);
}
