// A real history in a real browser: what a person clicks, and what a hostile project or a foreign page tries.
// Started by Tests/Page/browse.
import assert from 'node:assert/strict';
import {spawn, spawnSync} from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import {createRequire} from 'node:module';
import os from 'node:os';
import path from 'node:path';
import {makeDemo} from './demo.mjs';

const [programs, executablePath, tools] = process.argv.slice(2);
const {chromium} = createRequire(tools + '/')('playwright-core');
const scratch = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'tidewrack-page-')));
const program = path.join(programs, 'tidewrack');

// A project with a store of its own, and what is done in it.
function placeOf(name) {
    const folder = path.join(scratch, name), store = path.join(scratch, 'store of ' + name);
    const env = {PATH: process.env.PATH, HOME: path.join(scratch, 'home'), TIDEWRACK_HOME: store, TMPDIR: scratch};
    const at = each => path.join(folder, each);
    const tidewrack = (words, input = '') => {
        const ran = spawnSync(program, words, {cwd: folder, env, input, encoding: 'utf8'});
        assert.ok(ran.status === 0 || ran.status === 3, words.join(' ') + ': ' + ran.stderr);
        return ran.stdout;
    };
    const write = (each, text) => {
        fs.mkdirSync(path.dirname(at(each)), {recursive: true});
        fs.writeFileSync(at(each), text);
    };
    let session = '';
    const turn = (agent, its, prompt, work) => {
        session = its;
        tidewrack(['snap', '--kind=prompt', '--agent=' + agent, '--session=' + its, '--label=' + prompt]);
        work();
        tidewrack(['snap', '--kind=stop', '--agent=' + agent, '--session=' + its]);
    };
    const hook = command => tidewrack(['hook', 'claude'], JSON.stringify({hook_event_name: 'PreToolUse', session_id: session, cwd: folder,
        tool_name: 'Bash', tool_input: {command}}));
    fs.mkdirSync(env.HOME, {recursive: true});
    fs.mkdirSync(folder);
    return {folder, store, env, at, write, turn, hook, tidewrack, remove: each => fs.rmSync(at(each), {recursive: true}),
        readText: each => fs.readFileSync(at(each), 'utf8')};
}
const place = placeOf('project');
const {write, readText, tidewrack, turn, hook} = place;

// A picture of one colour: a BMP needs no compression.
const picture = (red, green, blue) => {
    const size = 24, bytes = Buffer.alloc(54 + size * size * 3);
    bytes.write('BM');
    bytes.writeUInt32LE(bytes.length, 2), bytes.writeUInt32LE(54, 10), bytes.writeUInt32LE(40, 14);
    bytes.writeInt32LE(size, 18), bytes.writeInt32LE(size, 22), bytes.writeUInt16LE(1, 26), bytes.writeUInt16LE(24, 28);
    for (let at = 54; at < bytes.length; at += 3) bytes.set([blue, green, red], at);
    return bytes;
};
const code = (first, last) => `#include <stdio.h>\n\n// ${first}\nint main(void) {\n` +
    Array.from({length: 30}, (_, line) => `    printf("%d\\n", ${line});\n`).join('') + `    return ${last};\n}\n`;
const hostileName = '<img src=x onerror="window.hit=1">.txt';
const hostileText = '</script><script>window.hit=1</script>\n<img src=x onerror=window.hit=1>\n\u001b[31mred\u202etxt.exe\n' + 'x'.repeat(300000) + '\n';

function makeHistory() {
    write('main.c', code('first', 0));
    write('notes.md', '# Notes\n\nold\n');
    write('gone.txt', 'to be deleted\n');
    write('logo.bmp', picture(200, 30, 30));
    tidewrack(['track']);
    turn('claude', 'one', 'Return another status', () => {
        write('main.c', code('second', 7));
        write('notes.md', '# Notes\n\nnew\n');
        write('extra.txt', 'one more\n');
        hook('rm -rf gone.txt');
        place.remove('gone.txt');
        write('logo.bmp', picture(30, 30, 200));
    });
    turn('codex', 'two', '<b onclick=alert(1)>Hostile</b> \u202e prompt', () => {
        write(hostileName, hostileText);
        write('bytes.bin', Buffer.from([0, 1, 2, 255, 254]));
        fs.writeFileSync(Buffer.concat([Buffer.from(place.folder + '/'), Buffer.from('bad\xff.txt', 'latin1')]), 'its name is no text\n');
        write('many.txt', Array.from({length: 5000}, (_, line) => 'line ' + line + '\n').join(''));
    });
    place.remove('bytes.bin');
    tidewrack(['snap', '--label=by hand']);
}

function start(words, {folder, env} = place, asGiven = false, before = '') {
    const all = ['browse', ...(asGiven ? words : ['--no-open', ...words])];
    const server = spawn('/bin/sh', ['-c', before + 'exec "$0" "$@"', program, ...all], {cwd: folder, env});
    server.stderr.pipe(process.stderr);
    return new Promise((done, failed) => {
        server.on('exit', status => failed(new Error('it ended with ' + status)));
        server.stdout.on('data', text => {
            const found = /http:\/\/127\.0\.0\.1:(\d+)\/#([0-9a-f]{40})/.exec(String(text));
            if (found) done({server, address: found[0], port: Number(found[1]), token: found[2]});
        });
    });
}

const status = (port, headers, method = 'GET', where = '/api/config', body = '') => new Promise(done => {
    const asked = http.request({port, host: '127.0.0.1', path: where, method, headers, agent: false}, answer => {
        answer.resume();
        answer.on('end', () => done(answer.statusCode));
    });
    asked.on('error', () => done(0)); // it is gone
    asked.end(body);
});

// A body that goes on for as long as the connection does.
const untold = (port, token) => new Promise((done, failed) => {
    const line = net.connect(port, '127.0.0.1', () => line.write(`POST /api/plan HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\n` +
        `X-Tidewrack-Token: ${token}\r\nContent-Type: application/json\r\n\r\n{`));
    line.on('error', failed);
    line.once('data', text => done(Number(String(text).split(' ')[1])) || line.destroy());
});

// Of all that is answered to what is sent in one piece.
const statuses = (port, text) => new Promise((done, failed) => {
    let got = '';
    const line = net.connect(port, '127.0.0.1', () => line.write(text));
    line.on('error', failed).on('data', more => { got += more; }).on('end', () => done(Array.from(got.matchAll(/HTTP\/1.1 (\d+)/g), each => Number(each[1]))));
});

async function foreigners({port, token}) {
    const right = {'X-Tidewrack-Token': token};
    assert.equal(await status(port, right), 200);
    assert.equal(await status(port, {}), 403);
    assert.equal(await status(port, {'X-Tidewrack-Token': 'f'.repeat(40)}), 403);
    assert.equal(await status(port, {...right, Host: 'evil.example:' + port}), 403);
    assert.equal(await status(port, {...right, Origin: 'https://evil.example'}), 403);
    assert.equal(await status(port, {...right, 'Sec-Fetch-Site': 'cross-site'}), 403);
    assert.equal(await status(port, {...right, 'Transfer-Encoding': 'chunked'}, 'POST', '/api/plan'), 411);
    assert.equal(await status(port, right, 'PUT', '/api/plan'), 405);
    assert.equal(await untold(port, token), 411);
    assert.equal(await status(port, right, 'POST', '/api/plan', 'x'.repeat(2 << 20)), 413);
    assert.equal(await status(port, right, 'GET', '/api/' + 'x'.repeat(60000)), 404); // no pattern runs out of stack
    const label = JSON.stringify({act: 'label', label: 'x'.repeat(60000)}); // browsers take no such header back
    assert.equal(await status(port, {...right, 'Content-Type': 'application/json'}, 'POST', '/api/plan', label), 200);
    const asked = `GET /api/config HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\nX-Tidewrack-Token: ${token}\r\n`;
    assert.deepEqual(await statuses(port, asked + '\r\n' + asked + '\r\n'), [200, 200]);
    assert.deepEqual(await statuses(port, asked + 'Content-Length: ' + (asked.length + 2) + '\r\n\r\n' + asked + '\r\n'), [200]);
    assert.deepEqual(await statuses(port, asked + 'Host: evil.example\r\n\r\n'), [400]);
    assert.equal(await status(port, right, 'GET', '/..%2f..%2fetc/passwd'), 404);
}

const rest = milliseconds => new Promise(done => setTimeout(done, milliseconds));
const endOf = ({server}) => new Promise(done => server.removeAllListeners('exit').on('exit', done));

// Nobody without the token holds the page up, fills its memory or keeps it from ending.
async function pests() {
    const running = await start(['--read-only']);
    const {port, token, server} = running;
    const slow = Array.from({length: 40}, () => {
        const line = net.connect(port, '127.0.0.1', () => line.write('GET / HTTP/1.1\r\nHost: x'));
        const drip = setInterval(() => line.write('x'), 500);
        return line.on('error', () => {}).on('close', () => clearInterval(drip));
    });
    await rest(300);
    const began = Date.now();
    assert.equal(await status(port, {'X-Tidewrack-Token': token}), 200);
    assert.ok(Date.now() - began < 12000, 'it answers after ' + (Date.now() - began));
    const sent = await new Promise(done => {
        let bytes = 0;
        const line = net.connect(port, '127.0.0.1', () => line.write('GET / HTTP/1.1\r\n'));
        const more = () => {
            while (bytes < 64 << 20 && !line.destroyed && line.write('X-More: ' + 'x'.repeat(4000) + '\r\n')) bytes += 4010;
            if (bytes >= 64 << 20) line.destroy();
            bytes += 4010;
        };
        line.on('connect', more).on('drain', more).on('error', () => {}).on('close', () => done(bytes));
    });
    assert.ok(sent < 32 << 20, 'it took ' + sent);
    const more = Array.from({length: 20}, () => net.connect(port, '127.0.0.1').on('error', () => {}).on('connect', function() { this.write('GET /'); }));
    await rest(200);
    const ended = endOf(running);
    server.kill('SIGINT');
    assert.equal(await Promise.race([ended, rest(3000).then(() => 'it is still there')]), 0);
    for (const line of [...slow, ...more]) line.destroy();
}

// What the system's program for opening files does with the address, and what becomes of both.
async function opens(browser) {
    const bin = path.join(scratch, 'bin'), told = path.join(scratch, 'opened');
    fs.mkdirSync(bin);
    fs.writeFileSync(path.join(bin, 'xdg-open'), `#!/bin/sh
{ echo "$1"; echo $$; cut -d' ' -f6 /proc/$$/stat; for fd in /proc/$$/fd/*; do readlink "$fd"; done; } >'${told}.new'
mv '${told}.new' '${told}'
exec sleep 60
`, {mode: 0o755});
    const env = {...place.env, PATH: bin + ':' + process.env.PATH};
    const running = await start([], {folder: place.folder, env}, true);
    for (let asked = 0; asked < 100 && !fs.existsSync(told); ++asked) await rest(50);
    const [doorway, pid, session, ...files] = fs.readFileSync(told, 'utf8').trim().split('\n');
    try {
        assert.equal(fs.statSync(doorway).mode & 0o77, 0);
        assert.equal(session, pid); // Ctrl-C in the page's terminal is not for the browser
        const ours = fs.readdirSync('/proc/self/fd').map(each => {
            try {
                return fs.readlinkSync('/proc/self/fd/' + each); // what this test was given itself
            } catch {
                return ''; // the listing's own
            }
        });
        assert.deepEqual(files.filter(each => /pipe|socket/.test(each) && !ours.includes(each)), []);
        const view = await openPage(browser, 'file://' + doorway);
        await view.locator('.row').first().waitFor();
        await view.clean();
        for (let asked = 0; asked < 40 && fs.existsSync(doorway); ++asked) await rest(50);
        assert.ok(!fs.existsSync(doorway), 'the address lies around');
        const ended = endOf(running);
        running.server.kill('SIGHUP');
        assert.equal(await ended, 0);
        process.kill(Number(pid), 0); // it is still there
    } finally {
        process.kill(Number(pid));
    }
}

// How it ends, or goes on, where nobody hears of it.
async function unheard() {
    const to = output => spawnSync('/bin/sh', ['-c', `exec "$0" browse --no-open ${output}`, program], {cwd: place.folder, env: place.env, timeout: 10000}).status;
    assert.deepEqual(['>&-', '>/dev/full', '>/dev/null'].map(to), [1, 1, 1]);
    for (const port of ['99999', '80x', '-1', '']) {
        const bad = spawnSync(program + '-browse', [place.folder, '--no-open', '--port=' + port], {encoding: 'utf8', timeout: 10000});
        assert.deepEqual([bad.status, bad.stderr], [1, `tidewrack: --port needs a number from 1 to 65535, got ${port}\n`]);
    }
    const running = await start(['--no-open'], place, true, "trap '' HUP; ");
    running.server.kill('SIGHUP');
    const taken = spawnSync(program, ['browse', '--no-open', '--port=' + running.port], {cwd: place.folder, env: place.env, encoding: 'utf8'});
    assert.match(taken.stderr, new RegExp(`port ${running.port}: .*in use`));
    assert.equal(await status(running.port, {'X-Tidewrack-Token': running.token}), 200);
    const ended = endOf(running);
    running.server.kill();
    assert.equal(await ended, 0);
    for (const words of [['--html', scratch + '/'], ['--html', scratch + '/new/'], ['--html', scratch + '/x.html', '--commands']])
        assert.equal(spawnSync(program, ['timeline', '--contents', ...words], {cwd: place.folder, env: place.env}).status, 1);
}

// A limit on the size of files lets a write fail, and ends nothing.
async function limits() {
    const file = path.join(scratch, 'limited.html');
    const kept = spawnSync('/bin/sh', ['-c', 'ulimit -f 8; exec "$0" timeline --html "$1" --contents', program, file], {cwd: place.folder, env: place.env});
    assert.equal(kept.status, 1, kept.stderr + ' ' + kept.signal);
    assert.deepEqual(fs.readdirSync(scratch).filter(each => each.startsWith('limited') || each.startsWith('.tidewrack-')), []);
    const running = await start(['--no-open'], place, true, 'ulimit -f 8; ');
    const post = (name, body) => fetch(`http://127.0.0.1:${running.port}/api/${name}`, {method: 'POST', body: JSON.stringify(body),
        headers: {'X-Tidewrack-Token': running.token, 'Content-Type': 'application/json'}});
    const many = JSON.parse(tidewrack(['find', '--json', '--', 'many.txt'])).paths[0];
    place.remove('many.txt');
    const {plan} = await (await post('plan', {act: 'restore', seq: many.to, paths: ['many.txt']})).json();
    const done = await post('act', {plan});
    assert.match(await done.text(), /too large/i);
    assert.equal(await status(running.port, {'X-Tidewrack-Token': running.token}), 200);
    const ended = endOf(running);
    running.server.kill();
    assert.equal(await ended, 0);
    tidewrack(['restore', String(many.to), 'many.txt']);
}

// As long as somebody looks it is there; who may not look does not keep it.
async function idles() {
    const server = spawn(program + '-browse', [place.folder, '--no-open', '--idle=2'], {cwd: place.folder, env: place.env});
    const ended = new Promise(done => server.on('exit', done));
    const [, port, token] = await new Promise(done => server.stdout.once('data', text => done(/:(\d+)\/#(\w+)/.exec(String(text)))));
    for (let asked = 0; asked < 12; ++asked) {
        assert.equal(await status(port, {'X-Tidewrack-Token': token}), 200);
        await new Promise(done => setTimeout(done, 250));
    }
    const pest = setInterval(() => {
        void status(port, {'X-Tidewrack-Token': 'wrong'});
        void status(port, {}, 'GET', '/');
    }, 100);
    assert.equal(await ended, 0);
    clearInterval(pest);
}

const picturesOf = async (view, name) => view.screenshot({path: path.join(tools, name + '.png')});

async function openPage(browser, address, options = {}) {
    const context = await browser.newContext({viewport: {width: 1280, height: 860}, ...options});
    const view = await context.newPage();
    const strange = [];
    view.on('request', request => {
        if (!/^(http:\/\/127\.0\.0\.1:\d+\/|blob:|file:)/.test(request.url())) strange.push(request.url());
    });
    view.on('pageerror', error => strange.push(String(error)));
    view.on('dialog', dialog => strange.push(dialog.message()) && dialog.dismiss());
    await view.goto(address);
    view.clean = async () => {
        assert.deepEqual(strange, []);
        assert.equal(await view.locator('#warnings').innerText(), '');
        assert.equal(await view.evaluate(() => window.hit), undefined);
    };
    return view;
}

const choose = async (view, title) => {
    await view.locator('.row', {hasText: title}).click();
    await view.locator('#turn h2', {hasText: title}).waitFor();
};
const agree = async view => {
    await view.locator('#do').waitFor();
    await rest(400); // nobody has read it sooner
    await view.locator('#do').click();
};
const doIt = async view => {
    await agree(view);
    await view.locator('#message.good, #message.bad').waitFor();
};
const file = (view, name) => view.locator('section.file', {has: view.locator('.path', {hasText: name})}).first();

async function looks(view, name) {
    await choose(view, 'Return another status');
    await file(view, 'main.c').locator('.hunk').first().waitFor();
    assert.match(await view.locator('.commands').innerText(), /rm -rf gone\.txt/);
    assert.match(await view.locator('#turn .command').first().innerText(), /tidewrack show \d+/);
    await file(view, 'main.c').locator('.hljs-keyword').first().waitFor(); // the language's colours
    await file(view, 'logo.bmp').scrollIntoViewIfNeeded();
    await file(view, 'logo.bmp').locator('img').nth(1).waitFor();
    await view.locator('#turn').evaluate(place => { place.scrollTop = 0; });
    await picturesOf(view, name);
    await view.getByRole('button', {name: 'Side by side'}).click();
    await view.locator('.diff.beside').first().waitFor();
    await view.locator('.diff.beside .hunk').first().scrollIntoViewIfNeeded();
    await picturesOf(view, name + '-side-by-side');
    await view.getByRole('button', {name: 'Side by side'}).click();
    await view.locator('.diff:not(.beside)').first().waitFor();
}

async function hostile(view) {
    await choose(view, 'Hostile');
    assert.equal(await view.locator('#turn h2').first().innerText(), '<b onclick=alert(1)>Hostile</b> \\u202e prompt');
    const lines = file(view, hostileName).locator('.diff');
    await lines.locator('.hunk').first().waitFor();
    assert.match(await lines.innerText(), /<\/script><script>window\.hit=1<\/script>/);
    assert.match(await lines.innerText(), /\\u001b\[31mred\\u202etxt\.exe/);
    assert.ok((await lines.innerText()).length < 10000); // the huge line is cut
    await file(view, 'bytes.bin').scrollIntoViewIfNeeded();
    await file(view, 'bytes.bin').getByText('binary').waitFor();
    const nameless = file(view, 'bad\ufffd.txt');
    await nameless.getByText('Its name is not text').waitFor();
    assert.equal(await nameless.getByRole('button').count(), 0);
    // Of many lines those in sight are there, and the rest comes while one scrolls.
    const many = file(view, 'many.txt');
    await many.scrollIntoViewIfNeeded();
    await many.locator('tr').first().waitFor();
    assert.ok(await many.locator('tr').count() < 2000);
    await picturesOf(view, 'hostile');
    await view.clean();
}

async function undoes(view) {
    await choose(view, 'Return another status');
    // One hunk: the other one stays, and so does what was written since.
    write('main.c', readText('main.c') + '// later\n');
    await file(view, 'main.c').getByRole('button', {name: 'Undo hunk…'}).first().click();
    await view.locator('#do').waitFor();
    assert.match(await view.locator('#dialog').innerText(), /undo --turn \d+ --hunk 1:[0-9a-f]{16} -- main\.c[\s\S]*merge\s+main\.c[\s\S]*\/\/ second/);
    await picturesOf(view, 'undo-preview');
    await doIt(view);
    assert.equal(readText('main.c'), code('first', 7) + '// later\n');
    // What was looked at is what is done: not when the file changes in between.
    await file(view, 'notes.md').getByRole('button', {name: 'Undo file…'}).click();
    await view.locator('#do').waitFor();
    write('notes.md', '# Notes\n\nnew\nand more\n');
    await agree(view);
    await view.locator('#message.bad', {hasText: 'nothing was done'}).waitFor();
    assert.equal(readText('notes.md'), '# Notes\n\nnew\nand more\n');
    write('notes.md', '# Notes\n\nnew\n');
    await file(view, 'notes.md').getByRole('button', {name: 'Undo file…'}).click();
    await doIt(view);
    assert.equal(readText('notes.md'), '# Notes\n\nold\n');
    // What is left alone is told with the reason, and nothing that was not done can be taken back.
    write('extra.txt', 'another since\n');
    await file(view, 'extra.txt').getByRole('button', {name: 'Undo file…'}).click();
    await view.locator('#do').waitFor();
    assert.ok(await view.locator('#do').isDisabled());
    await view.keyboard.press('Escape');
    await view.route('**/api/act', route => route.fulfill({json: {version: 1, dryRun: false, passedOver: [], vault: [], projects: [{root: '/', takesBack: [],
        warnings: ['a warning'], actions: [{path: 'main.c', action: 'leave', folder: false, reason: 'the disk is full'}]}]}}));
    await file(view, 'main.c').getByRole('button', {name: 'Undo file…'}).click();
    await agree(view);
    await view.locator('#close').waitFor();
    assert.match(await view.locator('#dialog').innerText(), /the disk is full[\s\S]*a warning/);
    assert.match(await view.locator('#message.bad').innerText(), /^Nothing was done, 1 left alone\.$/);
    await view.locator('#close').click();
    await view.unroute('**/api/act');
    write('extra.txt', 'one more\n');
    // The rest of the turn, by keys.
    await view.locator('#list').focus();
    await view.keyboard.press('u');
    await view.locator('#do').waitFor();
    assert.match(await view.locator('#dialog').innerText(), /put back\s+gone\.txt/);
    await rest(400);
    await view.keyboard.press('Enter');
    await view.locator('#message.good', {hasText: 'done'}).waitFor();
    assert.equal(readText('gone.txt'), 'to be deleted\n');
    assert.ok(!fs.existsSync(place.at('extra.txt')));
    assert.equal(readText('main.c'), code('first', 0) + '// later\n');
    await view.locator('.row', {hasText: /undo/i}).first().waitFor();
    await view.clean();
}

async function keeps(view) {
    await choose(view, 'Return another status');
    await view.getByRole('button', {name: /^Pin #/}).click();
    await view.locator('#do').waitFor();
    assert.match(await view.locator('#dialog').innerText(), /tidewrack pin 2/);
    await doIt(view);
    await view.locator('#turn .badge', {hasText: 'pinned'}).waitFor();
    assert.equal(JSON.parse(tidewrack(['log', '--json'])).find(each => each.seq === 2).pinned, true);
    await view.getByRole('button', {name: 'Snapshot…'}).click();
    await view.getByLabel('Label', {exact: true}).fill('as <b>good</b> as it was');
    await view.keyboard.press('Enter');
    await doIt(view);
    await view.locator('.row', {hasText: 'as <b>good</b> as it was'}).waitFor();
    await view.getByRole('button', {name: 'Redo…'}).click();
    await view.locator('#do').waitFor();
    assert.match(await view.locator('#dialog').innerText(), /tidewrack redo[\s\S]*remove\s+gone\.txt/);
    await view.keyboard.press('Escape');
}

async function finds(view) {
    await view.getByRole('button', {name: 'Search', exact: true}).click();
    await view.getByLabel('What to search for').fill('bytes');
    await view.keyboard.press('Enter');
    await view.locator('#results td', {hasText: 'bytes.bin'}).first().waitFor();
    await picturesOf(view, 'search');
    await view.getByRole('button', {name: 'Restore…'}).click();
    await doIt(view);
    assert.deepEqual(fs.readFileSync(place.at('bytes.bin')), Buffer.from([0, 1, 2, 255, 254]));
    await view.getByLabel('What to search for').fill('RETURN 7');
    await view.locator('#by-lines').click();
    await view.locator('.hit', {hasText: 'main.c'}).first().waitFor();
    assert.match(await view.locator('#results').innerText(), /tidewrack find --lines -- 'return 7'/);
    await view.route('**/api/search*', route => route.abort());
    await view.locator('#by-lines').click();
    await view.locator('#results .warning', {hasText: 'Not all could be read'}).waitFor();
    await view.unroute('**/api/search*');
    // A file's versions along the slider.
    await view.getByLabel('What to search for').fill('notes.md');
    await view.locator('#by-name').click();
    await view.getByRole('button', {name: 'Versions'}).click();
    await view.locator('#version').waitFor();
    const slider = view.getByLabel('Version', {exact: true});
    await slider.fill('0');
    await view.locator('#version', {hasText: '1 of '}).waitFor();
    await view.locator('#turn .diff', {hasText: 'new'}).first().waitFor();
    await picturesOf(view, 'versions');
    const [saved] = await Promise.all([view.waitForEvent('download'), view.getByRole('button', {name: 'Download this version'}).click()]);
    assert.equal(fs.readFileSync(await saved.path(), 'utf8'), '# Notes\n\nold\n');
    await view.locator('#message.good', {hasText: 'tidewrack cat 2 -- notes.md'}).waitFor();
    await view.locator('#turn .diff', {hasText: 'old'}).nth(1).waitFor(); // its own text, behind what changed
    // Before a file was made and after it went there is nothing to download or restore; in between its text is shown.
    await view.getByRole('button', {name: 'Search', exact: true}).click();
    await view.getByLabel('What to search for').fill('extra.txt');
    await view.locator('#by-name').click();
    await view.locator('#results tr', {hasText: 'extra.txt'}).getByRole('button', {name: 'Versions'}).click();
    for (const [stop, text] of [['0', 'Not there yet at #2.'], ['3', 'Not there any more at #']]) {
        await view.getByLabel('Version', {exact: true}).fill(stop);
        await view.getByText(text).waitFor();
        assert.equal(await view.getByRole('button', {name: /this version/}).count(), 0);
    }
    await view.getByLabel('Version', {exact: true}).fill('2');
    await view.locator('#version', {hasText: '3 of 4'}).waitFor();
    await view.locator('#turn .diff', {hasText: 'one more'}).first().waitFor();
    const [made] = await Promise.all([view.waitForEvent('download'), view.getByRole('button', {name: 'Download this version'}).click()]);
    assert.equal(fs.readFileSync(await made.path(), 'utf8'), 'one more\n');
    for (const [name, text] of [['Vault', /outside of projects/], ['Status', /Folder/]]) {
        await view.getByRole('button', {name, exact: true}).click();
        await view.locator('#' + name.toLowerCase() + ' h2').waitFor();
        assert.match(await view.locator('#' + name.toLowerCase()).innerText(), text);
        await picturesOf(view, name.toLowerCase());
    }
    await view.getByRole('button', {name: 'History', exact: true}).click();
}

// Keys that are held, answers that come late, filters that hide, and what was changed or damaged behind the page's back.
async function staysRight(browser) {
    const its = placeOf('moving');
    for (const name of ['a.txt', 'b.txt']) its.write(name, 'zero\n');
    fs.symlinkSync('a.txt', its.at('link'));
    its.tidewrack(['track']);
    its.turn('claude', 'one', 'First of a', () => its.write('a.txt', 'one\n'));
    its.turn('codex', 'two', 'Then of b', () => {
        its.write('b.txt', 'two\n');
        its.remove('link');
        fs.symlinkSync('b.txt', its.at('link'));
        its.write('many.txt', Array.from({length: 300}, (_, line) => 'line ' + line + '\n').join(''));
    });
    const [{first: newest}, {first}] = JSON.parse(its.tidewrack(['timeline', '--json'])).rows;
    its.tidewrack(['pin', String(newest)]);
    const running = await start([], its);
    const view = await openPage(browser, running.address);
    const heading = text => view.locator('#turn h2', {hasText: text}).waitFor();
    const refused = () => view.locator('#message.bad');
    try {
        await heading('Then of b');
        await view.locator('#turn .badge', {hasText: 'pinned'}).waitFor();
        await file(view, 'link').getByText('Link: a.txt → b.txt').waitFor();
        assert.equal(await file(view, 'link').getByRole('button', {name: 'Download'}).count(), 0);
        // Held or pressed twice, a key does nothing that was not read.
        const plans = [];
        view.on('request', request => /api\/(plan|act)/.test(request.url()) && plans.push(request.url()));
        await view.locator('#undo').focus();
        for (let pressed = 0; pressed < 25; ++pressed) {
            await view.keyboard.down('Enter');
            await rest(40);
        }
        await view.keyboard.up('Enter');
        await view.keyboard.press('Escape');
        await view.locator('#list').focus();
        await view.evaluate(() => new Promise(done => {
            new MutationObserver((_, observer) => {
                observer.disconnect();
                document.getElementById('do').click();
                done();
            }).observe(document.getElementById('dialog'), {attributes: true});
            for (let pressed = 0; pressed < 2; ++pressed) document.body.dispatchEvent(new KeyboardEvent('keydown', {key: 'u', bubbles: true}));
        }));
        await rest(200);
        assert.deepEqual(plans.map(each => each.split('/').pop()), ['plan', 'plan']);
        await view.keyboard.press('Escape');
        // What was refused, and Refresh, show what there is now; one stays at the lines that one reads.
        await view.locator('#turn').evaluate(place => { place.scrollTop = 900; });
        its.tidewrack(['unpin', String(newest)]);
        await view.locator('#refresh').click();
        await view.waitForFunction(() => !document.querySelector('#turn .badge'));
        assert.equal(await view.locator('#turn').evaluate(place => place.scrollTop), 900);
        its.tidewrack(['snap', '--label=meanwhile']);
        await view.route('**/api/plan', route => route.fulfill({status: 409, body: 'Others by now.'}));
        await view.locator('#list').focus();
        const redrawn = view.waitForRequest(/api\/lines/);
        await view.keyboard.press('u');
        await refused().waitFor();
        await view.locator('.row', {hasText: 'meanwhile'}).waitFor();
        await redrawn;
        await view.unroute('**/api/plan');
        // The newest question is what is answered.
        await view.route('**/api/lines?turn=' + first, route => rest(600).then(() => route.continue()));
        await view.locator('.row', {hasText: 'First of a'}).click();
        assert.equal(await refused().count(), 0);
        await file(view, 'b.txt').getByRole('button', {name: 'Versions'}).click();
        await heading('Versions of b.txt');
        await rest(900);
        await heading('Versions of b.txt');
        await view.locator('#turn').focus();
        await view.keyboard.press('u');
        await rest(300);
        assert.equal(await view.locator('#dialog[open]').count(), 0);
        await view.unroute('**/api/lines?turn=' + first);
        // A filter that fails hides all; a hit is opened although filters hide it.
        await view.locator('#filter-path').fill('nowhere');
        await view.keyboard.press('Enter');
        await view.locator('#count', {hasText: /^0 of/}).waitFor();
        await view.getByRole('button', {name: 'Search', exact: true}).click();
        await view.getByLabel('What to search for').fill('a.txt');
        await view.keyboard.press('Enter');
        await view.locator('#results td', {hasText: 'a.txt'}).waitFor();
        await view.route('**/api/find*', route => rest(500).then(() => route.continue()));
        await view.getByLabel('What to search for').fill('b.txt');
        await view.keyboard.press('Enter');
        assert.equal(await view.locator('#results td').count(), 0);
        await view.getByLabel('What to search for').fill('one');
        await view.locator('#by-lines').click();
        await rest(900);
        await view.locator('.hit').getByRole('button', {name: 'First of a'}).click();
        await heading('First of a');
        await view.getByRole('button', {name: 'Search', exact: true}).click();
        await view.getByLabel('What to search for').fill('nowhere');
        await view.keyboard.press('Enter');
        await view.locator('#results', {hasText: 'No snapshot has a path that matches nowhere'}).waitFor();
        assert.equal(await refused().count(), 0);
        await view.clean();
        // What is damaged is told.
        const [project] = fs.readdirSync(path.join(its.store, 'projects'));
        fs.writeFileSync(path.join(its.store, 'projects', project, 'snapshots', '1.json'), '{');
        await view.locator('#refresh').click();
        await view.locator('#warnings', {hasText: /1/}).waitFor();
    } finally {
        running.server.removeAllListeners('exit').kill();
    }
}

// A turn that did more in another project than the one that is looked at.
async function reachesOthers(browser) {
    const here = placeOf('workshop');
    const other = path.join(scratch, "the owner's");
    fs.mkdirSync(other);
    fs.writeFileSync(path.join(other, 'lost.txt'), 'kept in the other project\n');
    here.write('bench.txt', 'one\n');
    here.tidewrack(['track']);
    here.tidewrack(['track', other]);
    here.turn('claude', 'both', 'Clean up in both', () => {
        here.write('bench.txt', 'two\n');
        here.hook(`rm "${other}/lost.txt"`);
        fs.rmSync(path.join(other, 'lost.txt'));
    });
    const running = await start([], here);
    try {
        const view = await openPage(browser, running.address);
        await choose(view, 'Clean up in both');
        await view.locator('.badge', {hasText: "also in " + other}).waitFor();
        const there = view.locator('.elsewhere');
        await there.getByText('put back lost.txt').waitFor();
        const words = await there.locator('.command code', {hasText: 'show'}).innerText();
        assert.match(words, /^tidewrack show \d+ --project '.*owner'\\''s'$/);
        const ran = spawnSync('/bin/sh', ['-c', words.replace('tidewrack', '"$0"'), program], {env: here.env, cwd: scratch, encoding: 'utf8'});
        assert.match(ran.stdout, /-kept in the other project/);
        await view.locator('#undo').click();
        await doIt(view);
        assert.equal(fs.readFileSync(path.join(other, 'lost.txt'), 'utf8') + here.readText('bench.txt'), 'kept in the other project\none\n');
        await there.getByText('Nothing is left of it').or(there.getByText('Nothing of it is left')).first().waitFor();
        await view.clean();
    } finally {
        running.server.removeAllListeners('exit').kill();
    }
}

async function moves(view) {
    await view.locator('#filter-agent').selectOption('codex');
    assert.equal(await view.locator('.row').count(), 1);
    await view.locator('#filter-command', {hasText: 'tidewrack timeline -n 1 --agent codex'}).waitFor();
    await view.locator('#filter-agent').selectOption('');
    await view.locator('#filter-path').fill('extra.txt');
    await view.keyboard.press('Enter');
    await view.locator('#filter-command', {hasText: /^tidewrack log.* extra.txt/}).waitFor();
    await view.waitForFunction(() => /^\d of /.test(document.getElementById('count').textContent));
    await view.locator('#filter-path').fill('');
    await view.keyboard.press('Enter');
    await view.locator('#list').focus();
    await view.locator('.row').first().click();
    await view.keyboard.press('j');
    await view.keyboard.press('j');
    await view.keyboard.press('k');
    assert.equal(await view.locator('.row[aria-selected=true]').getAttribute('id'), 'row-1');
    // A list that is drawn anew under the finger loses no click.
    await view.locator('#row-2').hover();
    await view.mouse.down();
    await view.evaluate(() => new Promise(done => {
        document.getElementById('list').dispatchEvent(new Event('scroll'));
        requestAnimationFrame(() => requestAnimationFrame(done));
    }));
    await view.mouse.up();
    assert.equal(await view.locator('.row[aria-selected=true]').getAttribute('id'), 'row-2');
    await view.locator('#list').focus();
    await view.keyboard.press('Enter');
    assert.equal(await view.evaluate(() => document.activeElement.id), 'turn');
}

// Of a long history the newest rows are there at once, also after a change, and all of it comes then.
async function longHistory(view) {
    let title = 'before';
    let all = route => route.fulfill({json: rowsOf(150)});
    const real = JSON.parse(tidewrack(['timeline', '--json'])).rows[0];
    const rowsOf = count => ({version: 1, rows: Array.from({length: count}, (_, at) => ({...real, title: at ? 'old' : title, first: 1000 - at, last: 1000 - at}))});
    await view.route('**/api/timeline?n=100', route => route.fulfill({json: rowsOf(100)}));
    await view.route('**/api/timeline?n=1000000', route => all(route));
    await view.locator('#refresh').click();
    await view.locator('#count', {hasText: '150 rows'}).waitFor();
    all = () => {}; // it takes long
    title = 'just done';
    await view.locator('#refresh').click();
    await view.locator('#list').evaluate(list => { list.scrollTop = 0; });
    await view.locator('.row', {hasText: 'just done'}).waitFor();
    assert.equal(await view.locator('#count').innerText(), '150 rows');
    await view.unrouteAll();
    await view.locator('#refresh').click();
    await view.locator('.row', {hasText: 'Return another status'}).waitFor();
}

// Nothing that keeps somebody from reading or using the page.
async function accessibility(view) {
    const source = fs.readFileSync(path.join(tools, 'node_modules', 'axe-core', 'axe.min.js'), 'utf8');
    const check = async name => {
        await view.evaluate(source);
        const found = await view.evaluate(async () => (await window.axe.run()).violations.map(each =>
            [each.impact, each.id, ...each.nodes.map(node => node.html.slice(0, 120) + ': ' + node.failureSummary)]));
        assert.deepEqual(found.filter(([impact]) => impact === 'serious' || impact === 'critical'), [], name);
    };
    await choose(view, 'Return another status');
    await file(view, 'main.c').locator('.hljs-keyword').first().waitFor();
    await check('a turn');
    await view.locator('#list').focus();
    await view.keyboard.press('u');
    await view.locator('#do').waitFor();
    await check('a preview');
    await view.keyboard.press('Escape');
    await file(view, 'main.c').getByRole('button', {name: 'Versions'}).click();
    await view.locator('#turn .hunk').first().waitFor();
    await check('versions');
    for (const name of ['Search', 'Vault', 'Status']) {
        await view.getByRole('button', {name, exact: true}).click();
        await view.locator('#' + name.toLowerCase() + ' h2').waitFor();
        if (name === 'Search') {
            await view.getByLabel('What to search for').fill('c');
            await view.keyboard.press('Enter');
            await view.locator('#results td').first().waitFor();
        }
        await check(name);
    }
}

async function showDemo(browser) {
    const demo = placeOf('bookshop');
    makeDemo(demo);
    const running = await start([], demo);
    try {
        const view = await openPage(browser, running.address);
        await choose(view, 'Totals have too many digits');
        await file(view, 'src/prices.py').locator('.hljs-keyword').first().waitFor();
        await picturesOf(view, 'demo');
        await choose(view, 'The logo in our new colour');
        await file(view, 'logo.svg').locator('img').nth(1).waitFor();
        await picturesOf(view, 'demo-pictures');
        await file(view, 'logo.svg').getByRole('button', {name: 'Versions'}).click();
        await view.getByLabel('Version', {exact: true}).fill('0');
        await view.locator('#turn .slider ~ div img').first().waitFor();
        await view.clean();
    } finally {
        running.server.removeAllListeners('exit').kill();
    }
}

async function main() {
    makeHistory();
    const browser = await chromium.launch({executablePath, args: ['--no-sandbox']});
    let running;
    try {
        running = await start([]);
        await foreigners(running);
        const nobody = await openPage(browser, running.address.split('#')[0]);
        await nobody.locator('#message.bad', {hasText: 'token is wrong'}).waitFor();
        const view = await openPage(browser, running.address);
        assert.ok(!view.url().includes(running.token));
        await looks(view, 'page');
        await hostile(view);
        await moves(view);
        await longHistory(view);
        await undoes(view);
        await keeps(view);
        await finds(view);
        const dark = await openPage(browser, running.address, {colorScheme: 'dark'});
        await looks(dark, 'dark');
        const narrow = await openPage(browser, running.address, {viewport: {width: 400, height: 900}});
        await choose(narrow, 'Return another status');
        await file(narrow, 'main.c').locator('.hunk').first().waitFor();
        assert.ok(await narrow.evaluate(() => document.documentElement.scrollWidth <= window.innerWidth));
        await picturesOf(narrow, 'narrow');
        for (const colorScheme of ['light', 'dark']) await accessibility(await openPage(browser, running.address, {colorScheme}));
        const ended = new Promise(done => running.server.removeAllListeners('exit').on('exit', done));
        running.server.kill('SIGINT');
        assert.equal(await ended, 0);
        await view.locator('#refresh').click();
        await view.locator('#message.bad', {hasText: 'The server has ended'}).waitFor();

        await staysRight(browser);
        await reachesOthers(browser);
        await idles();
        await opens(browser);
        await pests();
        await unheard();
        await limits();
        running = await start(['--read-only']);
        const reader = await openPage(browser, running.address);
        await choose(reader, 'Return another status');
        await file(reader, 'main.c').locator('.hunk').first().waitFor();
        assert.equal(await reader.getByRole('button', {name: /Undo|Redo|Pin|Restore|Snapshot/}).count(), 0);

        tidewrack(['timeline', '--html', path.join(scratch, 'kept.html'), '--contents']);
        const kept = await openPage(browser, 'file://' + path.join(scratch, 'kept.html'));
        await choose(kept, 'Hostile');
        await file(kept, hostileName).locator('.hunk').first().waitFor();
        await choose(kept, 'Return another status');
        await file(kept, 'main.c').locator('.hljs-keyword').first().waitFor();
        await picturesOf(kept, 'kept-file');
        await file(kept, 'logo.bmp').locator('img').nth(1).waitFor();
        assert.equal(await file(kept, 'logo.bmp').locator('img').evaluateAll(all => all.filter(each => each.naturalWidth > 0).length), 2);
        await kept.locator('#filter-path').fill('main.c');
        await kept.keyboard.press('Enter');
        await kept.locator('#count', {hasText: /^\d+ of/}).waitFor();
        await kept.locator('.row', {hasText: 'Return another status'}).waitFor();
        await kept.locator('#filter-path').fill('nowhere');
        await kept.keyboard.press('Enter');
        await kept.locator('#count', {hasText: /^0 of/}).waitFor();
        await kept.clean();
        tidewrack(['timeline', '--html', path.join(scratch, 'bare.html'), '--no-contents', '--agent=claude']);
        const bare = await openPage(browser, 'file://' + path.join(scratch, 'bare.html'));
        await choose(bare, 'A turn, #');
        await bare.locator('.commands', {hasText: 'left out'}).waitFor();
        assert.equal(await bare.locator('.row').count(), 1);
        assert.ok(await bare.getByRole('button', {name: 'Search', exact: true}).isHidden());
        await bare.clean();
        await showDemo(browser);
        console.log('browse: all is well; screenshots are in ' + path.relative(process.cwd(), tools));
    } finally {
        if (running) running.server.removeAllListeners('exit').kill();
        await browser.close();
        fs.rmSync(scratch, {recursive: true, force: true});
    }
}

await main();
