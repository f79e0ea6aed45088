// The views beside the timeline: search, a file's versions, the vault, status.

import {content, isStatic, read, readPart, Refused} from './api.js';
import {act} from './act.js';
import {fileDiff} from './diff.js';
import {byId, clock, commandLine, guarded, make, plain, plainLine, tell} from './list.js';
import {fillPane, showInPane} from './pane.js';
import {button, download, isName, page, pictures, pictureSides, spanOf, titleOf} from './turn.js';

const longestText = 200000; // bytes of a version that are drawn

/** A version's text, all of it. @param {number} seq @param {string} path @returns {Promise<HTMLElement|string>} */
async function textOf(seq, path) {
    if (pictures.test(path)) return '';
    const {blob} = await content(seq, path);
    const text = blob.size > longestText ? '' : await blob.text();
    const why = blob.size > longestText ? 'It is too large to be shown here.' : text.includes('\0') ? 'It is no text.' : text ? '' : 'It is empty.';
    if (why) return make('p', {class: 'empty'}, why);
    const lines = (text.match(/[^\n]*\n|[^\n]+$/g) || []).map(line => ' ' + line);
    return fileDiff({path, hunks: [{oldBegin: 1, newBegin: 1, lines, digest: ''}], numbers: [0]}, false, null);
}

/** A file's versions along a slider. @param {string} path */
export function showVersions(path) {
    const state = {seq: 0}; // the version that the slider is at, from one drawing to the next
    byId('views').querySelector('[data-view=history]').click();
    return showInPane(isLate => drawVersions(path, state, isLate));
}

/** @param {string} path @param {{seq: number}} state @param {import('./pane.js').IsLate} isLate */
async function drawVersions(path, state, isLate) {
    const isFirst = !state.seq;
    const [answer, newest] = await Promise.all([guarded(() => read('log', {path}), isLate), guarded(() => read('status'), isLate)]);
    if (!answer || !newest || isLate()) return;
    const versions = answer.body.slice().reverse(); // oldest first; what changed after each
    // What the last change left: the newest snapshot has it, where none was taken before that change alone.
    const latest = newest.body.newest;
    const left = versions.length && latest && latest.seq > versions[versions.length - 1].seq ? latest : null;
    const stops = left ? [...versions, left] : versions;
    const was = stops.findIndex((/** @type {any} */ each) => each.seq === state.seq);
    const body = make('div', {});
    const name = make('output', {id: 'version'});
    const slider = /** @type {HTMLInputElement} */ (make('input', {type: 'range', min: 0, max: Math.max(0, stops.length - 1),
        value: was < 0 ? Math.max(0, versions.length - 1) : was, 'aria-label': 'Version', 'aria-describedby': 'version'}));
    let asked = 0;
    /** @param {any} version @param {string} its @param {any} next @param {() => boolean} isOld */
    const changeAfter = async (version, its, next, isOld) => {
        const span = /** @type {Record<string, string|number>} */ ({from: version.seq, path: its});
        if (next) span.to = next.seq;
        const lines = await guarded(() => read('lines', span), isOld);
        return lines && {file: lines.body.files[0], command: lines.command};
    };
    const draw = async () => {
        const at = Number(slider.value);
        const mine = ++asked;
        const isOld = () => mine !== asked || isLate();
        const version = stops[at];
        if (!version) return body.replaceChildren('No snapshot is on record after which it changed.');
        const isNow = version === left;
        const next = versions[at + 1];
        const seq = state.seq = version.seq;
        const its = isNow ? path : version.renamedFrom || path; // a snapshot may have its old name
        name.textContent = (at + 1) + ' of ' + stops.length + ': #' + seq + ', ' + clock(version.created) + (isNow ? ', as it is now' : '');
        // The stop for now has no change behind it; the one before it tells whether the file is still there.
        const change = await changeAfter(isNow ? versions[at - 1] : version, its, next, isOld);
        if (!change || isOld()) return undefined;
        const {file} = change;
        const isMissing = file && file.status === (isNow ? 'deleted' : 'added');
        const text = isMissing || (file && file.oldTarget !== undefined) ? '' : await textOf(seq, its).catch(() => '');
        if (isOld()) return undefined;
        return body.replaceChildren(isMissing ? make('p', {class: 'empty'}, (isNow ? 'Not there any more at #' : 'Not there yet at #') + seq + '.')
            : make('div', {class: 'tools'}, button('Download this version', () => download(seq, its), 'quiet'),
                page.readOnly || isNow ? '' : button('Restore this version…', () =>
                    act({act: 'restore', seq, paths: [its]}, 'Restore ' + its + ' as it was at #' + seq), 'quiet')),
        ...isNow ? [] : [make('p', {}, 'What changed after this version' + (next ? ', up to #' + next.seq : ', until now') + ':'),
            file && pictures.test(its) ? pictureSides(file) : '',
            file ? fileDiff(file, page.sideBySide, null) : make('p', {class: 'empty'}, 'Nothing changed.'),
            commandLine(change.command) || ''],
        text && make('h3', {}, 'This version, #' + seq), text);
    };
    slider.addEventListener('input', draw);
    fillPane('versions of ' + path, [make('h2', {}, 'Versions of ' + plainLine(path)), commandLine(answer.command),
        make('div', {class: 'slider'}, slider, name), body]);
    if (isFirst) slider.focus();
    await draw();
}

/** @param {any} found */
function foundRow(found) {
    const spans = (found.from === found.to ? '#' + found.from : '#' + found.from + '–#' + found.to);
    return make('tr', {}, make('td', {class: 'path'}, plainLine(found.path) + (found.kind === 'folder' ? '/' : '')),
        make('td', {}, found.there ? 'there now' : 'gone' + (found.title ? ' in: ' + plain(found.title) : '')), make('td', {}, spans),
        make('td', {}, isName(found.path) && found.kind !== 'folder' && button('Versions', () => showVersions(found.path), 'quiet'),
            isName(found.path) && !page.readOnly && !found.there && found.keptIn && button('Restore…', () =>
                act({act: 'restore', seq: found.keptIn, paths: [found.path]}, 'Restore ' + found.path), 'quiet')));
}

/** @param {any} row @param {{path: string, count: number, lines: string[]}} file @param {(row: any) => void} open */
const hit = (row, file, open) => make('section', {class: 'hit'},
    make('h3', {}, button(plain(titleOf(row)), () => open(row), 'link'), ' ', make('span', {class: 'path'}, plainLine(file.path))),
    make('pre', {}, ...file.lines.slice(0, 5).map(line => make('span', {class: line[0] === '+' ? 'added' : 'removed'}, plain(line.slice(0, 300).trimEnd()) + '\n')),
        file.count > 5 && file.count - 5 + ' more lines of it'));

const mostPaths = 500;
const mostHits = 200;
const firstPiece = 25; // rows of a search that come before all others
const mostInPiece = 200;

/** What one row of a file without a server has. @param {any} row @param {string} wanted */
async function keptPiece(row, wanted) {
    const files = row.added + row.modified + row.deleted === 0 ? [] : (await readPart('lines', spanOf(row))).body.files;
    const found = files.flatMap((/** @type {any} */ file) => {
        const lines = file.hunks.flatMap((/** @type {any} */ hunk) => hunk.lines).filter((/** @type {string} */ line) =>
            line[0] !== ' ' && line.toLowerCase().includes(wanted));
        return lines.length ? [{path: file.path, count: lines.length, lines}] : [];
    });
    return {body: {searched: 1, rows: [{...row, found}], warnings: []}, command: '', warnings: ''};
}

/** @param {() => any[]} rows of the timeline @param {(row: any) => void} open */
export function startSearch(rows, open) {
    const place = byId('search');
    const text = /** @type {HTMLInputElement} */ (make('input', {type: 'search', 'aria-label': 'What to search for', placeholder: 'A part of a path, a pattern, or changed text'}));
    const results = make('div', {id: 'results', 'aria-live': 'polite'});
    const stop = make('button', {type: 'button', id: 'stop', hidden: true, onclick: () => { isStopped = true; }}, 'Stop');
    let running = 0;
    let isStopped = false;
    /** What another search found goes. @returns {() => boolean} whether yet another was begun */
    const begin = () => {
        const mine = ++running;
        tell('');
        results.replaceChildren();
        stop.hidden = true;
        isStopped = false;
        return () => mine !== running;
    };
    const byName = async () => {
        const isLate = begin();
        if (!text.value) return;
        // That there is nothing is a refusal of the command, in its words.
        const answer = await guarded(() => read('find', {text: text.value}).catch(error => {
            if (!(error instanceof Refused) || error.status !== 422) throw error;
            return error;
        }), isLate);
        if (!answer || isLate()) return;
        if (answer instanceof Refused) return results.replaceChildren(make('p', {class: 'empty'}, plain(answer.message)));
        results.replaceChildren(commandLine(answer.command) || '',
            make('table', {class: 'wide'}, make('thead', {}, make('tr', {}, ...['Path', 'Where it is', 'Snapshots', 'Acts'].map(each => make('th', {scope: 'col'}, each)))),
                make('tbody', {}, answer.body.paths.slice(0, mostPaths).map(foundRow))),
            answer.body.paths.length > mostPaths ? make('p', {class: 'warning'}, 'These are the first ' + mostPaths + ' of ' + answer.body.paths.length + ' paths; the command above prints all of them.') : '');
    };
    // From the newest turn back, piece by piece: what was found so far is there to be read.
    const byLines = async () => {
        const isLate = begin();
        const wanted = text.value.toLowerCase();
        if (!wanted) return;
        stop.hidden = false;
        const progress = make('p', {});
        const command = make('div', {});
        results.replaceChildren(command, progress);
        let done = 0;
        let hits = 0;
        const unread = new Set(); // what could not be read, each told once
        const told = new Set(); // a row that came meanwhile moves the others on
        const known = rows().slice();
        let all = known.length;
        let piece = isStatic ? 1 : firstPiece;
        while (done < all && hits < mostHits && !isStopped) {
            progress.textContent = 'Read ' + done + ' of ' + all + ' rows, ' + hits + ' lines found…';
            const answer = await (isStatic ? keptPiece(known[done], wanted)
                : readPart('search', {text: wanted, n: piece, skip: done})).catch(error => error);
            if (isLate()) return;
            if (answer instanceof Error) {
                unread.add(plain(answer.message));
                break;
            }
            if (!done) command.replaceChildren(commandLine(answer.command) || '');
            for (const each of answer.body.warnings.concat(answer.warnings || [])) unread.add(plain(each));
            for (const row of answer.body.rows) {
                if (told.has(row.type + row.first)) continue;
                told.add(row.type + row.first);
                for (const file of row.found) {
                    hits += file.count;
                    results.append(hit(row, file, open));
                }
            }
            if (answer.body.all !== undefined) all = answer.body.all;
            done += answer.body.searched;
            if (!answer.body.searched) break;
            if (!isStatic) piece = Math.min(mostInPiece, piece * 2);
        }
        stop.hidden = true;
        progress.textContent = hits + ' changed lines found in ' + done + ' of ' + all + ' rows.' +
            (done >= all ? '' : (isStopped ? ' Stopped' : hits < mostHits ? ' It ended early' : ' It ends at ' + mostHits + ' lines') + '; older rows were not read.') +
            (unread.size ? ' Not all could be read: ' + Array.from(unread).join(' ') : '');
        progress.className = unread.size ? 'warning' : '';
    };
    const form = make('form', {role: 'search', onsubmit: (/** @type {Event} */ event) => {
        event.preventDefault();
        void (isStatic ? byLines() : byName());
    }}, text, !isStatic && make('button', {type: 'submit', class: 'main', id: 'by-name'}, 'Search names'),
    make('button', {type: 'button', id: 'by-lines', onclick: byLines}, 'Search changed lines'), stop);
    place.replaceChildren(make('h2', {}, 'Search'), form, results);
}

export async function showVault() {
    const answer = await guarded(() => read('vault'));
    if (!answer) return;
    const entries = answer.body.map((/** @type {any} */ entry) => make('section', {class: 'file'},
        make('h3', {}, make('code', {}, plain(entry.command))),
        make('p', {class: 'facts'}, clock(entry.created), make('span', {}, plain(entry.agent || '')), make('span', {}, 'in ' + plain(entry.cwd))),
        make('ul', {}, entry.items.map((/** @type {any} */ item) => make('li', {class: 'path'}, plainLine(item.original))),
            entry.skipped.map((/** @type {string} */ path) => make('li', {class: 'path warning'}, plainLine(path) + ' was not saved'))),
        page.readOnly ? null : button('Put back…', () => act({act: 'putback', id: entry.id}, 'Put back what was saved before: ' + entry.command))));
    byId('vault').replaceChildren(make('h2', {}, 'Saved outside of projects'), commandLine(answer.command) || '',
        entries.length ? make('div', {}, entries) : make('p', {class: 'empty'}, 'The vault is empty.'));
}

export async function showStatus() {
    const answer = await guarded(() => read('status'));
    if (!answer) return;
    const status = answer.body;
    /** @param {string} name @param {string} value */
    const fact = (name, value) => [make('dt', {}, name), make('dd', {}, plain(value))];
    byId('status').replaceChildren(make('h2', {}, status.healthy ? 'All is well' : 'Something is wrong'), commandLine(answer.command) || '',
        ...status.troubles.map((/** @type {any} */ each) => make('p', {class: 'warning'}, plain(each.what + ' ' + each.mend))),
        make('dl', {}, fact('Folder', status.root || 'not tracked'), fact('Snapshots', String(status.snapshots)),
            fact('Newest', status.newest ? '#' + status.newest.seq + ', ' + clock(status.newest.created) : 'none'),
            fact('Room', (status.bytes / 1048576).toFixed(1) + ' MiB' + (status.sharesBlocks ? ', shared with the project where unchanged' : '')),
            fact('Too large to be kept', status.tooLarge + ' files'), fact('git', status.git)),
        make('h3', {}, 'Agents'), make('table', {class: 'wide'}, make('thead', {}, make('tr', {}, ...['Agent', 'Hooks', 'Latest'].map(each => make('th', {scope: 'col'}, each)))),
            make('tbody', {}, status.agents.map((/** @type {any} */ each) => make('tr', {}, make('td', {}, plain(each.agent)),
                make('td', {}, plain(each.state + (each.hint ? ': ' + each.hint : ''))),
                make('td', {}, each.latest ? clock(each.latest.time) + ' ' + plain(each.latest.event) : ''))))),
        make('h3', {}, 'Latest failures of hooks'), status.failures.length ? make('ul', {}, status.failures.map((/** @type {any} */ each) =>
            make('li', {}, clock(each.time) + ' ' + plain(each.agent + ' ' + each.event + ': ' + each.message)))) : make('p', {}, 'None.'));
}
