// Differences of one file: in one column or two, with the language's colours, drawn as they come into sight.

import {isStatic} from './api.js';
import {make, plain, plainLine} from './list.js';

/** @typedef {{oldBegin: number, newBegin: number, digest: string, lines: string[]}} Hunk */
/** @typedef {{path: string, note?: string, hunks: Hunk[], numbers?: number[]}} ChangedFile `numbers`: of its hunks, where they are not all */
/** @typedef {{sign: string, text: string, old: number|null, fresh: number|null}} Line */

const longest = 2000; // characters of a line that are drawn
const atOnce = 400; // lines that are drawn at once

/** @type {Promise<any>|null} */
let colours = null;

/** The script that knows languages is large, so it comes after the first page. @returns {Promise<any>} */
function loadColours() {
    const known = () => /** @type {any} */ (window).hljs || null;
    if (known() || isStatic) return Promise.resolve(known());
    colours = colours || new Promise(done => {
        const script = document.createElement('script');
        script.src = 'highlight.js';
        script.onload = () => done(known());
        script.onerror = () => done(null);
        document.head.append(script);
    });
    return colours;
}

/** @param {any} hljs @param {string} path @returns {string} */
function languageOf(hljs, path) {
    const name = path.slice(path.lastIndexOf('/') + 1).toLowerCase();
    const ending = name.includes('.') ? name.slice(name.lastIndexOf('.') + 1) : name;
    return hljs && hljs.getLanguage(ending) ? ending : '';
}

/** @param {Hunk} hunk @returns {Line[]} */
function linesOf(hunk) {
    let old = hunk.oldBegin;
    let fresh = hunk.newBegin;
    return hunk.lines.map(line => {
        const sign = line[0];
        return {sign, text: line.slice(1), old: sign === '+' ? null : old++, fresh: sign === '-' ? null : fresh++};
    });
}

/** @param {Line} line @param {any} hljs @param {string} language */
function code(line, hljs, language) {
    const bare = line.text.replace(/\r?\n$/, '');
    const shown = plain(bare.length > longest ? bare.slice(0, longest) + ' … ' + (bare.length - longest) + ' more' : bare);
    const cell = make('code', {});
    if (hljs && language && bare.length <= longest) {
        // The library escapes what it is given, and the page's policy runs nothing that would slip through.
        cell.innerHTML = hljs.highlight(language, shown, true).value;
    } else {
        cell.textContent = shown;
    }
    if (!line.text.endsWith('\n')) cell.append(make('span', {class: 'noend', title: 'No line feed at the end'}, ' ⊘'));
    return cell;
}

const kinds = /** @type {Record<string, string>} */ ({'+': 'added', '-': 'removed', ' ': 'same'});
const words = /** @type {Record<string, string>} */ ({'+': 'added: ', '-': 'removed: ', ' ': ''});

/** @param {number|null} number @param {string} kind */
const numberCell = (number, kind) => make('td', {class: 'number ' + kind}, number === null ? '' : String(number));

/** @param {Line|null} line @param {any} hljs @param {string} language */
function codeCell(line, hljs, language) {
    if (!line) return make('td', {class: 'code none'});
    return make('td', {class: 'code ' + kinds[line.sign]},
        make('span', {class: 'sign', 'aria-hidden': 'true'}, line.sign),
        words[line.sign] ? make('span', {class: 'unseen'}, words[line.sign]) : null, code(line, hljs, language));
}

/** One column: the old line's number, the new one's, the text. @param {Line[]} lines @param {any} hljs @param {string} language */
function unified(lines, hljs, language) {
    return lines.map(line => make('tr', {}, numberCell(line.old, kinds[line.sign]), numberCell(line.fresh, kinds[line.sign]),
        codeCell(line, hljs, language)));
}

/** Two columns: removed lines stand beside those that took their place. @param {Line[]} lines @param {any} hljs @param {string} language */
function beside(lines, hljs, language) {
    const rows = [];
    for (let at = 0; at < lines.length;) {
        if (lines[at].sign === ' ') {
            rows.push([lines[at], lines[at++]]);
            continue;
        }
        const left = [];
        const right = [];
        while (at < lines.length && lines[at].sign === '-') left.push(lines[at++]);
        while (at < lines.length && lines[at].sign === '+') right.push(lines[at++]);
        for (let each = 0; each < Math.max(left.length, right.length); ++each)
            rows.push([left[each] || null, right[each] || null]);
    }
    return rows.map(([left, right]) => make('tr', {},
        numberCell(left ? left.old : null, left ? kinds[left.sign] : 'none'), codeCell(left, hljs, language),
        numberCell(right ? right.fresh : null, right ? kinds[right.sign] : 'none'), codeCell(right, hljs, language)));
}

/** Calls once when the element comes near to what is in sight. @param {HTMLElement} element @param {() => void} call */
export function whenNear(element, call) {
    const observer = new IntersectionObserver(seen => {
        if (!seen.some(each => each.isIntersecting)) return;
        observer.disconnect();
        call();
    }, {rootMargin: '600px'});
    observer.observe(element);
}

/**
 * @param {ChangedFile} file @param {boolean} sideBySide
 * @param {((number: number, hunk: Hunk) => void)|null} undoHunk what the button of a hunk does
 */
export function fileDiff(file, sideBySide, undoHunk) {
    const place = make('div', {class: 'diff' + (sideBySide ? ' beside' : ''), tabindex: 0, role: 'group', 'aria-label': 'Lines of ' + plainLine(file.path)});
    if (file.note) return place.append(make('p', {class: 'empty'}, 'No lines to show: ' + plain(file.note) + '.')), place;
    if (!file.hunks.length) return place.append(make('p', {class: 'empty'}, 'No lines changed; the file was touched, or its permissions changed.')), place;
    /** @type {{number: number, hunk: Hunk, lines: Line[]}[]} */
    const pieces = [];
    file.hunks.forEach((hunk, index) => {
        const lines = linesOf(hunk);
        for (let at = 0; at < lines.length; at += atOnce)
            pieces.push({number: at ? 0 : file.numbers ? file.numbers[index] : index + 1, hunk, lines: lines.slice(at, at + atOnce)});
    });
    /** @param {any} hljs */
    const next = hljs => {
        const language = languageOf(hljs, file.path);
        for (let drawn = 0; pieces.length && drawn < atOnce;) {
            const {number, hunk, lines} = /** @type {any} */ (pieces.shift());
            drawn += lines.length;
            if (number) place.append(make('div', {class: 'hunk'},
                make('span', {}, 'Hunk ' + number + ', line ' + (hunk.newBegin || hunk.oldBegin)),
                undoHunk && make('button', {type: 'button', class: 'quiet', onclick: () => undoHunk(number, hunk)}, 'Undo hunk…')));
            place.append(make('table', {role: 'presentation'},
                make('tbody', {}, (sideBySide ? beside : unified)(lines, hljs, language))));
        }
        if (!pieces.length) return;
        const rest = make('p', {class: 'empty'}, 'More lines follow…');
        place.append(rest);
        whenNear(rest, () => {
            rest.remove();
            next(hljs);
        });
    };
    // Plain lines stand there at once; the colours come when their script is there.
    const drawAll = (/** @type {any} */ hljs) => {
        const all = pieces.slice();
        next(hljs);
        return () => {
            pieces.splice(0, pieces.length, ...all);
            place.replaceChildren();
        };
    };
    const hljs = /** @type {any} */ (window).hljs;
    const again = drawAll(hljs || null);
    if (!hljs) void loadColours().then(loaded => {
        if (!loaded || !languageOf(loaded, file.path)) return;
        again();
        next(loaded);
    });
    return place;
}
