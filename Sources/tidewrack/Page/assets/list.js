// Small parts that the views are made of, and the list that draws only the rows in sight.

/** @typedef {string|Node|null|undefined|false} Part */

/**
 * An element; texts are never read as markup.
 * @param {string} tag @param {Record<string, any>} [attributes] @param {...(Part|Part[])} parts
 * @returns {HTMLElement}
 */
export function make(tag, attributes = {}, ...parts) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
        else if (value === true) element.setAttribute(name, '');
        else if (value !== false && value !== undefined && value !== null) element.setAttribute(name, String(value));
    }
    for (const part of parts.flat()) if (part) element.append(part);
    return element;
}

/** @param {string} id @returns {any} */
export const byId = id => document.getElementById(id);

/** Control characters and those that turn the direction of writing are written out. @param {string} text */
export function plain(text) {
    return text.replace(/[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u200e\u200f\u202a-\u202e\u2066-\u2069]/g,
        letter => '\\u' + letter.charCodeAt(0).toString(16).padStart(4, '0'));
}

/** As `plain`, of what has one line, such as a name. @param {string} text */
export const plainLine = text => plain(text).replace(/\t/g, '\\t').replace(/\n/g, '\\n');

/** @param {string} date @returns {string} */
export function clock(date) {
    const then = new Date(date);
    const time = then.toLocaleTimeString([], {hour: '2-digit', minute: '2-digit'});
    const now = new Date();
    if (then.toDateString() === now.toDateString()) return time;
    const year = then.getFullYear() === now.getFullYear() ? undefined : 'numeric';
    return then.toLocaleDateString([], {year, month: 'short', day: 'numeric'}) + ' ' + time;
}

/** @param {string} command @returns {Part} */
export function commandLine(command) {
    if (!command) return null;
    const copy = make('button', {type: 'button', class: 'quiet', 'aria-label': 'Copy the command', onclick: async () => {
        const copied = await guarded(() => navigator.clipboard.writeText(command).then(() => true));
        if (!copied) return;
        copy.textContent = 'Copied';
        setTimeout(() => { copy.textContent = 'Copy'; }, 1500);
    }}, 'Copy');
    return make('p', {class: 'command', title: 'The command that does the same'}, make('code', {}, plain(command)), copy);
}

/** @param {string} text @param {boolean} [bad] */
export function tell(text, bad = false) {
    const place = byId('message');
    place.textContent = plain(text);
    place.className = text ? (bad ? 'bad' : 'good') : '';
}

/** @type {Map<string, string>} */
const warnings = new Map();

/** What the latest answer from `source` warned of stands there until that answers without. @param {string} source @param {string} text */
export function warn(source, text) {
    if ((warnings.get(source) || '') === text) return;
    if (text) warnings.set(source, text);
    else warnings.delete(source);
    const lines = new Set(Array.from(warnings.values()).flatMap(each => each.split('\n').filter(Boolean)));
    byId('warnings').replaceChildren(...Array.from(lines, line => make('p', {class: 'warning'}, plain(line))));
}

/**
 * Shows what goes wrong in `work` instead of losing it.
 * @template T @param {() => Promise<T>} work @param {() => boolean} [isLate] whether nobody waits for it by then
 * @returns {Promise<T|undefined>}
 */
export async function guarded(work, isLate = () => false) {
    try {
        return await work();
    } catch (error) {
        if (!isLate()) tell(error instanceof Error ? error.message : String(error), true);
        return undefined;
    }
}

const rowHeight = 58; // as page.css has it

/** A list of any length: only the rows in sight are there. @template T */
export class LongList {
    /**
     * @param {HTMLElement} place with the role of a listbox
     * @param {(item: T) => Part[]} draw @param {(item: T) => void} chosen
     */
    constructor(place, draw, chosen) {
        this.place = place;
        this.draw = draw;
        this.chosen = chosen;
        /** @type {T[]} */
        this.items = [];
        this.at = -1;
        this.space = make('div', {class: 'space', role: 'presentation'});
        place.replaceChildren(this.space);
        place.addEventListener('scroll', () => requestAnimationFrame(() => this.paint()));
        place.addEventListener('click', event => {
            const row = /** @type {HTMLElement} */ (event.target).closest('.row');
            if (row) this.choose(Number(row.id.slice('row-'.length)));
        });
        new ResizeObserver(() => this.paint()).observe(place);
    }

    /** @param {T[]} items @param {(item: T) => boolean} [isChosen] */
    show(items, isChosen = () => false) {
        this.items = items;
        this.at = items.findIndex(isChosen);
        this.space.style.height = items.length * rowHeight + 'px';
        this.paint();
    }

    /** @param {number} index one behind the last is that; none of those before the first */
    choose(index) {
        if (!this.items.length || index < 0) return;
        this.at = Math.min(index, this.items.length - 1);
        const top = this.at * rowHeight;
        if (top < this.place.scrollTop) this.place.scrollTop = top;
        const bottom = top + rowHeight - this.place.clientHeight;
        if (bottom > this.place.scrollTop) this.place.scrollTop = bottom;
        this.paint();
        this.chosen(this.items[this.at]);
    }

    paint() {
        const first = Math.max(0, Math.floor(this.place.scrollTop / rowHeight) - 4);
        const last = Math.min(this.items.length, first + Math.ceil(this.place.clientHeight / rowHeight) + 9);
        /** @type {Element[]} */
        const there = Array.from(this.space.children);
        /** @type {Element[]} */
        const rows = [];
        for (let index = first; index < last; ++index) {
            const row = make('div', {role: 'option', id: 'row-' + index, class: 'row',
                'aria-setsize': this.items.length, 'aria-posinset': index + 1}, this.draw(this.items[index]));
            row.style.top = index * rowHeight + 'px';
            row.setAttribute('aria-selected', String(index === this.at));
            rows.push(there.find(each => each.isEqualNode(row)) || row);
        }
        // What is as it was stays: a row that is replaced between press and release is never clicked.
        for (const old of there) if (!rows.includes(old)) old.remove();
        rows.forEach((row, at) => this.space.children[at] === row || this.space.insertBefore(row, this.space.children[at] || null));
        if (this.at >= first && this.at < last) this.place.setAttribute('aria-activedescendant', 'row-' + this.at);
        else this.place.removeAttribute('aria-activedescendant');
    }
}
